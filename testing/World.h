// The world that tests show to the program: its companies, its kinds of data, what a request asks for, and the bytes of
// the data files. Written down a second time, so that no mistake in the program's own tables is repeated here.
#pragma once

#include "platform/Types.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

// A company, in the order of a pass.
struct TestCompany {
    std::string word;      // in URLs and in the names of data files
    std::string className; // in trace lines
    int site;              // number in the settings
    DWORD mask;            // kinds that are asked for when nothing is set
};
inline const std::array<TestCompany, 5> kTestCompanies = {{{"tokyo", "CAmporaTokyoPowerCompany", 3, 31},
                                                           {"tohoku", "CAmporaTohokuPowerCompany", 2, 31},
                                                           {"kansai", "CAmporaKansaiPowerCompany", 6, 31},
                                                           {"chubu", "CAmporaChubuPowerCompany", 5, 26},
                                                           {"kyushu", "CAmporaKyushuPowerCompany", 9, 25}}};
// Throws std::invalid_argument when there is none.
const TestCompany& CompanyOf(const std::string& word);

// A kind of data, in the order of a pass.
struct TestKind {
    DWORD code;
    std::string category; // the URL's words
    std::string word;
    std::string element; // below a report's root
    std::string item;    // below that, one per record
    bool isTrimmed;      // only what touches the pass's period is kept
};
inline const std::array<TestKind, 5> kTestKinds = {{{1, "usage", "instant", "instant_usage", "usage", true},
                                                    {2, "usage", "actual", "actual_usage", "usage", true},
                                                    {4, "usage", "estimated", "estimated_usage", "usage", true},
                                                    {8, "peak", "supply", "peak_supply", "supply", false},
                                                    {16, "peak", "demand", "peak_demand", "demand", false}}};
inline constexpr unsigned kDataTypes[] = {1, 2, 4, 8, 16}; // their codes
// Throws std::invalid_argument when there is none.
const TestKind& KindOf(DWORD code);
// The codes that a company is asked for when nothing is set.
std::vector<unsigned> KindsOf(const std::string& company);

// What a request asks for.
struct Request {
    std::string company;
    unsigned dataType = 0;
    std::string date; // "2012-07-02"

    bool operator==(const Request&) const = default;
};
// "/usage/tokyo/instant?date=2012-07-02&output=xml"
std::string TargetOf(const Request& request);
// Empty for a target that is none of the program's.
std::optional<Request> ParseTarget(const std::string& target);

// "2012-07-02"
std::string DateText(const SYSTEMTIME& time);
// "2012-07-02T13:00:00"
std::string DateTimeText(const SYSTEMTIME& time);

// A record of a data file.
struct Record {
    std::uint64_t value = 0;
    SYSTEMTIME start = {};
    SYSTEMTIME end = {};
};
using Records = std::vector<Record>;

// "tokyo_00000010.dat"
std::string DataFileName(const std::string& company, unsigned dataType);

// The bytes of a data file's parts, as docs/data-format.md has them.
std::string Bytes32(std::uint32_t value);
std::string Bytes64(std::uint64_t value);
std::string CalendarBytes(const SYSTEMTIME& time);
std::string RecordBytes(const Records& records);
// The first 16 of the header's 32 bytes; the time of writing follows them.
std::string HeaderBytes(unsigned dataType, std::size_t recordCount);

} // namespace testing_support
