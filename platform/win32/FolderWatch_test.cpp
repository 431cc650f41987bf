#include "platform/FolderWatch.h"

#include "testing/ScratchFolder.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

TEST(WindowsFolderWatch, EventSourceIsSignalledUntilTheChangeIsTaken)
{
    const testing_support::CScratchFolder scratch;
    const FolderWatchPtr watch = OpenFolderWatch(scratch.Path().wstring());
    ASSERT_NE(watch, nullptr);
    const auto isSignalled = [&](DWORD timeoutMs) {
        return ::WaitForSingleObject(reinterpret_cast<HANDLE>(EventSourceOf(watch)), timeoutMs) == WAIT_OBJECT_0;
    };
    EXPECT_FALSE(isSignalled(0));
    scratch.Write("file", "content");
    EXPECT_TRUE(isSignalled(20000));
    // One change may be told several times.
    for (int told = 0; isSignalled(50); ++told) {
        ASSERT_LT(told, 10);
        EXPECT_EQ(WaitForFolderChange(watch, 0), WAIT_OBJECT_0);
    }
}

} // namespace
