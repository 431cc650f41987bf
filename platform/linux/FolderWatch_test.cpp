#include "platform/FolderWatch.h"

#include "platform/LastError.h"
#include "platform/Text.h"
#include "testing/ScratchFolder.h"

#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>

using namespace platform;

namespace {

bool IsReadable(const FolderWatchPtr& watch)
{
    pollfd descriptor = {static_cast<int>(EventSourceOf(watch)), POLLIN, 0};
    return ::poll(&descriptor, 1, 0) == 1 && descriptor.revents == POLLIN;
}

TEST(LinuxFolderWatch, EventSourceIsReadableUntilTheChangeIsTaken)
{
    const testing_support::CScratchFolder scratch;
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8(scratch.Path().string()));
    ASSERT_NE(watch, nullptr);
    EXPECT_FALSE(IsReadable(watch));
    scratch.Write("file", "content");
    EXPECT_TRUE(IsReadable(watch));
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
    EXPECT_FALSE(IsReadable(watch));
}

TEST(LinuxFolderWatch, AFileThatIsBeingMadeIsNoChangeUntilItIsClosed)
{
    const testing_support::CScratchFolder scratch;
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8(scratch.Path().string()));
    std::ofstream file(scratch.Path() / "file");
    file << "content" << std::flush;
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_TIMEOUT);
    file.close();
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
}

TEST(LinuxFolderWatch, FarMoreChangesThanTheSystemKeepsAreOne)
{
    const testing_support::CScratchFolder scratch(testing_support::FolderInMemory());
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8(scratch.Path().string()));
    // Of two files in turn, since the system joins equal changes itself.
    for (int i = 0; i < 20000; ++i) {
        std::ofstream(scratch.Path() / (i % 2 == 0 ? "even" : "odd"));
    }
    unsigned told = 0;
    while (WaitForFolderChange(watch, 0) == WAIT_OBJECT_0) {
        ASSERT_LE(++told, 10U);
    }
    EXPECT_GE(told, 1U);
    scratch.Write("file", "content");
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
}

TEST(LinuxFolderWatch, EventSourceIsReadableWhenTheFolderIsMovedIntoItsPlace)
{
    const testing_support::CScratchFolder scratch;
    std::filesystem::create_directory(scratch.Path() / "other");
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8((scratch.Path() / "folder").string()));
    ASSERT_NE(watch, nullptr);
    EXPECT_FALSE(IsReadable(watch));
    std::filesystem::rename(scratch.Path() / "other", scratch.Path() / "folder");
    EXPECT_TRUE(IsReadable(watch));
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
}

TEST(LinuxFolderWatch, AFolderThatWasMovedAwayIsNotWatchedAnyMore)
{
    const testing_support::CScratchFolder scratch;
    std::filesystem::create_directory(scratch.Path() / "folder");
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8((scratch.Path() / "folder").string()));
    std::filesystem::rename(scratch.Path() / "folder", scratch.Path() / "other");
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
    scratch.Write("other/file", "content");
    EXPECT_FALSE(IsReadable(watch));
}

TEST(LinuxFolderWatch, FailsWhenTheFolderAroundItHasGone)
{
    const testing_support::CScratchFolder scratch;
    const std::filesystem::path around = scratch.Path() / "around";
    std::filesystem::create_directories(around / "folder");
    const FolderWatchPtr watch = OpenFolderWatch(DecodeUtf8((around / "folder").string()));
    ASSERT_NE(watch, nullptr);
    std::filesystem::remove_all(around);
    SetLastErrorCode(ERROR_SUCCESS);
    EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastErrorCode(), ERROR_FILE_NOT_FOUND);
}

} // namespace
