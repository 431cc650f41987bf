// The copy of amporasrv that runs in this session: finding, starting and ending it.
#pragma once

#include "ctl/CommandLine.h"
#include "platform/Program.h"

namespace ctl {

// Whether a copy runs: one has its window.
bool CopyRuns();

// Tells the copy to end, as amporasrv /Exit does. Without waits returns at once, else when its process has ended. False
// when no copy runs. Throws CFailure when it cannot be told, or does not end within ten seconds.
bool EndCopy(bool waits);

// The path of amporasrv: beside this program, else in the folders of PATH. Throws CFailure when there is none.
CString FindCopyProgram();

// Starts the program of this path, unless a copy runs, and returns when it has its window. A copy that is just ending
// is waited for. Throws CFailure when it cannot be started, ends at once or is not ready within ten seconds.
void StartCopy(const CString& path);

// "amporasrv runs (process 1234)", or without the number when the system does not tell it.
CString RunsText();

} // namespace ctl
