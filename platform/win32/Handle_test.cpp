#include "platform/win32/Handle.h"

#include <gtest/gtest.h>
#include <vector>

namespace platform::win32 {
namespace {

// Resources are numbers, -1 is none; closing notes the number and disturbs the last error.
std::vector<int> g_closed;
struct NotingTrait {
    using Type = int;
    static Type Invalid() { return -1; }
    static void Close(Type number)
    {
        g_closed.push_back(number);
        ::SetLastError(ERROR_INVALID_HANDLE);
    }
};
using CNumber = CUniqueResource<NotingTrait>;

class HandleTest : public testing::Test {
protected:
    void SetUp() override { g_closed.clear(); }
};

TEST_F(HandleTest, NoneIsNotClosed)
{
    {
        const CNumber none;
        EXPECT_FALSE(none);
        EXPECT_EQ(none.Get(), -1);
    }
    EXPECT_EQ(g_closed, std::vector<int>());
}

TEST_F(HandleTest, WhatIsHeldIsClosedOnce)
{
    {
        const CNumber number(0);
        EXPECT_TRUE(number) << "zero is a resource of this kind";
    }
    EXPECT_EQ(g_closed, std::vector<int>({0}));
}

TEST_F(HandleTest, MovingHandsOver)
{
    {
        CNumber first(1);
        const CNumber second(std::move(first));
        EXPECT_FALSE(first);
        EXPECT_EQ(second.Get(), 1);
        EXPECT_EQ(g_closed, std::vector<int>());
    }
    EXPECT_EQ(g_closed, std::vector<int>({1}));
}

TEST_F(HandleTest, MoveAssignmentClosesWhatWasHeld)
{
    CNumber number(1);
    number = CNumber(2);
    EXPECT_EQ(g_closed, std::vector<int>({1}));
    EXPECT_EQ(number.Get(), 2);
    number = CNumber();
    EXPECT_EQ(g_closed, std::vector<int>({1, 2}));
}

TEST_F(HandleTest, AssigningToItselfKeepsIt)
{
    CNumber number(1);
    CNumber& same = number;
    number = std::move(same);
    EXPECT_EQ(number.Get(), 1);
    EXPECT_EQ(g_closed, std::vector<int>());
}

TEST_F(HandleTest, ResetAndReceiveCloseWhatIsHeld)
{
    CNumber number(1);
    number.Reset(2);
    EXPECT_EQ(g_closed, std::vector<int>({1}));
    *number.Receive() = 3;
    EXPECT_EQ(g_closed, std::vector<int>({1, 2}));
    number.Reset();
    EXPECT_FALSE(number);
    EXPECT_EQ(g_closed, std::vector<int>({1, 2, 3}));
}

TEST_F(HandleTest, ClosingLeavesTheLastErrorAlone)
{
    CNumber number(1);
    ::SetLastError(ERROR_DISK_FULL);
    number.Reset();
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_DISK_FULL});
}

TEST_F(HandleTest, EachKindHasItsOwnNone)
{
    EXPECT_EQ(CKernelHandle().Get(), nullptr);
    EXPECT_EQ(CFileHandle().Get(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(CFileHandle(INVALID_HANDLE_VALUE));
    EXPECT_FALSE(CKernelHandle(nullptr));
}

} // namespace
} // namespace platform::win32
