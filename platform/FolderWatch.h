// Waiting until something changes in a folder. Nothing polls.
#pragma once

#include "platform/Types.h"

#include <cstdint>
#include <memory>

namespace platform {

// The watch of a folder; ended when the last copy goes.
class CFolderWatch;
using FolderWatchPtr = std::shared_ptr<CFolderWatch>;

// Watches a folder from now on. folder: without a separator at its end. It need not exist yet as long as the folder
// around it does; its appearance is a change then. Null, with the last error set, on failure: 2 or 3 when the folder
// around it is missing, too. Any thread.
//
// A change is: a file in the folder has been written and closed, or deleted, or renamed, or moved in or out; the folder
// itself has appeared. Reading is none, nor is what happens in a folder below. A system may tell of other changes as
// well, and of one change several times. A folder that is removed or renamed is a change, too, and one that appears in
// its place is watched; but on Windows nothing promises that, and the new folder needs a new watch.
FolderWatchPtr OpenFolderWatch(const CString& folder);

// Waits for a change, at most timeoutMs (INFINITE: without limit; 0: only looks). Changes since the last call that
// told of one, or since the watch was opened, end it at once; several may be told as one. WAIT_OBJECT_0 (a change),
// WAIT_TIMEOUT, or WAIT_FAILED with the last error set: 6 for null; with any other the watch is of no more use. One
// thread at a time.
DWORD WaitForFolderChange(const FolderWatchPtr& watch, DWORD timeoutMs);

// What the system's own waits take, for a program with an event loop: a file descriptor that becomes readable, or a
// waitable handle that becomes signalled, when WaitForFolderChange is worth calling, which clears it. It belongs to the
// watch and may be another one after each call of WaitForFolderChange. -1 for null, and where the system has none. The
// thread that waits.
std::intptr_t EventSourceOf(const FolderWatchPtr& watch);

} // namespace platform
