// The report API of the simulation, and what the program has to make of its answers.
#pragma once

#include "testing/HttpAnswer.h"
#include "testing/simulation/LocalTime.h"
#include "testing/simulation/Options.h"
#include "testing/World.h"

#include <optional>
#include <string>

namespace simulation {

using testing_support::kTestCompanies;
using testing_support::kTestKinds;
using testing_support::Record;
using testing_support::Records;
using testing_support::TestCompany;
using testing_support::TestKind;

// An answer and what it means.
struct Reply {
    testing_support::HttpAnswer answer = {};
    std::int64_t lastsMs = 0;            // until the program goes on
    std::optional<Records> records = {}; // empty: the download or the analysis fails
    const char* name = "report";         // for the log
};

// Draws the answer to one request. zone: in which the ends of usages are computed.
Reply DrawReply(CGenerator& generator, const Options& options, const TestKind& kind, const SYSTEMTIME& day,
                const CZone& zone);

} // namespace simulation
