// What the verb chart prints, for other verbs as well.
#pragma once

#include "ctl/DataFiles.h"

namespace ctl {

// Prints today's chart of the selection's company, which it must name, for the terminal. The exit code: kExitFailure
// when a file is faulty. Throws CFailure when there is nothing to draw.
int ShowChart(const Selection& selection, const Console& console);

} // namespace ctl
