#include "engine/WaitTableTimer.h"

#include "config/TraceLog.h"
#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using platform::sim::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr LONGLONG kMillisecond = 10000; // in 100-nanosecond units

LARGE_INTEGER Due(LONGLONG value)
{
    LARGE_INTEGER due{};
    due.QuadPart = value;
    return due;
}

class WaitTableTimer : public testing::Test {
protected:
    WaitTableTimer() { g_dwLogLevel = kTraceErr | kTraceWar | kTraceTra | kTraceScope; }
    ~WaitTableTimer() override { g_dwLogLevel = 0; }

    // Waits alertably on an event that nobody sets.
    DWORD WaitAlertably(DWORD timeoutMs) { return platform::WaitForOne(m_event, timeoutMs, TRUE); }

    platform::sim::CMachine m_machine;
    platform::WaitHandle m_event = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
};

TEST_F(WaitTableTimer, SlotsAreDestructorThenOnTimerEvent)
{
    EXPECT_EQ(testing_support::SlotOf(&CWaitTableTimer::OnTimerEvent), 1);
}

TEST_F(WaitTableTimer, RelativeDueTimeEndsAnAlertableWait)
{
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    const LARGE_INTEGER due = Due(-300 * kMillisecond);
    ASSERT_TRUE(timer.Start(&due));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 300);
    EXPECT_EQ(testing_support::CountTrace("TRA", "CWaitTableTimer::OnTimerEvent", "Enter"), 1);
    EXPECT_EQ(testing_support::CountTrace("TRA", "CWaitTableTimer::_TimerAPCProc", "Leave"), 1);
}

TEST_F(WaitTableTimer, AbsoluteDueTimeInThePastFallsDueAtOnce)
{
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    const LARGE_INTEGER due = Due(1);
    ASSERT_TRUE(timer.Start(&due));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
}

TEST_F(WaitTableTimer, FiresOnce)
{
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    const LARGE_INTEGER due = Due(-kMillisecond);
    ASSERT_TRUE(timer.Start(&due));
    ASSERT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(WaitTableTimer, StartAgainReplacesTheDueTime)
{
    CWaitTableTimer timer;
    ASSERT_TRUE(timer.Create());
    const LARGE_INTEGER first = Due(-10 * kMillisecond);
    const LARGE_INTEGER second = Due(-50 * kMillisecond);
    ASSERT_TRUE(timer.Start(&first));
    ASSERT_TRUE(timer.Start(&second));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 50);
}

TEST_F(WaitTableTimer, CreateAndStartAreTraced)
{
    CWaitTableTimer timer;
    timer.Create();
    const LARGE_INTEGER due = Due(-kMillisecond);
    timer.Start(&due);
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"TRA", "CWaitTableTimer::Create", "Created Timer"},
                                             TraceLine{"TRA", "CWaitTableTimer::Start", "Timer Started"}));
}

TEST_F(WaitTableTimer, FailedCreateIsTracedWithItsCode)
{
    m_machine.FailCall(Call::kMakeTimer, 1, 0x5AF);
    CWaitTableTimer timer;
    EXPECT_FALSE(timer.Create());
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"ERR", "CWaitTableTimer::Create", "Timer Create Fail.(0x000005AF)"}));
}

TEST_F(WaitTableTimer, FailedStartIsTracedWithItsCode)
{
    CWaitTableTimer timer;
    timer.Create();
    m_machine.ClearDebugLines();
    m_machine.FailCall(Call::kArmTimer, 1, 0xC0DE);
    const LARGE_INTEGER due = Due(-kMillisecond);
    EXPECT_FALSE(timer.Start(&due));
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"ERR", "CWaitTableTimer::Start", "Timer Start Fail.(0x0000C0DE)"}));
}

TEST_F(WaitTableTimer, StartWithoutHandleFailsWithInvalidHandle)
{
    CWaitTableTimer timer;
    const LARGE_INTEGER due = Due(-kMillisecond);
    EXPECT_FALSE(timer.Start(&due));
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"ERR", "CWaitTableTimer::Start", "Timer Start Fail.(0x00000006)"}));
}

TEST_F(WaitTableTimer, CancelWithoutHandleReturnsTrueSilently)
{
    CWaitTableTimer timer;
    EXPECT_TRUE(timer.Cancel());
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(WaitTableTimer, CancelOfAnUnarmedTimerSucceeds)
{
    CWaitTableTimer timer;
    timer.Create();
    m_machine.ClearDebugLines();
    EXPECT_TRUE(timer.Cancel());
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."}));
}

TEST_F(WaitTableTimer, CancelStopsAnArmedTimer)
{
    CWaitTableTimer timer;
    timer.Create();
    const LARGE_INTEGER due = Due(-kMillisecond);
    timer.Start(&due);
    EXPECT_TRUE(timer.Cancel());
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(WaitTableTimer, FailedCancelIsAWarningAndReturnsTrue)
{
    CWaitTableTimer timer;
    timer.Create();
    m_machine.ClearDebugLines();
    m_machine.FailCall(Call::kDisarmTimer, 1, 6);
    EXPECT_TRUE(timer.Cancel());
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"WAR", "CWaitTableTimer::Cancel", "Timer Cancel Fail.(0x00000006)"}));
}

TEST_F(WaitTableTimer, CreateTwiceClosesTheFirstWithACancel)
{
    CWaitTableTimer timer;
    timer.Create();
    const LARGE_INTEGER due = Due(-kMillisecond);
    timer.Start(&due);
    m_machine.ClearDebugLines();
    EXPECT_TRUE(timer.Create());
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", "CWaitTableTimer::Create", "Enter"},
                                          TraceLine{"TRA", "CWaitTableTimer::Close", "Enter"},
                                          TraceLine{"TRA", "CWaitTableTimer::Cancel", "Enter"},
                                          TraceLine{"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."},
                                          TraceLine{"TRA", "CWaitTableTimer::Cancel", "Leave"},
                                          TraceLine{"TRA", "CWaitTableTimer::Close", "Leave"},
                                          TraceLine{"TRA", "CWaitTableTimer::Create", "Created Timer"},
                                          TraceLine{"TRA", "CWaitTableTimer::Create", "Leave"}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
}

TEST_F(WaitTableTimer, DestructorCancelsAndCloses)
{
    {
        CWaitTableTimer timer;
        timer.Create();
        const LARGE_INTEGER due = Due(-kMillisecond);
        timer.Start(&due);
        m_machine.ClearDebugLines();
    }
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(WaitTableTimer, CloseTwiceDoesNothingMore)
{
    CWaitTableTimer timer;
    timer.Create();
    timer.Close();
    m_machine.ClearDebugLines();
    timer.Close();
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

// A timer whose event handler fails.
class ThrowingTimer : public CWaitTableTimer {
public:
    void OnTimerEvent(DWORD /*timerLowValue*/, DWORD /*timerHighValue*/) override
    {
        throw std::runtime_error("handler fails");
    }
};

TEST_F(WaitTableTimer, ExceptionOfTheHandlerIsTracedAndStays)
{
    ThrowingTimer timer;
    timer.Create();
    const LARGE_INTEGER due = Due(-kMillisecond);
    timer.Start(&due);
    m_machine.ClearDebugLines();
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"WAR", "CWaitTableTimer::_TimerAPCProc", "Timer Proc Exception"}));
}

// Opens the routine to a call with any argument.
class OpenTimer : public CWaitTableTimer {
public:
    using CWaitTableTimer::_TimerAPCProc;
};

// A timer that notes what its event handler gets.
class RecordingTimer : public OpenTimer {
public:
    void OnTimerEvent(DWORD timerLowValue, DWORD timerHighValue) override
    {
        events.emplace_back(timerLowValue, timerHighValue);
    }
    std::vector<std::pair<DWORD, DWORD>> events;
};

TEST_F(WaitTableTimer, RoutineHandsBothHalvesToTheHandler)
{
    RecordingTimer timer;
    CWaitTableTimer* const argument = &timer;
    OpenTimer::_TimerAPCProc(argument, 1, 2);
    EXPECT_THAT(timer.events, ElementsAre(Pair(1U, 2U)));
}

TEST_F(WaitTableTimer, RoutineWithoutItsObjectIsAWarning)
{
    OpenTimer::_TimerAPCProc(nullptr, 0, 0);
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"WAR", "CWaitTableTimer::_TimerAPCProc", "Param is not CWaitTableTimer Obj"}));
}

TEST_F(WaitTableTimer, EveryScopeIsLeft)
{
    {
        CWaitTableTimer timer;
        timer.Create();
        const LARGE_INTEGER due = Due(-kMillisecond);
        timer.Start(&due);
        WaitAlertably(INFINITE);
    }
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

} // namespace
