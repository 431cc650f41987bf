// What a backend supplies so that the contract suite can drive it: a scratch environment, time that passes, another
// process, and a look at what the backend left behind. The folder of each backend beside this header has these
// functions in Fixture.cpp.
//
// Unless said otherwise a function is called on the test's main thread, between SetUp and TearDown, and reports a
// failure of its own with ADD_FAILURE().
#pragma once

#include "platform/Settings.h"
#include "platform/Types.h"

#include <cstdint>

namespace contract {

// Makes the scratch environment of one test: a settings store of its own, empty; empty folders for session and lock
// objects, where the backend has such; no common application-data folder yet, where the backend can choose it; a fresh
// simulated machine. Nothing of it is seen by other processes but those of this fixture.
void SetUp();
// Takes the environment away again, with whatever the test left in it. Ends the other process.
void TearDown();

// Lets at least this many milliseconds pass, not alertably: sleeps, or moves the simulated clock. Other threads run
// meanwhile. Any thread.
void LetPass(unsigned timeMs);
// Moves the wall clock by this many seconds, without time passing. Only on the simulated machine.
void MoveClock(std::int64_t seconds);

// Stores one value of the settings store, replacing an earlier one; bytes and type exactly as given. keyPath: below the
// root, with backslashes.
void PutSetting(platform::Hive hive, const CString& keyPath, const CString& valueName,
                const platform::SettingsValue& value);
// Removes one value; its key stays.
void RemoveSetting(platform::Hive hive, const CString& keyPath, const CString& valueName);

// Starts to collect what this process writes to the debugger output. At most once a test.
void WatchDebugOutput();
// Everything collected so far, in order, once all of it has arrived. Characters that the channel cannot carry are lost
// or replaced; ASCII never is.
CString DebugOutput();

// Another process of the session takes a free mutex, creating it when there is none; gives it back; ends without giving
// it back. What it took is held until one of the latter two.
void OtherProcessAcquiresMutex(const CString& name);
void OtherProcessReleasesMutex(const CString& name);
void OtherProcessAbandonsMutex(const CString& name);
// Another process of the session sets an event. FALSE when nobody has an event of this name.
BOOL OtherProcessSetsEvent(const CString& name);
// Whether everybody may use the mutex or event of this name that this process has made.
bool IsNamedObjectOpenToAll(const CString& name);

// The name of a program that FindProgram finds and that ends at once when nothing is sent to its standard input.
inline constexpr wchar_t kShortProgram[] = L"test_peer";

// Whether another process of the session finds a window of this class.
bool OtherProcessFindsWindow(const CString& className);
// Another process of the session finds a window of this class and posts a message to it. FALSE when it finds none.
BOOL OtherProcessPostsToWindow(const CString& className, UINT message, WPARAM wParam, LPARAM lParam);

// An existing, empty folder that the test may fill, without a separator at its end.
CString ScratchFolder();
// What GetCommonAppDataFolder has to answer in this environment.
CString CommonAppDataFolder();
// Makes the common application-data folder unknown. Not on Windows.
void ForgetCommonAppDataFolder();
// Opens an existing file for reading, as a reader in another process does; lets go of it. At most one file at a time.
void HoldFileOpen(const CString& path);
void LetGoOfFile(const CString& path);
// Removes a file or an empty folder; gives a file another name. Both must succeed.
void RemovePath(const CString& path);
void RenameFile(const CString& path, const CString& newPath);
// Whether everybody may read and write this existing file or folder.
bool IsPathOpenToAll(const CString& path);
// Makes writes fail beyond this many bytes in one file. Not on Windows.
void LimitFileSize(std::size_t bytes);

} // namespace contract
