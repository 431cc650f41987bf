#include "app/AmporaSrvApp.h"

#include "testing/FailingMemory.h"
#include "testing/ProgramTest.h"

namespace {

using namespace testing_support;
using platform::sim::Call;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Optional;
using ::testing::SizeIs;

const TraceLine kExitMode = {"TRA", kInitName, "Exit Mode"};
const TraceLine kPostQuit = {"TRA", kInitName, "Post WM_QUIT"};
const TraceLine kNotFound = {"WAR", kInitName, "Not Found Window"};
const TraceLine kRunTwice = {"TRA", kInitName, "Run 2 times"};
const TraceLine kWindowClassSet = {"TRA", kInitName, "Set Window Class"};
const TraceLine kMutexClosed = {"TRA", kExitName, "Close Mutex"};
const TraceLine kTimerCanceled = {"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."};

class AmporaSrvApp : public CProgramTest {
protected:
    // Nothing of the program is left on the machine.
    void ExpectNothingLeft() const
    {
        EXPECT_EQ(m_machine.WindowCount(), 0U);
        EXPECT_EQ(m_machine.NamedObjectCount(), 0U);
        EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
    }
};

TEST_F(AmporaSrvApp, StartAndExitAreTracedInOrder)
{
    const DWORD process = Start();
    EXPECT_THAT(Messages(),
                ElementsAre(kWindowClassSet, TraceLine{"TRA", "CWaitTableTimer::Create", "Created Timer"},
                            TraceLine{"TRA", kThreadName, "Created Timer"},
                            TraceLine{"TRA", kThreadName, "After Base Update Time.(9 clock)"},
                            TraceLine{"TRA", "CAmporaUpdater::SetIntervalUpdate", "Interval:30min, Rand:0min - 0min"},
                            TraceLine{"TRA", "CAmporaUpdater::SetIntervalUpdate", "Set Interval:30min"},
                            TraceLine{"TRA", "CWaitTableTimer::Start", "Timer Started"},
                            TraceLine{"TRA", kThreadName, "Next UpdateTimer Started"}));
    const DWORD second = Start({L"/Exit"});
    EXPECT_THAT(Messages(), ElementsAre(kExitMode, kPostQuit, kTimerCanceled,
                                        TraceLine{"TRA", kThreadName, "Exit Signal or Manual Update"},
                                        TraceLine{"TRA", kThreadName, "Exit Signal."}, kTimerCanceled, kMutexClosed));
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
    EXPECT_THAT(m_machine.ExitCodeOf(second), Optional(0));
    EXPECT_EQ(m_machine.ElapsedMs(), 0);
    ExpectNothingLeft();
}

TEST_F(AmporaSrvApp, RunningOutOfMemoryAtTheLogLevelCostsTheLogOnly)
{
    // Symptom: a start that ran out of memory at its first setting ended as a crash does.
    bool hasFailed = true;
    unsigned nth = 0;
    while (hasFailed) {
        const testing_support::CFailingMemory failing(++nth);
        const CAmporaSrvApp app;
        hasFailed = failing.HasFailed();
    }
    EXPECT_GT(nth, 1U);
}

TEST_F(AmporaSrvApp, RunningOutOfMemoryAtItsArgumentsEndsWithOne)
{
    // Symptom: a start that ran out of memory at its arguments ended as a crash does.
    for (const bool hasMemory : {false, true}) {
        const auto run = [hasMemory] {
            CAmporaSrvApp app;
            const testing_support::CFailingMemory failing(hasMemory ? 1'000'000 : 1);
            return app.Run(0, nullptr);
        };
        const DWORD process = m_machine.StartProcess(1, run, {L"/Exit"});
        m_machine.RunUntilIdle();
        EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(hasMemory ? 0 : 1));
        EXPECT_EQ(CountTrace("TRA", kInitName, "Exit Mode"), hasMemory ? 1 : 0);
    }
}

TEST_F(AmporaSrvApp, ExitIsAlsoWrittenWithADash)
{
    const DWORD process = Start();
    Start({L"-Exit"});
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
}

TEST_F(AmporaSrvApp, ExitWithoutARunningCopyIsAWarning)
{
    const DWORD process = Start({L"/Exit"});
    EXPECT_THAT(Messages(), ElementsAre(kExitMode, kNotFound));
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
    EXPECT_EQ(m_machine.CallCount(Call::kCreateNamedMutex), 0U);
    EXPECT_EQ(m_machine.CallCount(Call::kInitializeControls), 0U);
}

TEST_F(AmporaSrvApp, ExitThatCannotBePostedEndsWithOne)
{
    // Symptom: an order to end was lost in a full message queue, and the program that gave it ended with success.
    const DWORD process = Start();
    m_machine.FailCall(Call::kPostToWindow, 1, 1816);
    EXPECT_THAT(m_machine.ExitCodeOf(Start({L"/Exit"})), Optional(1));
    EXPECT_FALSE(HasEnded(process));
    EXPECT_THAT(m_machine.ExitCodeOf(Start({L"/Exit"})), Optional(0));
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
}

TEST_F(AmporaSrvApp, ExitInOtherLettersStartsNormally)
{
    const DWORD process = Start({L"/EXIT"});
    EXPECT_FALSE(HasEnded(process));
    EXPECT_THAT(Messages(), Contains(kWindowClassSet));
    const DWORD second = Start({L"/exit"});
    EXPECT_THAT(Messages(), ElementsAre(kRunTwice, kMutexClosed));
    EXPECT_TRUE(HasEnded(second));
    EXPECT_FALSE(HasEnded(process));
}

TEST_F(AmporaSrvApp, SecondStartInTheSessionEnds)
{
    const DWORD process = Start();
    Messages();
    const DWORD second = Start();
    EXPECT_THAT(Messages(), ElementsAre(kRunTwice, kMutexClosed));
    EXPECT_THAT(m_machine.ExitCodeOf(second), Optional(0));
    EXPECT_FALSE(HasEnded(process));
    EXPECT_EQ(m_machine.WindowOf(kWindowClassName)->processId, process);
    EXPECT_TRUE(m_machine.NamedObjectExists(kInstanceMutexName));
}

TEST_F(AmporaSrvApp, CopiesOfTwoSessionsBothRunAndEndEachByItself)
{
    const DWORD first = Start({}, 1);
    const DWORD second = Start({}, 2);
    EXPECT_FALSE(HasEnded(first));
    EXPECT_FALSE(HasEnded(second));
    Start({L"/Exit"}, 2);
    EXPECT_TRUE(HasEnded(second));
    EXPECT_FALSE(HasEnded(first));
}

TEST_F(AmporaSrvApp, PassesOfTwoSessionsDoNotOverlap)
{
    Put(L"Enable", 1);
    std::vector<DWORD> requesters;
    m_machine.SetHttpHandler([&](const testing_support::HttpExchange& exchange) {
        requesters.push_back(exchange.processId);
        return testing_support::HttpAnswer{.status = 503, .latencyMs = 50};
    });
    Start({}, 1);
    Start({}, 2);
    m_machine.RunFor(60'000);
    ASSERT_THAT(requesters, SizeIs(84));
    EXPECT_TRUE(std::is_sorted(requesters.begin(), requesters.end()));
}

TEST_F(AmporaSrvApp, FailingMutexDoesNotPreventTheStart)
{
    m_machine.FailCall(Call::kCreateNamedMutex, 1, 5);
    const DWORD process = Start();
    std::vector<TraceLine> lines = Messages();
    ASSERT_GE(lines.size(), 2U);
    lines.resize(2);
    EXPECT_THAT(lines, ElementsAre(TraceLine{"ERR", kInitName, "Creatre Mutex Fail."}, kWindowClassSet));
    EXPECT_FALSE(HasEnded(process));
    Start({L"/Exit"});
    EXPECT_TRUE(HasEnded(process));
    EXPECT_THAT(Messages(), Not(Contains(kMutexClosed)));
}

TEST_F(AmporaSrvApp, DialogUsesTemplate102)
{
    Start();
    EXPECT_EQ(m_machine.WindowOf(L"Ampora")->templateNumber, 102);
    EXPECT_EQ(m_machine.CallCount(Call::kInitializeControls), 1U);
    EXPECT_EQ(m_machine.CallCount(Call::kRegisterDialogClass), 1U);
}

TEST_F(AmporaSrvApp, WithoutWindowTheProgramEndsWithFailure)
{
    for (const Call call : {Call::kRegisterDialogClass, Call::kCreateDialogWindow}) {
        m_machine.FailCall(call, 1, 8);
        const DWORD process = Start();
        EXPECT_THAT(Messages(), ElementsAre(kWindowClassSet, kMutexClosed));
        EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(1));
        ExpectNothingLeft();
    }
}

TEST_F(AmporaSrvApp, WithoutCommonControlsTheProgramRunsAllTheSame)
{
    m_machine.FailCall(Call::kInitializeControls, 1, 8);
    EXPECT_FALSE(HasEnded(Start()));
}

TEST_F(AmporaSrvApp, UnhandledExceptionEndsTheProgramWithFailure)
{
    Put(L"LogLevel", kTraceTra | kTraceScope);
    m_machine.FailCall(Call::kCreateNamedMutexThrows, 1, 8);
    EXPECT_THAT(m_machine.ExitCodeOf(Start()), Optional(1));
    EXPECT_THAT(testing_support::TraceLines(),
                ElementsAre(TraceLine{"TRA", kInitName, "Enter"}, TraceLine{"TRA", kInitName, "Leave"},
                            TraceLine{"TRA", kExitName, "Enter"}, TraceLine{"TRA", kExitName, "Leave"}));
}

TEST_F(AmporaSrvApp, TraceLevelIsTakenFromTheSettingsOnceAtTheStart)
{
    Put(L"LogLevel", kTraceTra);
    const DWORD process = Start();
    EXPECT_EQ(g_dwLogLevel, kTraceTra);
    Put(L"LogLevel", 0);
    m_machine.RunFor(30 * 60'000);
    EXPECT_THAT(Messages(), Contains(TraceLine{"TRA", kThreadName, "Update Flag OFF"}));
    Start({L"/Exit"}); // which reads its own level
    EXPECT_TRUE(HasEnded(process));
}

TEST_F(AmporaSrvApp, TracesNothingByDefault)
{
    Put(L"LogLevel", 0);
    Put(L"Enable", 1);
    Start();
    m_machine.RunFor(60 * 60'000);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(126));
    EXPECT_THAT(m_machine.DebugLines(), IsEmpty());
}

TEST_F(AmporaSrvApp, EveryScopeIsLeft)
{
    Put(L"LogLevel", kTraceTra | kTraceScope);
    Put(L"Enable", 1);
    Start();
    Start({L"/Exit"});
    const std::vector<TraceLine> lines = TraceLines();
    for (const char* function : {kInitName, kExitName, "CAmporaSrvDlg::OnInitDialog", "CAmporaSrvDlg::OnDestroy"}) {
        const auto enters = CountTrace("TRA", function, "Enter");
        EXPECT_GE(enters, 1) << function;
        EXPECT_EQ(CountTrace("TRA", function, "Leave"), enters) << function;
    }
}

} // namespace
