// The program behind its entry.
#pragma once

// Runs the program: one update pass on the worker thread when updating is enabled, then the end. The process's exit
// code: 0, or 1 when the worker cannot be started. Only once in a process, from its first thread.
int RunAmporaSrv();
