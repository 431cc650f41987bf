#include "platform/Thread.h"

#include "testing/FailingMemory.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <unistd.h>

namespace platform {
namespace {

using testing::AllOf;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

// In a process of its own, which runs the test again up to the statement in question.
class LinuxEndProcessDeathTest : public testing::Test {
protected:
    LinuxEndProcessDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// Something that happens when objects of static storage are destroyed.
void AnnounceDestruction()
{
    std::atexit([] { std::fputs("destroyed", stderr); });
}

// Keeps text in a buffer of the standard library.
void WriteBuffered(const char* text)
{
    static FILE* const output = ::fdopen(::dup(STDERR_FILENO), "w");
    std::fputs(text, output);
}

DWORD Return(void*) { return 0; }

DWORD Hang(void*)
{
    for (;;) {
        ::pause();
    }
}

TEST_F(LinuxEndProcessDeathTest, WithoutThreadsItIsAReturnFromMain)
{
    EXPECT_EXIT(
        {
            AnnounceDestruction();
            WriteBuffered("last words");
            EndProcess(3);
        },
        ExitedWithCode(3), AllOf(HasSubstr("destroyed"), HasSubstr("last words")));
}

TEST_F(LinuxEndProcessDeathTest, ThreadsThatHaveEndedDoNotCount)
{
    EXPECT_EXIT(
        {
            AnnounceDestruction();
            for (int i = 0; i < 20; ++i) {
                WaitForThread(StartThread(Return, nullptr), INFINITE);
            }
            EndProcess(4);
        },
        ExitedWithCode(4), "destroyed");
}

TEST_F(LinuxEndProcessDeathTest, AThreadThatHangsIsNotWaitedForAndSeesNothingDestroyed)
{
    EXPECT_EXIT(
        {
            AnnounceDestruction();
            WriteBuffered("last words");
            StartThread(Hang, nullptr);
            EndProcess(5);
        },
        ExitedWithCode(5), AllOf(HasSubstr("last words"), Not(HasSubstr("destroyed"))));
}

TEST(LinuxThread, AWaitForItsEndNeedsNoMemory)
{
    // Symptom: a program that was told to end when it had run out of memory ended by an exception in a destructor.
    const ThreadPtr thread = StartThread(Return, nullptr);
    const testing_support::CFailingMemory failing(1);
    const DWORD result = WaitForThread(thread, INFINITE);
    EXPECT_EQ(result, WAIT_OBJECT_0);
    EXPECT_FALSE(failing.HasFailed());
}

} // namespace
} // namespace platform
