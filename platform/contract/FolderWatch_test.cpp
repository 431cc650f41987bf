#include "platform/contract/FolderWatchTest.h"

using namespace platform;

namespace contract {
namespace {

TEST_F(FolderWatchContract, TimesOutWhileNothingChanges)
{
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_TIMEOUT);
    const std::int64_t begin = ClockMs();
    EXPECT_EQ(WaitForFolderChange(watch, 100), WAIT_TIMEOUT);
    EXPECT_GE(ClockMs() - begin, 100 - kEarlyMs);
}

TEST_F(FolderWatchContract, TellsOfEachChange)
{
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    const struct {
        const char* name;
        std::function<void()> change;
    } changes[] = {
        {"written in place", [&] { Write(m_path); }},
        {"new", [&] { Write(m_other); }},
        {"removed", [&] { RemovePath(m_other); }},
        {"renamed", [&] { RenameFile(m_path, m_other); }},
        {"written again", [&] { Write(m_other); }},
        {"moved out", [&] { RenameFile(m_other, ScratchFolder() + kPathSeparator + L"file"); }},
        {"moved in", [&] { RenameFile(ScratchFolder() + kPathSeparator + L"file", m_path); }},
    };
    for (const auto& [name, change] : changes) {
        SCOPED_TRACE(name);
        EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_TIMEOUT);
        change();
        ExpectChanged(watch);
    }
}

TEST_F(FolderWatchContract, EndsTheWaitOfAThread)
{
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    DWORD result = WAIT_FAILED;
    CRunningThread waiter([&] { result = WaitForFolderChange(watch, INFINITE); });
    LetPass(20);
    EXPECT_FALSE(waiter.HasEnded());
    Write(m_path);
    waiter.Join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST_F(FolderWatchContract, TellsSeveralWatches)
{
    const FolderWatchPtr first = OpenFolderWatch(m_folder);
    const FolderWatchPtr second = OpenFolderWatch(m_folder);
    Write(m_path);
    ExpectChanged(first);
    ExpectChanged(second);
}

TEST_F(FolderWatchContract, ReadingIsNoChange)
{
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    std::vector<BYTE> bytes;
    EXPECT_EQ(ReadWholeFile(m_path, 100, &bytes), 0U);
    EXPECT_EQ(WaitForFolderChange(watch, 50), WAIT_TIMEOUT);
}

TEST_F(FolderWatchContract, DoesNotLookIntoFoldersBelow)
{
    Make(m_folder + kPathSeparator + L"below");
    const FolderWatchPtr watch = OpenFolderWatch(m_folder);
    Write(m_folder + kPathSeparator + L"below" + kPathSeparator + L"file");
    EXPECT_EQ(WaitForFolderChange(watch, 50), WAIT_TIMEOUT);
}

TEST_F(FolderWatchContract, WaitsForAFolderThatIsNotThereYet)
{
    const CString folder = ScratchFolder() + kPathSeparator + L"later";
    const FolderWatchPtr watch = OpenFolderWatch(folder);
    ASSERT_NE(watch, nullptr);
    Make(ScratchFolder() + kPathSeparator + L"beside");
    EXPECT_EQ(WaitForFolderChange(watch, 50), WAIT_TIMEOUT);
    Make(folder);
    ExpectChanged(watch);
    Write(folder + kPathSeparator + L"file");
    ExpectChanged(watch);
}

TEST_F(FolderWatchContract, FailsWithoutTheFolderAroundIt)
{
    const CString folder = ScratchFolder() + kPathSeparator + L"missing" + kPathSeparator + L"folder";
    SetLastErrorCode(0);
    EXPECT_EQ(OpenFolderWatch(folder), nullptr);
    EXPECT_TRUE(LastErrorIs(ERROR_FILE_NOT_FOUND) || LastErrorIs(ERROR_PATH_NOT_FOUND));
}

TEST_F(FolderWatchContract, FailsForAFile)
{
    SetLastErrorCode(0);
    EXPECT_EQ(OpenFolderWatch(m_path), nullptr);
    EXPECT_FALSE(LastErrorIs(ERROR_SUCCESS));
}

TEST_F(FolderWatchContract, ANullWatchFails)
{
    SetLastErrorCode(0);
    EXPECT_EQ(WaitForFolderChange(nullptr, 0), WAIT_FAILED);
    EXPECT_TRUE(LastErrorIs(ERROR_INVALID_HANDLE));
    EXPECT_EQ(EventSourceOf(nullptr), -1);
}

} // namespace
} // namespace contract
