// The catalogue: the companies and the kinds of data that the suite knows, each listed once.
//
// It needs nothing but the standard library, so that a program without the platform may include it, and everything in
// it is computed when it is compiled. All functions may be called from any thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace catalogue {

// A short ASCII text that is written once and read as narrow and as wide text.
class CWord {
public:
    // text: a literal of ASCII characters, at most 15; anything else does not compile.
    template <std::size_t Size>
    consteval CWord(const char (&text)[Size]) // NOLINT(google-explicit-constructor): the tables show the bare text
    {
        static_assert(Size <= kCapacity);
        for (std::size_t i = 0; i + 1 < Size; ++i) {
            if (static_cast<unsigned char>(text[i]) >= 0x80) {
                throw "a character that is not ASCII";
            }
            m_narrow[i] = text[i];
            m_wide[i] = static_cast<wchar_t>(text[i]);
        }
    }

    // Both live as long as this word and are followed by a zero.
    constexpr std::string_view Narrow() const { return m_narrow.data(); }
    constexpr const wchar_t* Wide() const { return m_wide.data(); }

private:
    static constexpr std::size_t kCapacity = 16;
    std::array<char, kCapacity> m_narrow{};
    std::array<wchar_t, kCapacity> m_wide{};
};

// Data type codes: one bit per kind of data.
inline constexpr std::uint32_t kInstantUsage = 1;
inline constexpr std::uint32_t kActualUsage = 2;
inline constexpr std::uint32_t kEstimatedUsage = 4;
inline constexpr std::uint32_t kPeakSupply = 8;
inline constexpr std::uint32_t kPeakDemand = 16;
inline constexpr std::uint32_t kAllDataTypes =
    kInstantUsage | kActualUsage | kEstimatedUsage | kPeakSupply | kPeakDemand;

// A kind of data. Its report is at "/category/company/word".
struct Kind {
    std::uint32_t dataType = 0; // data type code
    CWord category;             // first word of the report's path
    CWord word;                 // its last word
    CWord element;              // the report's element below the root
    CWord item;                 // the element below that, one per record
    CWord name;                 // for people
    bool isTrimmed = false; // reports cover whole days, of which an update pass keeps its own period only; a peak is
                            // one record, which is kept as it is
};

// In the order of an update pass and of every list.
inline constexpr std::array kKinds = {
    Kind{kInstantUsage, "usage", "instant", "instant_usage", "usage", "instant usage", true},
    Kind{kActualUsage, "usage", "actual", "actual_usage", "usage", "actual usage", true},
    Kind{kEstimatedUsage, "usage", "estimated", "estimated_usage", "usage", "estimated usage", true},
    Kind{kPeakSupply, "peak", "supply", "peak_supply", "supply", "peak supply", false},
    Kind{kPeakDemand, "peak", "demand", "peak_demand", "demand", "peak demand", false},
};

// Site numbers of the companies.
inline constexpr int kTohoku = 2;
inline constexpr int kTokyo = 3;
inline constexpr int kChubu = 5;
inline constexpr int kKansai = 6;
inline constexpr int kKyushu = 9;

struct Company {
    int siteNumber = 0;            // names it in the settings
    CWord key;                     // names it in URLs and in the names of data files
    CWord name;                    // for people
    std::uint32_t defaultMask = 0; // data type codes that are asked for unless the settings say otherwise
};

// In the order of every list. An update pass has its own (engine/AmporaUpdater.cpp).
inline constexpr std::array kCompanies = {
    Company{kTokyo, "tokyo", "Tokyo", kAllDataTypes},
    Company{kTohoku, "tohoku", "Tohoku", kAllDataTypes},
    Company{kChubu, "chubu", "Chubu", kActualUsage | kPeakSupply | kPeakDemand},
    Company{kKansai, "kansai", "Kansai", kAllDataTypes},
    Company{kKyushu, "kyushu", "Kyushu", kInstantUsage | kPeakSupply | kPeakDemand},
};

// The kind of exactly this data type code; null when there is none.
constexpr const Kind* FindKind(std::uint32_t dataType)
{
    const auto* const found =
        std::find_if(kKinds.begin(), kKinds.end(), [dataType](const Kind& kind) { return kind.dataType == dataType; });
    return found == kKinds.end() ? nullptr : found;
}

// The company of this site number; null when there is none.
constexpr const Company* FindCompany(int siteNumber)
{
    const auto* const found = std::find_if(kCompanies.begin(), kCompanies.end(), [siteNumber](const Company& company) {
        return company.siteNumber == siteNumber;
    });
    return found == kCompanies.end() ? nullptr : found;
}

} // namespace catalogue
