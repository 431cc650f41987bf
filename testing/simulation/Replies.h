// The report API of the simulation, and what the program has to make of its answers.
#pragma once

#include "testing/HttpAnswer.h"
#include "testing/simulation/LocalTime.h"
#include "testing/simulation/Options.h"
#include "testing/World.h"

#include <optional>
#include <string>

namespace simulation {

using Company = testing_support::TestCompany;
using Kind = testing_support::TestKind;
using testing_support::Record;
using testing_support::Records;
inline constexpr const auto& kCompanies = testing_support::kTestCompanies;
inline constexpr const auto& kKinds = testing_support::kTestKinds;

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
