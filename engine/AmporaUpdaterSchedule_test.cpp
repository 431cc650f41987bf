#include "engine/AmporaUpdater.h"

#include "testing/UpdaterTest.h"

#include <optional>
#include <string>
#include <vector>

namespace {

using namespace testing_support;
using platform::sim::Call;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr char kCreateName[] = "CWaitTableTimer::Create";
constexpr char kStartName[] = "CWaitTableTimer::Start";
constexpr char kCancelName[] = "CWaitTableTimer::Cancel";

constexpr std::int64_t kSecondMs = 1000;
constexpr std::int64_t kMinuteMs = 60 * kSecondMs;
constexpr std::int64_t kHourMs = 60 * kMinuteMs;

// What arms the timer for an interval of exactly 30 minutes.
const std::vector<TraceLine> kIntervalArmed = {{"TRA", kIntervalName, "Interval:30min, Rand:0min - 0min"},
                                               {"TRA", kIntervalName, "Set Interval:30min"},
                                               {"TRA", kStartName, "Timer Started"},
                                               {"TRA", kThreadName, "Next UpdateTimer Started"}};
const std::vector<TraceLine> kTimerCreated = {{"TRA", kCreateName, "Created Timer"},
                                              {"TRA", kThreadName, "Created Timer"}};
const std::vector<TraceLine> kTimerClosed = {{"TRA", kCancelName, "Timer Canceled."}};

class UpdaterSchedule : public CUpdaterTest {
protected:
    UpdaterSchedule()
    {
        Put(L"IntervalMin", 0);
        Put(L"IntervalMax", 0);
    }

    void SetClock(WORD hour, WORD minute = 0) { m_machine.SetLocalClock({2012, 7, 1, 2, hour, minute, 0, 0}); }

    // From now on, the worker's exit flag is set during each such call.
    void ExitDuring(Call call)
    {
        m_machine.SetFaultPlan([this, call](Call made) -> std::optional<DWORD> {
            if (made == call) {
                m_updater.SetExit();
            }
            return std::nullopt;
        });
    }

    // The lines of the schedule since the last call: those of the thread's procedure and of the timer.
    std::vector<TraceLine> ScheduleLines()
    {
        std::vector<TraceLine> lines = TraceMessages();
        std::erase_if(lines, [](const TraceLine& line) {
            return line.function != kThreadName && line.function != kIntervalName &&
                   !line.function.starts_with("CWaitTableTimer::");
        });
        m_machine.ClearDebugLines();
        return lines;
    }

    // Lists one after the other.
    static std::vector<TraceLine> Lines(std::initializer_list<std::vector<TraceLine>> parts)
    {
        std::vector<TraceLine> lines;
        for (const std::vector<TraceLine>& part : parts) {
            lines.insert(lines.end(), part.begin(), part.end());
        }
        return lines;
    }
    static TraceLine Thread(const std::string& message, const std::string& level = "TRA")
    {
        return {level, kThreadName, message};
    }
};

// --- The interval ---------------------------------------------------------------------------------------------------

TEST_F(UpdaterSchedule, AfterTheFirstPassTheIntervalFollows)
{
    StartEnabled();
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Flag ON"), Thread("Updated")}, kTimerCreated, kIntervalArmed}));
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    m_machine.RunFor(30 * kMinuteMs - 1);
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    EXPECT_THAT(ScheduleLines(), IsEmpty());
    m_machine.RunFor(1);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Update Flag ON")}, kIntervalArmed}));
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, TheIntervalStartsAtTheEndOfAPass)
{
    std::vector<std::int64_t> times;
    m_machine.SetHttpHandler([&](const HttpExchange&) {
        times.push_back(m_machine.ElapsedMs());
        return HttpAnswer{.status = 404, .latencyMs = 1000};
    });
    StartEnabled();
    m_machine.RunFor(2 * kHourMs);
    ASSERT_GE(times.size(), 2 * kRequestsOfAPass);
    EXPECT_EQ(times[kRequestsOfAPass - 1], 41 * kSecondMs);
    EXPECT_EQ(times[kRequestsOfAPass], 42 * kSecondMs + 30 * kMinuteMs);
}

TEST_F(UpdaterSchedule, TheIntervalIsReadAnewForEveryPass)
{
    StartEnabled();
    Put(L"Interval", 5);
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
    m_machine.RunFor(5 * kMinuteMs);
    EXPECT_EQ(Requests(), 3 * kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, AnIntervalThatCannotBeArmedLeavesOnlyTheEvent)
{
    m_machine.FailCall(Call::kArmTimer, 1, 8);
    StartEnabled();
    EXPECT_THAT(ScheduleLines(), IsSupersetOf({TraceLine{"ERR", kStartName, "Timer Start Fail.(0x00000008)"},
                                               Thread("Next UpdateTimer Start Fail", "ERR")}));
    m_machine.RunFor(24 * kHourMs);
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    RequestUpdate();
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
    EXPECT_EQ(m_machine.ArmedTimerCount(), 1U);
}

TEST_F(UpdaterSchedule, WithoutTimerOnlyTheEventMakesPasses)
{
    m_machine.FailCall(Call::kMakeTimer, 1, 8);
    StartEnabled();
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Flag ON"), Thread("Updated"),
                                       TraceLine{"ERR", kCreateName, "Timer Create Fail.(0x00000008)"},
                                       Thread("Timer Create Fail", "ERR"), kIntervalArmed[0], kIntervalArmed[1],
                                       TraceLine{"ERR", kStartName, "Timer Start Fail.(0x00000006)"},
                                       Thread("Next UpdateTimer Start Fail", "ERR")}}));
    m_machine.RunFor(24 * kHourMs);
    RequestUpdate();
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, AFailedPassChangesNothingInTheSchedule)
{
    StartEnabled();
    m_updater.failsUpdates = true;
    ScheduleLines();
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(ScheduleLines(),
              Lines({{Thread("Update Timer Over"), Thread("Update Flag ON"), Thread("Update Fail.", "WAR")},
                     kIntervalArmed}));
}

TEST_F(UpdaterSchedule, AFailedWaitEndsTheWorkerSilently)
{
    m_machine.FailCall(Call::kWaitForOne, 1, 6);
    StartEnabled();
    EXPECT_EQ(ScheduleLines(),
              Lines({{Thread("Update Flag ON"), Thread("Updated")}, kTimerCreated, kIntervalArmed, kTimerClosed}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
}

// --- The master switch ----------------------------------------------------------------------------------------------

TEST_F(UpdaterSchedule, WhileUpdatingIsOffDuePassesAreSkipped)
{
    Start();
    ScheduleLines();
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Update Flag OFF")}, kIntervalArmed}));
    Put(L"Enable", 1);
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Update Flag ON")}, kIntervalArmed}));
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    Put(L"Enable", 0);
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Update Flag OFF"), 1);
    EXPECT_EQ(Requests(), kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, UpdatingThatIsOffAtTheStartIsNotMentioned)
{
    SetClock(8, 59);
    Put(L"FixedClockMax", 0);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated,
                                      {Thread("Before Base Update Time.(9 clock)"),
                                       Thread("Set Random mins is 0"),
                                       {"TRA", kStartName, "Timer Started"},
                                       Thread("Start UpdateTimer")}}));
    // The base time comes, and is skipped.
    m_machine.RunFor(kMinuteMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Update Flag OFF")}, kIntervalArmed}));
    EXPECT_EQ(Requests(), 0U);
}

// --- The base time --------------------------------------------------------------------------------------------------

TEST_F(UpdaterSchedule, AFailedFirstUpdateIsRepeatedAtTheBaseTime)
{
    Put(L"Enable", 1);
    m_updater.failsUpdates = true;
    SetClock(8, 59);
    Start();
    EXPECT_THAT(ScheduleLines(), IsSupersetOf({Thread("Update Flag ON"), Thread("Update Fail.", "WAR"),
                                               Thread("Before Base Update Time.(9 clock)")}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 1U);
    m_updater.failsUpdates = false;
    m_machine.RunFor(kMinuteMs - 1);
    EXPECT_EQ(Requests(), 0U);
    m_machine.RunFor(29 * kMinuteMs + 1);
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    // Then the interval takes over.
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Next UpdateTimer Started"), 1);
}

TEST_F(UpdaterSchedule, TheBaseTimeIsDelayedByTheTracedMinutes)
{
    SetClock(3, 17);
    Start();
    const std::string words = "Set Random mins is ";
    std::int64_t delayMs = -1;
    for (const TraceLine& line : ScheduleLines()) {
        if (line.message.starts_with(words)) {
            delayMs = std::stoi(line.message.substr(words.size())) * kMinuteMs;
        }
    }
    ASSERT_GE(delayMs, 0);
    EXPECT_LE(delayMs, 29 * kMinuteMs);
    m_machine.RunFor(5 * kHourMs + 43 * kMinuteMs + delayMs - 1);
    EXPECT_THAT(ScheduleLines(), IsEmpty());
    m_machine.RunFor(1);
    EXPECT_THAT(ScheduleLines(), Contains(Thread("Update Timer Over")));
}

TEST_F(UpdaterSchedule, EqualBoundsOf30GiveHalfPastNine)
{
    Put(L"FixedClockMin", 30);
    SetClock(8, 59);
    Start();
    EXPECT_THAT(ScheduleLines(), Contains(Thread("Set Random mins is 30")));
    m_machine.RunFor(31 * kMinuteMs);
    EXPECT_THAT(ScheduleLines(), Contains(Thread("Update Timer Over")));
}

TEST_F(UpdaterSchedule, AtTheBaseHourTheIntervalAppliesAtOnce)
{
    Put(L"Enable", 1);
    m_updater.failsUpdates = true;
    SetClock(9);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Flag ON"), Thread("Update Fail.", "WAR")},
                                      kTimerCreated,
                                      {Thread("After Base Update Time.(9 clock)")},
                                      kIntervalArmed}));
}

TEST_F(UpdaterSchedule, TheBaseTimeFollowsTheWallClock)
{
    Put(L"FixedClockMax", 0);
    SetClock(6);
    Start();
    ScheduleLines();
    SetClock(8, 59);
    m_machine.RunFor(kMinuteMs - 1);
    EXPECT_THAT(ScheduleLines(), IsEmpty());
    m_machine.RunFor(1);
    EXPECT_THAT(ScheduleLines(), Contains(Thread("Update Timer Over")));
}

TEST_F(UpdaterSchedule, ABaseHourAbove23EndsTheWorker)
{
    Put(L"FixedClock", 24);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, {Thread("Before Base Update Time.(24 clock)")}, kTimerClosed}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    // It counts as started all the same; a later start, after a stop, has no base time.
    EXPECT_TRUE(m_updater.Start());
    m_updater.Stop(100);
    ScheduleLines();
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, kIntervalArmed}));
}

TEST_F(UpdaterSchedule, AnUnknownLocalTimeEndsTheWorker)
{
    m_machine.FailEvery(Call::kTimeToLocalCalendar, 87);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, {Thread("Before Base Update Time.(9 clock)")}, kTimerClosed}));
    m_machine.ClearFaults();
}

TEST_F(UpdaterSchedule, AnUnknownLocalTimeIsNotBeforeABaseHourOfMinusOne)
{
    Put(L"FixedClock", static_cast<DWORD>(-1));
    m_machine.FailEvery(Call::kTimeToLocalCalendar, 87);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, {Thread("After Base Update Time.(-1 clock)")}, kIntervalArmed}));
    m_machine.ClearFaults();
}

TEST_F(UpdaterSchedule, AnUnknownLocalTimeIsBeforeABaseHourOfZero)
{
    Put(L"FixedClock", 0);
    m_machine.FailEvery(Call::kTimeToLocalCalendar, 87);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, {Thread("Before Base Update Time.(0 clock)")}, kTimerClosed}));
    m_machine.ClearFaults();
}

TEST_F(UpdaterSchedule, WithoutBaseTimerTheIntervalFollows)
{
    SetClock(3);
    Put(L"FixedClockMax", 0);
    m_machine.FailCall(Call::kArmTimer, 1, 8);
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated,
                                      {Thread("Before Base Update Time.(9 clock)"), Thread("Set Random mins is 0"),
                                       TraceLine{"ERR", kStartName, "Timer Start Fail.(0x00000008)"},
                                       Thread("Start UpdateTimer Fail", "ERR")},
                                      kIntervalArmed}));
}

TEST_F(UpdaterSchedule, ALaterStartArmsTheIntervalStraightAway)
{
    SetClock(3);
    StartEnabled();
    m_updater.Stop(100);
    ScheduleLines();
    Start();
    EXPECT_EQ(ScheduleLines(), Lines({kTimerCreated, kIntervalArmed}));
    EXPECT_EQ(Requests(), kRequestsOfAPass);
}

// --- The event ------------------------------------------------------------------------------------------------------

TEST_F(UpdaterSchedule, ARequestMakesAPassAndRestartsTheInterval)
{
    StartEnabled();
    m_machine.RunFor(20 * kMinuteMs);
    ScheduleLines();
    RequestUpdate();
    EXPECT_EQ(
        ScheduleLines(),
        Lines({kTimerClosed, {Thread("Exit Signal or Manual Update"), Thread("Update Flag ON")}, kIntervalArmed}));
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
    m_machine.RunFor(30 * kMinuteMs - 1);
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
    m_machine.RunFor(1);
    EXPECT_EQ(Requests(), 3 * kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, ARequestWhileUpdatingIsOffIsSkipped)
{
    Start();
    ScheduleLines();
    RequestUpdate();
    EXPECT_EQ(
        ScheduleLines(),
        Lines({kTimerClosed, {Thread("Exit Signal or Manual Update"), Thread("Update Flag OFF")}, kIntervalArmed}));
}

TEST_F(UpdaterSchedule, ARequestDuringAPassMakesAnotherPass)
{
    bool triggered = false;
    m_machine.SetHttpHandler([&](const HttpExchange&) {
        if (!triggered) {
            triggered = true;
            EXPECT_TRUE(m_machine.OtherProcessSetsEvent(kUpdateEventName));
        }
        return HttpAnswer{404, ""};
    });
    StartEnabled();
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit Signal or Manual Update"), 1);
    m_machine.RunFor(29 * kMinuteMs);
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
}

// --- The end --------------------------------------------------------------------------------------------------------

TEST_F(UpdaterSchedule, StopWhileWaitingEndsTheWorkerAtOnce)
{
    StartEnabled();
    ScheduleLines();
    const std::int64_t before = m_machine.ElapsedMs();
    m_updater.Stop(100);
    EXPECT_EQ(m_machine.ElapsedMs(), before);
    // Cancelled for the signal, and once more when it is closed.
    EXPECT_EQ(ScheduleLines(),
              Lines({kTimerClosed, {Thread("Exit Signal or Manual Update"), Thread("Exit Signal.")}, kTimerClosed}));
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
}

TEST_F(UpdaterSchedule, StopDuringALaterPassIsAFailedPassAndTheEnd)
{
    StartEnabled();
    m_machine.SetHttpHandler([](const HttpExchange&) { return HttpAnswer{.status = 404, .latencyMs = 5000}; });
    m_machine.RunFor(31 * kMinuteMs);
    ScheduleLines();
    m_updater.Stop(100);
    m_machine.RunFor(5 * kSecondMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Fail.", "WAR"), Thread("Exit Signal.")}, kTimerClosed}));
}

TEST_F(UpdaterSchedule, AnExitSeenWhenTheTimerIsDueEndsTheWorker)
{
    // As after a Stop whose pulse found nobody waiting.
    StartEnabled();
    ScheduleLines();
    m_updater.SetExit();
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Exit Signal.")}, kTimerClosed}));
    EXPECT_EQ(Requests(), kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, AnExitWhileTheTimerIsMadeEndsTheWorker)
{
    ExitDuring(Call::kMakeTimer);
    StartEnabled();
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Flag ON"), Thread("Updated")}, kTimerCreated, kTimerClosed}));
}

TEST_F(UpdaterSchedule, AnExitDuringTheLookupOfTheMasterSwitchEndsTheWorker)
{
    Start();
    ScheduleLines();
    ExitDuring(Call::kQuerySettingsValue);
    m_machine.RunFor(30 * kMinuteMs);
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Update Flag OFF")}, kTimerClosed}));
}

TEST_F(UpdaterSchedule, AWorkerThatMissesItsStopEndsWithIt)
{
    // Symptom: after a Stop whose pulse was lost, others still found the update event, and their requests went nowhere.
    StartEnabled();
    ScheduleLines();
    StopMissed();
    m_machine.RunUntilIdle();
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
    EXPECT_EQ(ScheduleLines(), Lines({{Thread("Update Timer Over"), Thread("Exit Signal.")}, kTimerClosed}));
}

TEST_F(UpdaterSchedule, ARequestAfterAMissedStopReachesTheNextWorker)
{
    // Symptom: a worker that had missed its Stop took the request that came after the next Start.
    StartEnabled();
    StopMissed();
    ASSERT_TRUE(m_updater.Start()); // the old worker has not gone on yet
    RequestUpdate();
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
}

TEST_F(UpdaterSchedule, AStopAfterAMissedOneIsPrompt)
{
    // Symptom: after one lost pulse, every later pulse woke the worker before, and each Stop took its whole time-out.
    StartEnabled();
    StopMissed();
    for (int i = 0; i < 2; ++i) {
        Start();
        const std::int64_t before = m_machine.ElapsedMs();
        m_updater.Stop(1000);
        EXPECT_EQ(m_machine.ElapsedMs(), before);
    }
}

TEST_F(UpdaterSchedule, TheTimerOfEachRunGoesWithIt)
{
    Put(L"Enable", 1);
    for (int i = 0; i < 5; ++i) {
        Start();
        EXPECT_EQ(m_machine.ArmedTimerCount(), 1U);
        m_updater.Stop(100);
        EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    }
}

} // namespace
