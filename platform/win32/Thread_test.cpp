#include "platform/Thread.h"

#include <gtest/gtest.h>
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

} // namespace
} // namespace platform
