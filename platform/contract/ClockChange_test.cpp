// What a jump of the wall clock does and does not. Only for backends whose clock can be moved.
#include "platform/contract/ContractTest.h"
#include "platform/Timer.h"

using namespace platform;

namespace contract {
namespace {

class ClockChangeContract : public ContractTest {};

constexpr LONGLONG kUnitsPerMs = 10000;
constexpr LONGLONG kEpochUnits = 116444736000000000; // 1970-01-01 on the FILETIME scale

void CountRun(void* count, DWORD, DWORD) { ++*static_cast<int*>(count); }

TEST_F(ClockChangeContract, BothClocksFollow)
{
    for (const std::int64_t jump : {3600, -7200}) {
        const std::int64_t startMs = ClockMs();
        const std::int64_t start = ReadTime();
        MoveClock(jump);
        EXPECT_EQ(ReadTime() - start, jump);
        EXPECT_EQ(ClockMs() - startMs, jump * 1000);
    }
}

TEST_F(ClockChangeContract, AnAbsoluteTimerIsMoved)
{
    const WaitHandle never = CreateNamedEvent(ObjectName(L"Never").c_str(), nullptr);
    const TimerPtr timer = MakeTimer();
    int runs = 0;
    LARGE_INTEGER dueTime = {};
    dueTime.QuadPart = kEpochUnits + (ReadTime() + 3600) * 1000 * kUnitsPerMs;
    ASSERT_TRUE(ArmTimer(timer, &dueTime, CountRun, &runs));
    EXPECT_EQ(WaitForOne(never, 20, TRUE), WAIT_TIMEOUT);
    MoveClock(3600);
    EXPECT_EQ(WaitForOne(never, 20, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(runs, 1);
}

TEST_F(ClockChangeContract, ARelativeTimerIsNotMoved)
{
    const WaitHandle never = CreateNamedEvent(ObjectName(L"Never").c_str(), nullptr);
    const TimerPtr timer = MakeTimer();
    int runs = 0;
    LARGE_INTEGER dueTime = {};
    dueTime.QuadPart = -100 * kUnitsPerMs;
    ASSERT_TRUE(ArmTimer(timer, &dueTime, CountRun, &runs));
    MoveClock(3600);
    EXPECT_EQ(WaitForOne(never, 50, TRUE), WAIT_TIMEOUT);
    MoveClock(-7200);
    EXPECT_EQ(WaitForOne(never, 100, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(runs, 1);
}

} // namespace
} // namespace contract
