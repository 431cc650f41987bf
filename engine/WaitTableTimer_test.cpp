#include "engine/WaitTableTimer.h"

#include "platform/Sync.h"
#include "testing/MachineTest.h"
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

TraceLine Line(const char* level, const char* operation, const char* message)
{
    return {level, std::string("CWaitTableTimer::") + operation, message};
}

const TraceLine kCanceled = Line("TRA", "Cancel", "Timer Canceled.");

BOOL StartTimer(CWaitTableTimer& timer, LONGLONG dueTime = -kMillisecond)
{
    LARGE_INTEGER due{};
    due.QuadPart = dueTime;
    return timer.Start(&due);
}

class WaitTableTimer : public testing_support::CMachineTest {
protected:
    // Waits alertably on an event that nobody sets.
    DWORD WaitAlertably(DWORD timeoutMs) { return platform::WaitForOne(m_event, timeoutMs, TRUE); }

    platform::WaitHandle m_event = platform::CreateNamedEvent(L"NobodySetsIt", nullptr);
    CWaitTableTimer m_timer; // not created yet
};

// Its timer is created; the trace is cleared after that.
class CreatedWaitTableTimer : public WaitTableTimer {
protected:
    CreatedWaitTableTimer()
    {
        EXPECT_TRUE(m_timer.Create());
        m_machine.ClearDebugLines();
    }
};

TEST_F(WaitTableTimer, SlotsAreDestructorThenOnTimerEvent)
{
    EXPECT_EQ(testing_support::SlotOf(&CWaitTableTimer::OnTimerEvent), 1);
}

TEST_F(CreatedWaitTableTimer, RelativeDueTimeEndsAnAlertableWait)
{
    ASSERT_TRUE(StartTimer(m_timer, -300 * kMillisecond));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 300);
    EXPECT_EQ(testing_support::CountTrace("TRA", "CWaitTableTimer::OnTimerEvent", "Enter"), 1);
    EXPECT_EQ(testing_support::CountTrace("TRA", "CWaitTableTimer::_TimerAPCProc", "Leave"), 1);
}

TEST_F(CreatedWaitTableTimer, AbsoluteDueTimeInThePastFallsDueAtOnce)
{
    ASSERT_TRUE(StartTimer(m_timer, 1));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
}

TEST_F(CreatedWaitTableTimer, FiresOnce)
{
    ASSERT_TRUE(StartTimer(m_timer));
    ASSERT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(CreatedWaitTableTimer, StartAgainReplacesTheDueTime)
{
    ASSERT_TRUE(StartTimer(m_timer, -10 * kMillisecond));
    ASSERT_TRUE(StartTimer(m_timer, -50 * kMillisecond));
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_EQ(m_machine.ElapsedMs(), 50);
}

TEST_F(WaitTableTimer, CreateAndStartAreTraced)
{
    m_timer.Create();
    StartTimer(m_timer);
    EXPECT_THAT(TraceMessages(),
                ElementsAre(Line("TRA", "Create", "Created Timer"), Line("TRA", "Start", "Timer Started")));
}

TEST_F(WaitTableTimer, FailedCreateIsTracedWithItsCode)
{
    m_machine.FailCall(Call::kMakeTimer, 1, 0x5AF);
    EXPECT_FALSE(m_timer.Create());
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Create", "Timer Create Fail.(0x000005AF)")));
}

TEST_F(CreatedWaitTableTimer, FailedStartIsTracedWithItsCode)
{
    m_machine.FailCall(Call::kArmTimer, 1, 0xC0DE);
    EXPECT_FALSE(StartTimer(m_timer));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Start", "Timer Start Fail.(0x0000C0DE)")));
}

TEST_F(WaitTableTimer, WithoutHandleStartFailsAndCancelSucceedsSilently)
{
    EXPECT_FALSE(StartTimer(m_timer));
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("ERR", "Start", "Timer Start Fail.(0x00000006)")));
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_timer.Cancel());
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(CreatedWaitTableTimer, CancelOfAnUnarmedTimerSucceeds)
{
    EXPECT_TRUE(m_timer.Cancel());
    EXPECT_THAT(TraceMessages(), ElementsAre(kCanceled));
}

TEST_F(CreatedWaitTableTimer, CancelStopsAnArmedTimer)
{
    StartTimer(m_timer);
    EXPECT_TRUE(m_timer.Cancel());
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(CreatedWaitTableTimer, FailedCancelIsAWarningAndReturnsTrue)
{
    m_machine.FailCall(Call::kDisarmTimer, 1, 6);
    EXPECT_TRUE(m_timer.Cancel());
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("WAR", "Cancel", "Timer Cancel Fail.(0x00000006)")));
}

TEST_F(CreatedWaitTableTimer, CreateTwiceClosesTheFirstWithACancel)
{
    StartTimer(m_timer);
    m_machine.ClearDebugLines();
    EXPECT_TRUE(m_timer.Create());
    EXPECT_THAT(TraceLines(), ElementsAre(Line("TRA", "Create", "Enter"), Line("TRA", "Close", "Enter"),
                                          Line("TRA", "Cancel", "Enter"), kCanceled, Line("TRA", "Cancel", "Leave"),
                                          Line("TRA", "Close", "Leave"), Line("TRA", "Create", "Created Timer"),
                                          Line("TRA", "Create", "Leave")));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
}

TEST_F(WaitTableTimer, DestructorCancelsAndCloses)
{
    {
        CWaitTableTimer timer;
        timer.Create();
        StartTimer(timer);
        m_machine.ClearDebugLines();
    }
    EXPECT_THAT(TraceMessages(), ElementsAre(kCanceled));
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    EXPECT_EQ(WaitAlertably(60000), WAIT_TIMEOUT);
}

TEST_F(CreatedWaitTableTimer, CloseTwiceDoesNothingMore)
{
    m_timer.Close();
    m_machine.ClearDebugLines();
    m_timer.Close();
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
    StartTimer(timer);
    m_machine.ClearDebugLines();
    EXPECT_EQ(WaitAlertably(INFINITE), WAIT_IO_COMPLETION);
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("WAR", "_TimerAPCProc", "Timer Proc Exception")));
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
    EXPECT_THAT(TraceMessages(), ElementsAre(Line("WAR", "_TimerAPCProc", "Param is not CWaitTableTimer Obj")));
}

TEST_F(CreatedWaitTableTimer, EveryScopeIsLeft)
{
    StartTimer(m_timer);
    WaitAlertably(INFINITE);
    m_timer.Close();
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

} // namespace
