#include "server/live/StopSignal.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>

namespace reportd {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kLimit{30};

TEST(StopSignal, NotesBothSignalsAndCallsBackOnce)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        std::atomic<int> calls{0};
        {
            CStopSignal stop([&] { ++calls; });
            EXPECT_FALSE(stop.HasCome());
            ASSERT_EQ(std::raise(signal), 0);
            EXPECT_TRUE(stop.WaitFor(kLimit));
            EXPECT_TRUE(stop.HasCome());
            ASSERT_EQ(std::raise(signal), 0); // a second one must not end the process
        }
        EXPECT_EQ(calls, 1);
    }
}

TEST(StopSignal, WaitingEndsWithoutASignalToo)
{
    CStopSignal stop({});
    EXPECT_FALSE(stop.WaitFor(milliseconds(1)));
    EXPECT_FALSE(stop.HasCome());
}

TEST(StopSignal, AWaitEndsWhenTheSignalComes)
{
    CStopSignal stop({});
    std::raise(SIGTERM);
    EXPECT_TRUE(stop.WaitFor(std::chrono::hours(1)));
}

} // namespace
} // namespace reportd
