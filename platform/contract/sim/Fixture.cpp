// The simulated machine as the contract suite drives it.
#include "platform/contract/Fixture.h"

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/portable/FileTime.h"
#include "platform/sim/Machine.h"

#include <gtest/gtest.h>
#include <numeric>
#include <optional>

using namespace platform;

namespace contract {

namespace {

std::optional<sim::CMachine> g_machine;

void SetHeldOpen(const CString& path, bool heldOpen)
{
    sim::SimFile file = *g_machine->FindFile(path);
    file.heldOpen = heldOpen;
    g_machine->PutFile(path, file);
}

} // namespace

void SetUp()
{
    g_machine.emplace();
    g_machine->PutProgram(kShortProgram, [] {
        g_machine->RunFor(10);
        return 0;
    });
}

void TearDown() { g_machine.reset(); }

void LetPass(unsigned timeMs) { g_machine->RunFor(timeMs); }

void MoveClock(std::int64_t seconds)
{
    SYSTEMTIME local = {};
    std::uint64_t count = 0;
    ReadLocalClock(&local);
    EXPECT_TRUE(portable::CalendarToCount(local, &count));
    EXPECT_TRUE(
        portable::CountToCalendar(count + static_cast<std::uint64_t>(seconds * portable::kUnitsPerSecond), &local));
    g_machine->SetLocalClock(local);
}

void PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value)
{
    g_machine->PutSetting(hive, keyPath, valueName, value);
}

void RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName)
{
    g_machine->RemoveSetting(hive, keyPath, valueName);
}

void WatchDebugOutput() { g_machine->ClearDebugLines(); }

CString DebugOutput()
{
    const std::vector<CString> lines = g_machine->DebugLines();
    return std::accumulate(lines.begin(), lines.end(), CString());
}

void OtherProcessAcquiresMutex(const CString& name) { g_machine->OtherProcessAcquiresMutex(name); }

void OtherProcessReleasesMutex(const CString& name) { g_machine->OtherProcessReleasesMutex(name); }

void OtherProcessAbandonsMutex(const CString& name) { g_machine->OtherProcessAbandonsMutex(name); }

BOOL OtherProcessSetsEvent(const CString& name) { return g_machine->OtherProcessSetsEvent(name); }

bool IsNamedObjectOpenToAll(const CString& name) { return g_machine->NamedObjectHasNullDacl(name); }

bool OtherProcessFindsWindow(const CString& className) { return g_machine->WindowExists(className); }

BOOL OtherProcessPostsToWindow(const CString& className, UINT message, WPARAM wParam, LPARAM lParam)
{
    return g_machine->OtherProcessPosts(className, message, wParam, lParam);
}

CString ScratchFolder()
{
    const CString folder = CString(L"C:") + kPathSeparator + L"scratch";
    g_machine->PutFile(folder, {.isFolder = true});
    return folder;
}

CString CommonAppDataFolder() { return CString(L"C:") + kPathSeparator + L"ProgramData"; }

void ForgetCommonAppDataFolder() { g_machine->FailEvery(sim::Call::kGetCommonAppDataFolder, ERROR_FILE_NOT_FOUND); }

void HoldFileOpen(const CString& path) { SetHeldOpen(path, true); }

void LetGoOfFile(const CString& path) { SetHeldOpen(path, false); }

void RemovePath(const CString& path) { g_machine->RemoveFile(path); }

void RenameFile(const CString& path, const CString& newPath)
{
    const sim::SimFile file = *g_machine->FindFile(path);
    g_machine->RemoveFile(path);
    g_machine->PutFile(newPath, file);
}

bool IsPathOpenToAll(const CString& path) { return g_machine->FindFile(path)->nullDacl; }

void LimitFileSize(std::size_t bytes) { g_machine->SetFreeBytes(bytes); }

} // namespace contract
