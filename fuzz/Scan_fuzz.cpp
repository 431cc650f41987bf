// Numbers and times as they stand in reports, against the rules of Scan.h written down a second time.
#include "data/Scan.h"
#include "fuzz/Require.h"
#include "platform/Text.h"

#include <array>
#include <optional>

namespace {

constexpr std::wstring_view kDigits = L"0123456789";

// Reads a number of at most width characters at place, and moves place behind it. Nothing when there is none.
std::optional<ULONGLONG> ReadNumber(const std::wstring& text, std::size_t& place, std::size_t width)
{
    std::size_t first = place;
    while (first < text.size() && platform::IsWhiteSpace(text[first])) {
        ++first;
    }
    const std::wstring item = text.substr(first, width);
    const std::size_t sign = item.starts_with(L'-') || item.starts_with(L'+') ? 1 : 0;
    const std::wstring digits = item.substr(sign, item.find_first_not_of(kDigits, sign) - sign);
    if (digits.empty()) {
        return std::nullopt;
    }
    ULONGLONG value = 0;
    ULONGLONG worth = item.starts_with(L'-') ? ~0ULL : 1; // of the digit, from the last one on
    for (std::size_t i = digits.size(); i > 0; --i, worth *= 10) {
        value += worth * kDigits.find(digits[i - 1]);
    }
    place = first + sign + digits.size();
    return value;
}

template <class Field>
void CheckNumber(int (*scan)(std::wstring_view, Field&), const std::wstring& text)
{
    constexpr Field kBefore = 4711;
    Field value = kBefore;
    std::size_t place = 0;
    const std::optional<ULONGLONG> expected = ReadNumber(text, place, text.size());
    Require(scan(text, value) == (expected ? 1 : 0));
    Require(value == static_cast<Field>(expected.value_or(kBefore)));
}

void CheckTime(const std::wstring& text)
{
    std::array<WORD, 6> expected = {11, 12, 13, 14, 15, 16};
    int assigned = 0;
    for (std::size_t place = 0; assigned < 6; ++assigned) {
        if (assigned > 0 && (place >= text.size() || text[place++] != L"--T::"[assigned - 1])) {
            break;
        }
        const std::optional<ULONGLONG> number = ReadNumber(text, place, assigned == 0 ? 4 : 2);
        if (!number) {
            break;
        }
        expected[static_cast<std::size_t>(assigned)] = static_cast<WORD>(*number);
    }
    SYSTEMTIME time{11, 12, 77, 13, 14, 15, 16, 88};
    Require(ScanDateTime(text, time) == assigned);
    Require(expected == std::array{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond});
    Require(time.wDayOfWeek == 77 && time.wMilliseconds == 88);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    const std::wstring text = platform::DecodeUtf8({reinterpret_cast<const char*>(bytes), size});
    CheckNumber(ScanUnsigned, text);
    CheckNumber(ScanUnsigned64, text);
    CheckTime(text);
    return 0;
}
