// The life of the real program: starts and ends, its schedule, its answers to the session, to power and to other
// programs, on the platform under test.
#include "testing/system/Life.h"

#include <algorithm>
#include <random>

namespace system_test {
namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;
using testing::SizeIs;
using testing_support::TraceLine;

class SystemLife : public CLifeTest {};

// Starts and ends.

TEST_F(SystemLife, RunsAPassArmsTheIntervalAndEndsWhenTold)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    EXPECT_THAT(Requests(), SizeIs(2));
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(pass.brokenLines, 0) << pass.text;
    EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
    ExpectWorkers(pass);
    EXPECT_THAT(Requests(), SizeIs(2));
}

TEST_F(SystemLife, TracesEveryFunctionOfItsLife)
{
    const std::unique_ptr<CCopy> copy = StartArmed({}, kEveryLine);
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_TRUE(ScopesBalance(pass));
    const Lines setExit = Scope("CAmporaThread::SetExit");
    const Lines start = Scope("CAmporaUpdater::Start", Scope("CAmporaThread::Start"));
    const Lines stop = Scope("CAmporaUpdater::Stop", setExit + Scope("CAmporaThread::Stop", setExit));
    EXPECT_EQ(Life(MainLines(pass)),
              Scope("CAmporaSrvApp::InitInstance",
                    ProgramStart() + Scope("CAmporaThread::CAmporaThread") +
                        Scope("CAmporaHttpClient::CAmporaHttpClient") + Scope("CAmporaUpdater::CAmporaUpdater") +
                        Scope("CAmporaSrvDlg::OnInitDialog", start) + Scope("CAmporaSrvDlg::OnDestroy", stop) +
                        Scope("CAmporaUpdater::~CAmporaUpdater") + Scope("CAmporaHttpClient::~CAmporaHttpClient") +
                        Scope("CAmporaThread::~CAmporaThread")) +
                  Scope("CAmporaSrvApp::ExitInstance", ProgramEnd()));
    const Lines cancel = Scope("CWaitTableTimer::Cancel", {{"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."}});
    const Lines made = TimerMade();
    const Lines armed = IntervalArmed();
    const Lines woken = WokenUp();
    EXPECT_EQ(Life(WorkerLines(pass)),
              Scope("CAmporaThread::_CallThreadProc",
                    Scope("CAmporaUpdater::ThreadProc",
                          Lines{FirstPass()[0]} + Scope("CAmporaUpdater::Update") + Lines{FirstPass()[1]} +
                              Scope("CWaitTableTimer::CWaitTableTimer") + Scope("CWaitTableTimer::Create", {made[0]}) +
                              Lines{made[1]} +
                              Scope("CAmporaUpdater::SetIntervalUpdate",
                                    Lines{armed[0], armed[1]} + Scope("CWaitTableTimer::Start", {armed[2]})) +
                              Lines{armed[3]} + cancel + Lines{woken[1], WorkerEnd()[0]} +
                              Scope("CWaitTableTimer::Close", cancel) +
                              Scope("CWaitTableTimer::~CWaitTableTimer", Scope("CWaitTableTimer::Close")))));
}

TEST_F(SystemLife, DefaultIntervalLiesBetween15And44Minutes)
{
    const CopyOutput pass = RunPass(OnlySetting("tokyo", 8));
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaUpdater::SetIntervalUpdate", "Interval:30min, Rand:-15min - 15min"}), 1);
    int matches = 0;
    for (int minutes = 15; minutes <= 44; ++minutes) {
        matches += CountLines(
            pass, {"TRA", "CAmporaUpdater::SetIntervalUpdate", "Set Interval:" + std::to_string(minutes) + "min"});
    }
    EXPECT_EQ(matches, 1);
}

TEST_F(SystemLife, SecondCopyEndsAtOnceAndLeavesTheFirstAlone)
{
    const std::unique_ptr<CCopy> first = StartArmed();
    const std::string before = first->Text();
    ExpectRunTwice({});
    ExpectRunTwice({"/x", "-y", "z", "Exit"});
    EXPECT_EQ(first->Text(), before);
    EXPECT_FALSE(first->WaitForExit(milliseconds(0)));
    ExpectWorkers(EndCopy(*first));
}

TEST_F(SystemLife, OnlyTheExactWordIsExitMode)
{
    Rig().PutSettings(Settings());
    const std::unique_ptr<CCopy> copy = Rig().Start({"/EXIT"});
    AwaitArmed(*copy);
    for (const char* argument : {"/exit", "/EXIT", "Exit", "--Exit", "/Exit1", "/Exi"}) {
        ExpectRunTwice({argument});
    }
    EXPECT_EQ(Life(MainLines(EndCopy(*copy))), ProgramStart() + ProgramEnd());
}

TEST_F(SystemLife, ExitWithADashAndAmongOtherArgumentsEndsTheCopyToo)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"-Exit"}, {"one", "/Exit", "-two"}}) {
        const std::unique_ptr<CCopy> copy = StartOff();
        const std::unique_ptr<CCopy> exitCopy = Rig().Start(arguments);
        EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
        EXPECT_EQ(MainLines(exitCopy->Trace()), ExitMode({{"TRA", kInitInstance, "Post WM_QUIT"}}));
        EXPECT_EQ(copy->WaitForExit(kEndLimit), 0);
        EXPECT_EQ(MainLines(copy->Trace()), ProgramStart() + ProgramEnd());
    }
}

TEST_F(SystemLife, ControlEndsTheCopyAndHasNothingToDoAfterwards)
{
    const std::unique_ptr<CCopy> copy = StartOff();
    const ProcessResult control = Rig().RunControl({"exit", "--wait"});
    EXPECT_EQ(control.exitCode, 0) << control.err;
    EXPECT_EQ(control.out, "");
    EXPECT_EQ(copy->WaitForExit(kEndLimit), 0);
    EXPECT_EQ(MainLines(copy->Trace()), ProgramStart() + ProgramEnd());
    EXPECT_EQ(Rig().RunControl({"exit", "--wait"}).out, "amporasrv was not running\n");
}

TEST_F(SystemLife, ExitWithoutACopyFindsNoWindowAndTakesNoMutex)
{
    Rig().PutSettings(Settings());
    const std::unique_ptr<CCopy> exitCopy = Rig().Start({"/Exit"});
    EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
    const CopyOutput pass = exitCopy->Trace();
    EXPECT_EQ(pass.brokenLines, 0) << pass.text;
    EXPECT_EQ(MainLines(pass), ExitMode({{"WAR", kInitInstance, "Not Found Window"}}));
    EXPECT_THAT(WorkerLines(pass), IsEmpty());
}

TEST_F(SystemLife, ExitWithoutACopyTracesItsFunctions)
{
    Rig().PutSettings(Settings({}, kEveryLine));
    const std::unique_ptr<CCopy> exitCopy = Rig().Start({"/Exit"});
    EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
    EXPECT_EQ(MainLines(exitCopy->Trace()),
              Scope(kInitInstance, ExitMode({{"WAR", kInitInstance, "Not Found Window"}})) +
                  Scope("CAmporaSrvApp::ExitInstance"));
}

TEST_F(SystemLife, StartsAgainAfterItsEnd)
{
    for (int i = 0; i < 2; ++i) {
        const std::unique_ptr<CCopy> copy = StartArmed();
        const CopyOutput pass = EndCopy(*copy);
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
    }
    EXPECT_THAT(Requests(), SizeIs(4));
}

// The schedule.

TEST_F(SystemLife, WithUpdatingOffBeforeTheBaseHourItsTimerIsArmed)
{
    SetLocalTime(12, 30);
    const std::unique_ptr<CCopy> copy = StartOff(BaseTime(13, 0));
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(WorkerLines(pass), TimerMade() + BaseTimeArmed(13, 0) + WokenUp() + WorkerEnd());
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(SystemLife, WithUpdatingOffAtTheBaseHourTheIntervalIsArmed)
{
    for (const auto& [hour, minute] : {std::pair(13, 0), std::pair(13, 59), std::pair(23, 30)}) {
        SetLocalTime(hour, minute);
        const std::unique_ptr<CCopy> copy = StartOff(BaseTime(13, 0));
        EXPECT_EQ(WorkerLines(EndCopy(*copy)),
                  TimerMade() + BaseTimeOver(13) + IntervalArmed() + WokenUp() + WorkerEnd());
    }
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(SystemLife, BaseTimeThatHasPassedIsDueAtOnceAndSkippedWhileUpdatingIsOff)
{
    SetLocalTime(12, 30);
    const std::unique_ptr<CCopy> copy = StartOff(BaseTime(13, -45));
    AwaitArmed(*copy, 2);
    EXPECT_EQ(WorkerLines(EndCopy(*copy)), TimerMade() + BaseTimeArmed(13, -45) + TimerDue() + UpdatingIsOff() +
                                               IntervalArmed() + WokenUp() + WorkerEnd());
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(SystemLife, BaseTimeTimerFallsDueAtItsMinute)
{
    // Two seconds before 12:30:00, which is half an hour before the base hour.
    SetLocalTime(12, 29, 58);
    const auto before = std::chrono::steady_clock::now();
    const std::unique_ptr<CCopy> copy = StartOff(BaseTime(13, -30));
    AwaitArmed(*copy, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - before, milliseconds(900)); // the clock may be near a second's end
    EXPECT_EQ(WorkerLines(EndCopy(*copy)), TimerMade() + BaseTimeArmed(13, -30) + TimerDue() + UpdatingIsOff() +
                                               IntervalArmed() + WokenUp() + WorkerEnd());
}

TEST_F(SystemLife, ImpossibleBaseHourEndsTheWorkerAndNothingElse)
{
    SetLocalTime(12, 30);
    Values values = BaseTime(24, 0);
    values["Enable"] = 0;
    const std::unique_ptr<CCopy> copy = StartBrief(values);
    const Lines ended = TimerMade() + Lines{BaseTimeArmed(24, 0).front()} + Lines{WokenUp().front()};
    EXPECT_TRUE(copy->WaitForLine(ended.back()));
    EXPECT_EQ(WorkerLines(copy->Trace()), ended);
    // The program goes on: a new worker runs no first pass.
    EXPECT_TRUE(Post(kPower, 4));
    EXPECT_TRUE(copy->WaitForLine(DialogSays(kPowerHandler, "Suspend").front()));
    EXPECT_TRUE(Post(kPower, 18));
    AwaitArmed(*copy);
    EXPECT_EQ(WorkerLines(EndCopy(*copy)), ended + TimerMade() + IntervalArmed() + WokenUp() + WorkerEnd());
}

TEST_F(SystemLife, SettingsAreReadAnewForEachTurn)
{
    // The first interval is over at once, and so is the next, which is negative; then updating is off.
    const int requestsPerPass = 2;
    SetAnswer("tokyo", [&](const Request& request) {
        const std::size_t requests = Exchanges().size();
        if (requests == requestsPerPass + 1) {
            Rig().PutSettings(Settings({{"Interval", 5}, {"IntervalMin", -7}, {"IntervalMax", -7}}));
        } else if (requests == 2 * requestsPerPass + 1) {
            Rig().PutSettings(Settings({{"Enable", 0}}));
        }
        return Healthy().Answer(request);
    });
    const std::unique_ptr<CCopy> copy = StartBrief({{"Interval", 0}});
    AwaitArmed(*copy, 3);
    ManualUpdate();
    AwaitArmed(*copy, 4);
    EXPECT_EQ(Life(WorkerLines(EndCopy(*copy))), FirstPass() + TimerMade() + IntervalArmed(0) + TimerDue() +
                                                     LaterPass() + IntervalArmed(5, -7) + TimerDue() + LaterPass() +
                                                     IntervalArmed() + WokenUp() + UpdatingIsOff() + IntervalArmed() +
                                                     WokenUp() + WorkerEnd());
    EXPECT_THAT(Requests(), SizeIs(6));
}

TEST_F(SystemLife, FailedDownloadsAreNoFailedPass)
{
    const testing_support::CClosedPort nobody;
    SetPort(nobody.Port());
    const std::unique_ptr<CCopy> copy = StartArmed();
    ExpectWorkers(EndCopy(*copy));
}

// Requests of other programs.

TEST_F(SystemLife, EventRunsAPassAndRestartsTheInterval)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    ManualUpdate();
    AwaitArmed(*copy, 2);
    const ProcessResult control = Rig().RunControl({"update"});
    EXPECT_EQ(control.exitCode, 0) << control.err;
    AwaitArmed(*copy, 3);
    EXPECT_THAT(Requests(), SizeIs(6));
    const Lines manual = WokenUp() + LaterPass() + IntervalArmed();
    ExpectWorkers(EndCopy(*copy), manual + manual);
}

TEST_F(SystemLife, EventRunsNoPassWhileUpdatingIsOff)
{
    SetLocalTime(12, 30);
    const std::unique_ptr<CCopy> copy = StartOff(BaseTime(13, 0));
    ManualUpdate();
    AwaitArmed(*copy, 2);
    EXPECT_EQ(WorkerLines(EndCopy(*copy)), TimerMade() + BaseTimeArmed(13, 0) + WokenUp() + UpdatingIsOff() +
                                               IntervalArmed() + WokenUp() + WorkerEnd());
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(SystemLife, EventDuringAPassRunsOneMore)
{
    const std::unique_ptr<CCopy> copy = StartStalled();
    ManualUpdate();
    ManualUpdate();
    EXPECT_TRUE(EndStalled());
    AwaitArmed(*copy, 2);
    ExpectWorkers(EndCopy(*copy), WokenUp() + LaterPass() + IntervalArmed());
    EXPECT_THAT(Requests(), SizeIs(4));
}

// Session and power.

TEST_F(SystemLife, SuspendEndsTheWorkerAndResumeStartsOneThatRunsNoPass)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    SuspendAndResume(*copy, kPower, 4, 18, kPowerHandler, {"Suspend", "Resume"});
    // The second resume notice finds it running.
    EXPECT_TRUE(Post(kPower, 7));
    EXPECT_TRUE(copy->WaitForLine(AlreadyStarted().front()));
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kPowerHandler, "Suspend") +
                                   DialogSays(kPowerHandler, "Resume") + DialogSays(kPowerHandler, "Resume") +
                                   AlreadyStarted() + ProgramEnd());
    ExpectTwoWorkers(pass);
    EXPECT_THAT(Requests(), SizeIs(2));
}

TEST_F(SystemLife, LeavingTheSessionEndsTheWorkerAndEnteringItStartsOneThatRunsNoPass)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    SuspendAndResume(*copy, kSession, 2, 1, kSessionHandler, {"Leave User Session", "Enter User Session"});
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kSessionHandler, "Leave User Session") +
                                   DialogSays(kSessionHandler, "Enter User Session") + ProgramEnd());
    ExpectTwoWorkers(pass);
    EXPECT_THAT(Requests(), SizeIs(2));
}

TEST_F(SystemLife, OtherNoticesLeaveNoLineButTheHandlers)
{
    const std::unique_ptr<CCopy> copy = StartArmed({}, kEveryLine);
    // Battery low, power status; remote connect, log-on, log-off, lock, unlock; a message of no meaning.
    const std::vector<unsigned> power = {9, 10, 0};
    const std::vector<unsigned> session = {3, 5, 6, 7, 8, 0};
    for (const unsigned event : power) {
        EXPECT_TRUE(PostRetrying(kPower, event));
    }
    for (const unsigned code : session) {
        EXPECT_TRUE(PostRetrying(kSession, code));
    }
    EXPECT_TRUE(Rig().Do("post Ampora 33000 1 2"));
    EXPECT_TRUE(
        copy->WaitForLine({"TRA", "CAmporaSrvDlg::OnSessionChange", "Leave"}, static_cast<int>(session.size())));
    const Lines lines = Life(MainLines(EndCopy(*copy)));
    Lines expected;
    for (std::size_t i = 0; i < power.size(); ++i) {
        expected = expected + Scope("CAmporaSrvDlg::OnPowerBroadcast");
    }
    for (std::size_t i = 0; i < session.size(); ++i) {
        expected = expected + Scope("CAmporaSrvDlg::OnSessionChange");
    }
    // Between the dialog's first handler and its last.
    const auto begin = std::find(lines.begin(), lines.end(), TraceLine{"TRA", "CAmporaSrvDlg::OnInitDialog", "Leave"});
    const auto end = std::find(lines.begin(), lines.end(), TraceLine{"TRA", "CAmporaSrvDlg::OnDestroy", "Enter"});
    ASSERT_LT(begin, end);
    EXPECT_EQ(Lines(begin + 1, end), expected);
}

TEST_F(SystemLife, EventDoesNothingWhileSuspended)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    EXPECT_TRUE(Post(kPower, 4));
    EXPECT_TRUE(copy->WaitForLine(WorkerEnd().back(), 2));
    copy->WaitForRest();
    const ProcessResult control = Rig().RunControl({"update"});
    EXPECT_EQ(control.exitCode, 1);
    EXPECT_EQ(control.err,
              "amporactl: amporasrv makes no passes now: the machine suspends, or the session has been left\n");
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kPowerHandler, "Suspend") + ProgramEnd());
    ExpectWorkers(pass);
}

// Ends and stops while a download hangs.

TEST_F(SystemLife, PassOfASessionThatIsLeftAndEnteredAgainEndsAloneAndTheNextOneWaitsForIt)
{
    const std::unique_ptr<CCopy> copy = StartStalled("");
    EXPECT_TRUE(Post(kSession, 2));
    EXPECT_TRUE(copy->WaitForLine(DialogSays(kSessionHandler, "Leave User Session").front()));
    EXPECT_TRUE(Post(kSession, 1));
    EXPECT_TRUE(copy->WaitForLine(DialogSays(kSessionHandler, "Enter User Session").front()));
    // The first pass counts as run when it is over, so the new worker begins another one.
    EXPECT_TRUE(copy->WaitForLine(FirstPass().front(), 2));
    copy->WaitForRest();
    EXPECT_THAT(Requests(), SizeIs(1));
    EXPECT_TRUE(EndStalled());
    AwaitArmed(*copy);
    EXPECT_THAT(Requests(), SizeIs(1 + 42));
    ExpectNoOverlap();
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kSessionHandler, "Leave User Session") +
                                   DialogSays(kSessionHandler, "Enter User Session") + ProgramEnd());
    EXPECT_EQ(Life(WorkerLines(pass)),
              PassThatIsCutShort() + FirstPass() + TimerMade() + IntervalArmed() + WokenUp() + WorkerEnd());
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaUpdater::UpdateOnePowerCompany", "Exit Flag on"}), 2);
}

TEST_F(SystemLife, EndsWithinTwoSecondsWhileADownloadHangs)
{
    const std::unique_ptr<CCopy> copy = StartStalled();
    const std::unique_ptr<CCopy> exitCopy = Rig().Start({"/Exit"});
    EXPECT_TRUE(exitCopy->WaitForLine({"TRA", kInitInstance, "Post WM_QUIT"}));
    EXPECT_EQ(copy->WaitForExit(milliseconds(2000)), 0);
    const CopyOutput pass = copy->Trace();
    EXPECT_EQ(pass.brokenLines, 0) << pass.text;
    EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
    EXPECT_EQ(Life(WorkerLines(pass)), Lines{FirstPass().front()});
    ExpectHealthyPassOfANewCopy();
}

TEST_F(SystemLife, CopyThatIsKilledInAPassIsNoObstacleToTheNextOne)
{
    const std::unique_ptr<CCopy> copy = StartStalled();
    copy->Kill();
    ExpectHealthyPassOfANewCopy();
}

TEST_F(SystemLife, CopyThatIsKilledWhileItWaitsIsNoObstacleToTheNextOne)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    copy->Kill();
    ExpectHealthyPassOfANewCopy();
}

// Storms.

TEST_F(SystemLife, StormOfNoticesDuringPassesLeavesNoDisorder)
{
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    SetAnswerForAll([this](const Request& request) {
        testing_support::HttpAnswer answer = Healthy().Answer(request);
        answer.latencyMs = 3;
        return answer;
    });
    const std::unique_ptr<CCopy> copy = StartBrief({}, kEveryLine, "");
    AwaitFirstRequest();
    const std::vector<std::string> notices = {
        "post Ampora 536 4 0", "post Ampora 536 18 0",     "post Ampora 536 7 0",     "post Ampora 689 2 1",
        "post Ampora 689 1 1", "set AmporaSrvUpdateEvent", "set AmporaSrvUpdateEvent"};
    int handled = 0; // power messages
    for (int i = 0; i < 200; ++i) {
        const std::string& notice = notices[random() % notices.size()];
        // A full queue refuses a message; an event that nobody has cannot be set.
        handled += Rig().Do(notice) && notice.starts_with("post Ampora 536") ? 1 : 0;
    }
    EXPECT_GT(handled, 0);
    const auto handle = [&](unsigned event) {
        EXPECT_TRUE(PostRetrying(kPower, event));
        EXPECT_TRUE(copy->WaitForLine({"TRA", "CAmporaSrvDlg::OnPowerBroadcast", "Leave"}, ++handled));
    };
    handle(4);
    const int armed = copy->CountLine(IntervalArmed().back());
    handle(18);
    AwaitArmed(*copy, armed + 1);
    // Symptom: a worker that had missed its stop took the one request that is made now.
    const int passes = copy->CountLine({"TRA", kThreadProc, "Update Flag ON"});
    ManualUpdate();
    EXPECT_TRUE(copy->WaitForLine({"TRA", kThreadProc, "Update Flag ON"}, passes + 1));
    AwaitArmed(*copy, armed + 2);
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(pass.brokenLines, 0);
    ExpectNoOverlap();
    EXPECT_TRUE(ScopesBalance(pass)) << pass.text;
}

// What only Windows can show.

class SystemWindows : public CLifeTest {};

TEST_F(SystemWindows, WindowIsNeverVisible)
{
    const std::unique_ptr<CCopy> copy = StartOff();
    auto& rig = dynamic_cast<CWindowsRig&>(Rig());
    EXPECT_EQ(rig.ShowWindow(*copy), "visible 0");
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
}

} // namespace
} // namespace system_test
