// What ampora-reportd does with the companies' published figures: entries for the main function.
//
// A program for a system without live sources has the same functions. There HasLiveSources is false, and the others say
// so on standard error and give 1.
#pragma once

#include "server/Options.h"

namespace reportd {

// Whether this program was built with live sources. Any thread.
bool HasLiveSources();

// Each carries out its verb on the calling thread and gives the program's exit code: 0 for success, 1 for a failure, 2
// for settings that are not understood. It prints results to standard output, failures to standard error. One at a time
// and once in a process. SIGINT and SIGTERM end all of them in order: RunLive with 0, the others with 1.

// Serves the figures of the store and keeps polling the companies, until a signal.
int RunLive(const Options& options);
// Fetches the file of today from each enabled company once and prints a table of what it says; 1 when one of them did
// not answer as it should. Leaves the store alone.
int RunCheck(const Options& options);
// Appends the figures of options.files to the store; 1 when one file was refused.
int RunImport(const Options& options);
// Fetches the days from options.firstDay to options.lastDay and appends their figures to the store; 1 when a day that
// it asked for did not come.
int RunBackfill(const Options& options);

} // namespace reportd
