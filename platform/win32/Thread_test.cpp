#include "platform/Apartment.h"
#include "platform/Thread.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <objbase.h>

namespace platform {
namespace {

// The kind of the calling thread's apartment; -1 for none.
int ApartmentKind()
{
    APTTYPE kind = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
    return SUCCEEDED(::CoGetApartmentType(&kind, &qualifier)) ? kind : -1;
}

struct Kinds {
    int before = 0;
    int inside = 0;
    int nested = 0;
    int after = 0;
};

TEST(Apartment, IsSingleThreadedFromEnterToLeave)
{
    Kinds kinds;
    const ThreadPtr thread = StartThread(
        [](void* argument) -> DWORD {
            auto* const seen = static_cast<Kinds*>(argument);
            seen->before = ApartmentKind();
            EnterApartment();
            seen->inside = ApartmentKind();
            EnterApartment();
            LeaveApartment();
            seen->nested = ApartmentKind();
            LeaveApartment();
            seen->after = ApartmentKind();
            return 0;
        },
        &kinds);
    ASSERT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(kinds.before, -1);
    // The first single-threaded apartment of a process is its main one.
    EXPECT_EQ(kinds.inside, APTTYPE_MAINSTA);
    EXPECT_EQ(kinds.nested, APTTYPE_MAINSTA);
    EXPECT_EQ(kinds.after, -1);
}

using ::testing::AllOf;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

// Writes a line that stays in the C library's buffer, and another one when objects of static storage are destroyed.
void WriteNowAndAtExit()
{
    static_cast<void>(std::setvbuf(stderr, nullptr, _IOFBF, 4096));
    std::atexit([] { std::fputs("destroyed\n", stderr); });
    std::fputs("written\n", stderr);
}

// Does not end in the process's life.
DWORD Hang(void*)
{
    ::Sleep(INFINITE);
    return 0;
}

TEST(EndProcess, WithoutOtherThreadsEndsAsMainDoes)
{
    EXPECT_EXIT(
        {
            WriteNowAndAtExit();
            WaitForThread(StartThread([](void*) -> DWORD { return 3; }, nullptr), INFINITE);
            EndProcess(7);
        },
        ExitedWithCode(7), AllOf(HasSubstr("written"), HasSubstr("destroyed")));
}

TEST(EndProcess, DoesNotWaitForAThreadThatHangs)
{
    EXPECT_EXIT(
        {
            WriteNowAndAtExit();
            StartThread(Hang, nullptr);
            EndProcess(7);
        },
        ExitedWithCode(7), AllOf(HasSubstr("written"), Not(HasSubstr("destroyed"))));
}

} // namespace
} // namespace platform
