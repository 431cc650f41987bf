// What the verb show prints, for other verbs as well.
#pragma once

#include "ctl/DataFiles.h"

namespace ctl {

// Prints the table of the selected data files, or, of one company, that of their records; fits it to the terminal. The
// exit code: kExitFailure when a file is faulty. Throws CFailure when there is no data file at all.
int ShowTable(const Selection& selection, const Console& console);

} // namespace ctl
