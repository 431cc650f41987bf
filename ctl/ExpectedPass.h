// When the next pass is due, as far as that shows from outside of amporasrv.
#pragma once

#include "platform/Types.h"

#include <optional>

namespace ctl {

// Time values (platform/Clock.h); -1 for one that is not known.
struct PassTrace {
    std::int64_t now = -1;
    std::int64_t copyStart = -1;     // start of the running copy's process
    std::int64_t youngestWrite = -1; // of all data files
};

struct PassRange {
    std::int64_t from = 0; // time values; not before now
    std::int64_t to = 0;
};

// The time in which the next pass begins. amporasrv counts its interval from the end of a pass, which is taken to be
// the youngest write; a copy that has written nothing since its start counts from there, or, where updating was off
// then, waits for FixedClock o'clock. None when that time has passed: then passes fail, or a suspend has moved them.
std::optional<PassRange> ExpectPass(const PassTrace& trace);

} // namespace ctl
