// One look whether the report API answers.
#pragma once

#include "format/Catalogue.h"
#include "platform/Types.h"

namespace ctl {

enum class ProbeResult {
    kReport,       // a report came
    kNoData,       // status 503: the server has no data for the day
    kErrorStatus,  // another status of 400 or more
    kNoReport,     // an answer that is no report
    kRefused,      // nobody listens there, or nothing leads there
    kNameUnknown,  // the host's name is not known
    kTimedOut,     // no answer in time
    kNoAnswer,     // the connection ended before an answer
    kHostUnusable, // the setting ApiHost is no host or host:port
};

struct Probe {
    ProbeResult result = ProbeResult::kNoAnswer;
    DWORD status = 0; // of the answer; 0 when there was none
};

// Asks for one report as amporasrv does, of this local day, and waits at most five seconds to connect and for each
// further byte. Throws std::bad_alloc only.
Probe ProbeReportApi(const catalogue::Company& company, const catalogue::Kind& kind, const SYSTEMTIME& day);

// Whether amporasrv would try: not while the machine is off line.
bool IsOnLine();

} // namespace ctl
