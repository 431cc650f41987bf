// The report API of the simulation, and what the program has to make of its answers.
#pragma once

#include "testing/HttpAnswer.h"
#include "testing/simulation/LocalTime.h"
#include "testing/simulation/Options.h"

#include <optional>
#include <string>
#include <vector>

namespace simulation {

// A company, in the order of a pass.
struct Company {
    const char* word;
    int site;
    DWORD mask; // kinds that are asked for when nothing is set
};
inline constexpr Company kCompanies[] = {
    {"tokyo", 3, 31}, {"tohoku", 2, 31}, {"kansai", 6, 31}, {"chubu", 5, 26}, {"kyushu", 9, 25}};

// A kind of data, in the order of a pass.
struct Kind {
    const char* category; // the URL's words
    const char* word;
    DWORD code;
    bool isTrimmed; // only what touches the pass's period is kept
};
inline constexpr Kind kKinds[] = {{"usage", "instant", 1, true},
                                  {"usage", "actual", 2, true},
                                  {"usage", "estimated", 4, true},
                                  {"peak", "supply", 8, false},
                                  {"peak", "demand", 16, false}};

// A record of a data file.
struct Record {
    std::uint64_t value = 0;
    SYSTEMTIME start = {};
    SYSTEMTIME end = {};
};
using Records = std::vector<Record>;

// "/usage/tokyo/instant?date=2012-07-02&output=xml"
std::string TargetOf(const Company& company, const Kind& kind, const SYSTEMTIME& day);

// An answer and what it means.
struct Reply {
    testing_support::HttpAnswer answer = {};
    std::int64_t lastsMs = 0;            // until the program goes on
    std::optional<Records> records = {}; // empty: the download or the analysis fails
    const char* name = "report";         // for the log
};

// Draws the answer to one request. zone: in which the ends of usages are computed.
Reply DrawReply(CGenerator& generator, const Options& options, const Kind& kind, const SYSTEMTIME& day,
                const CZone& zone);

} // namespace simulation
