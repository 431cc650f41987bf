#include "app/AmporaSrvDlg.h"

#include "testing/ProgramTest.h"

namespace {

using namespace testing_support;
using platform::sim::Call;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;
using ::testing::SizeIs;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;

constexpr char kSessionName[] = "CAmporaSrvDlg::OnSessionChange";
constexpr char kPowerName[] = "CAmporaSrvDlg::OnPowerBroadcast";
constexpr char kStartName[] = "CAmporaUpdater::Start";

constexpr std::size_t kRequestsOfAPass = 42;
constexpr std::int64_t kIntervalMs = 30 * 60'000;

const TraceLine kEnterSession = {"TRA", kSessionName, "Enter User Session"};
const TraceLine kLeaveSession = {"TRA", kSessionName, "Leave User Session"};
const TraceLine kSuspend = {"TRA", kPowerName, "Suspend"};
const TraceLine kResume = {"TRA", kPowerName, "Resume"};
const TraceLine kTimerCanceled = {"TRA", "CWaitTableTimer::Cancel", "Timer Canceled."};

// How the worker ends that waits, and how one begins that is started again.
const std::vector<TraceLine> kWorkerEnds = {kTimerCanceled,
                                            {"TRA", kThreadName, "Exit Signal or Manual Update"},
                                            {"TRA", kThreadName, "Exit Signal."},
                                            kTimerCanceled};
const std::vector<TraceLine> kWorkerBegins = {
    {"TRA", "CWaitTableTimer::Create", "Created Timer"},
    {"TRA", kThreadName, "Created Timer"},
    {"TRA", "CAmporaUpdater::SetIntervalUpdate", "Interval:30min, Rand:0min - 0min"},
    {"TRA", "CAmporaUpdater::SetIntervalUpdate", "Set Interval:30min"},
    {"TRA", "CWaitTableTimer::Start", "Timer Started"},
    {"TRA", kThreadName, "Next UpdateTimer Started"}};

std::vector<TraceLine> After(const TraceLine& first, const std::vector<TraceLine>& rest)
{
    std::vector<TraceLine> lines = {first};
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
}

class AmporaSrvDlg : public CProgramTest {
protected:
    // A web whose every answer takes this long.
    void SlowDownAnswers(DWORD latencyMs)
    {
        m_machine.SetHttpHandler([latencyMs](const HttpExchange&) {
            HttpAnswer answer{.status = 503};
            answer.latencyMs = latencyMs;
            return answer;
        });
    }
    std::size_t Requests() const { return m_machine.HttpExchanges().size(); }
};

TEST_F(AmporaSrvDlg, TheUpdaterLivesAsLongAsTheDialog)
{
    Put(L"Enable", 1);
    const DWORD process = Start();
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    EXPECT_TRUE(m_machine.WindowOf(kWindowClassName)->getsSessionNotices);
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName));
    Post(WM_QUIT);
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
    EXPECT_EQ(m_machine.NamedObjectCount(), 0U);
}

TEST_F(AmporaSrvDlg, QuitOfAnyCodeIsNoFailure)
{
    // Symptom: after WM_QUIT with code -1 the program ended with the exit code for a window that cannot be made.
    const DWORD process = Start();
    EXPECT_TRUE(m_machine.OtherProcessPosts(kWindowClassName, WM_QUIT, static_cast<WPARAM>(-1), 0));
    m_machine.RunUntilIdle();
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
}

TEST_F(AmporaSrvDlg, CloseEndsTheProgramToo)
{
    const DWORD process = Start();
    Post(WM_CLOSE);
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
}

TEST_F(AmporaSrvDlg, AnUpdaterThatCannotStartLeavesTheDialogOpen)
{
    m_machine.FailCall(Call::kCreateNamedEvent, 1, 8);
    const DWORD process = Start();
    EXPECT_THAT(MessagesOf(kStartName), ElementsAre(TraceLine{"ERR", kStartName, "CreateEvent Fail."}));
    EXPECT_FALSE(HasEnded(process));
    // The next occasion starts it.
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName));
}

TEST_F(AmporaSrvDlg, WithoutSessionNoticesTheProgramRunsAllTheSame)
{
    m_machine.FailCall(Call::kRegisterSessionNotices, 1, 8);
    const DWORD process = Start();
    NotifySession(WTS_CONSOLE_DISCONNECT);
    EXPECT_FALSE(HasEnded(process));
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName));
}

TEST_F(AmporaSrvDlg, SuspendStopsAndResumeStarts)
{
    Put(L"Enable", 1);
    Start();
    Messages();
    NotifyPower(PBT_APMSUSPEND);
    EXPECT_EQ(Messages(), After(kSuspend, kWorkerEnds));
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName));
    m_machine.RunFor(10 * kIntervalMs);
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    EXPECT_EQ(Messages(), After(kResume, kWorkerBegins));
    EXPECT_EQ(Requests(), kRequestsOfAPass);
    m_machine.RunFor(kIntervalMs);
    EXPECT_EQ(Requests(), 2 * kRequestsOfAPass);
}

TEST_F(AmporaSrvDlg, TheSecondNoticeOfAResumeFindsTheUpdaterStarted)
{
    Start();
    NotifyPower(PBT_APMSUSPEND);
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    Messages();
    NotifyPower(PBT_APMRESUMESUSPEND);
    EXPECT_THAT(Messages(), ElementsAre(kResume, TraceLine{"TRA", kStartName, "Already Started"}));
}

TEST_F(AmporaSrvDlg, ResumeBySuspendNoticeAloneStartsToo)
{
    Start();
    NotifyPower(PBT_APMSUSPEND);
    Messages();
    NotifyPower(PBT_APMRESUMESUSPEND);
    EXPECT_EQ(Messages(), After(kResume, kWorkerBegins));
}

TEST_F(AmporaSrvDlg, OtherPowerEventsLeaveNoLine)
{
    Start();
    Messages();
    for (WPARAM event = 0; event < 0x20; ++event) {
        if (event != PBT_APMSUSPEND && event != PBT_APMRESUMESUSPEND && event != PBT_APMRESUMEAUTOMATIC) {
            NotifyPower(event);
        }
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName));
}

TEST_F(AmporaSrvDlg, DisconnectStopsAndConnectStarts)
{
    Start();
    Messages();
    NotifySession(WTS_CONSOLE_DISCONNECT);
    EXPECT_EQ(Messages(), After(kLeaveSession, kWorkerEnds));
    NotifySession(WTS_CONSOLE_CONNECT);
    EXPECT_EQ(Messages(), After(kEnterSession, kWorkerBegins));
}

TEST_F(AmporaSrvDlg, OtherSessionCodesAreNotActedOn)
{
    Start();
    Messages();
    for (WPARAM code = 3; code <= 11; ++code) { // remote connect to session terminate
        NotifySession(code);
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName));
}

TEST_F(AmporaSrvDlg, AnotherSessionsNoticesDoNotConcernThisOne)
{
    Start({}, 1);
    Start({}, 2);
    Messages();
    NotifySession(WTS_CONSOLE_DISCONNECT, 2);
    EXPECT_EQ(Messages(), After(kLeaveSession, kWorkerEnds));
    EXPECT_TRUE(m_machine.NamedObjectExists(kUpdateEventName, 1));
    EXPECT_FALSE(m_machine.NamedObjectExists(kUpdateEventName, 2));
}

TEST_F(AmporaSrvDlg, AStartThatFailsIsTracedByWhatAskedForIt)
{
    Start();
    NotifyPower(PBT_APMSUSPEND);
    Messages();
    m_machine.FailEvery(Call::kCreateNamedEvent, 8);
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    EXPECT_THAT(Messages(), ElementsAre(kResume, TraceLine{"ERR", kStartName, "CreateEvent Fail."},
                                        TraceLine{"ERR", kPowerName, "Resume Start Fail"}));
    NotifySession(WTS_CONSOLE_CONNECT);
    EXPECT_THAT(Messages(), ElementsAre(kEnterSession, TraceLine{"ERR", kStartName, "CreateEvent Fail."},
                                        TraceLine{"ERR", kSessionName, "Sesstion Change Start Fail"}));
}

TEST_F(AmporaSrvDlg, AnExceptionIsTracedAndTheProgramGoesOn)
{
    const DWORD process = Start();
    NotifyPower(PBT_APMSUSPEND);
    Messages();
    m_machine.FailEvery(Call::kCreateNamedMutexThrows, 8);
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    EXPECT_THAT(Messages(), ElementsAre(kResume, TraceLine{"ERR", kPowerName, "PowerEvent Exception"}));
    NotifySession(WTS_CONSOLE_CONNECT);
    EXPECT_THAT(Messages(), ElementsAre(kEnterSession, TraceLine{"ERR", kSessionName, "SessionChange Exception"}));
    EXPECT_FALSE(HasEnded(process));
    m_machine.ClearFaults();
    NotifyPower(PBT_APMRESUMEAUTOMATIC);
    EXPECT_EQ(Messages(), After(kResume, kWorkerBegins));
}

TEST_F(AmporaSrvDlg, DisconnectDuringADownloadWaits100Ms)
{
    Put(L"Enable", 1);
    SlowDownAnswers(20'000);
    Start();
    m_machine.RunFor(5'000);
    Messages();
    NotifySession(WTS_CONSOLE_DISCONNECT);
    m_machine.RunFor(100);
    EXPECT_THAT(Messages(), ElementsAre(kLeaveSession));
    // A connect soon after makes new objects and a new thread.
    NotifySession(WTS_CONSOLE_CONNECT);
    EXPECT_THAT(Messages(), Contains(kEnterSession));
    EXPECT_EQ(m_machine.CallCount(Call::kStartThread), 2U);
    m_machine.RunFor(20'000);
    EXPECT_EQ(CountTrace("TRA", "CAmporaUpdater::UpdateOnePowerCompany", "Exit Flag on"), 2);
    EXPECT_EQ(CountTrace("WAR", kThreadName, "Update Fail."), 1);
    EXPECT_EQ(CountTrace("TRA", kThreadName, "Exit..."), 1);
}

TEST_F(AmporaSrvDlg, TheEndWaitsForTheWorkerAtMostASecond)
{
    Put(L"Enable", 1);
    SlowDownAnswers(20'000);
    const DWORD process = Start();
    m_machine.RunFor(5'000);
    Messages();
    EXPECT_TRUE(m_machine.OtherProcessPosts(kWindowClassName, WM_QUIT, 0, 0));
    m_machine.RunFor(999);
    EXPECT_THAT(Messages(), IsEmpty());
    m_machine.RunFor(1);
    EXPECT_THAT(Messages(), ElementsAre(TraceLine{"TRA", kExitName, "Close Mutex"}));
    // Its worker is left, and makes no more requests.
    EXPECT_FALSE(HasEnded(process));
    m_machine.RunFor(20'000);
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
    EXPECT_EQ(Requests(), 1U);
}

TEST_F(AmporaSrvDlg, NoticesInAnyOrderNeverMakeTwoPassesAtOnce)
{
    Put(L"Enable", 1);
    Put(L"Interval", 1);
    int running = 0;
    int most = 0;
    m_machine.SetHttpHandler([&](const HttpExchange&) {
        most = std::max(most, ++running);
        platform::WaitForOne(platform::CreateNamedEvent(L"NobodySetsIt", nullptr), 700, FALSE);
        --running;
        return HttpAnswer{.status = 503};
    });
    const DWORD process = Start();
    std::uint32_t random = 1;
    for (int i = 0; i < 2000; ++i) {
        random = random * 1664525 + 1013904223;
        switch (random >> 24 & 7U) {
        case 0:
            m_machine.NotifyPower(PBT_APMSUSPEND);
            break;
        case 1:
        case 2:
            m_machine.NotifyPower(PBT_APMRESUMEAUTOMATIC);
            break;
        case 3:
            m_machine.NotifySession(1, WTS_CONSOLE_DISCONNECT);
            break;
        case 4:
        case 5:
            m_machine.NotifySession(1, WTS_CONSOLE_CONNECT);
            break;
        default:
            m_machine.OtherProcessSetsEvent(kUpdateEventName);
            break;
        }
        m_machine.RunFor(random >> 8 & 0xFFFU);
    }
    EXPECT_EQ(most, 1);
    EXPECT_GT(Requests(), kRequestsOfAPass);
    EXPECT_FALSE(HasEnded(process));
    Start({L"/Exit"});
    m_machine.RunFor(2'000);
    EXPECT_THAT(m_machine.ExitCodeOf(process), Optional(0));
    EXPECT_EQ(m_machine.WindowCount(), 0U);
    EXPECT_EQ(m_machine.ArmedTimerCount(), 0U);
}

TEST_F(AmporaSrvDlg, ShowingTheWindowIsTakenOutOfEveryChange)
{
    Start();
    WINDOWPOS position{};
    position.flags = 0xFFFF;
    Post(WM_WINDOWPOSCHANGING, 0, reinterpret_cast<LPARAM>(&position));
    EXPECT_EQ(position.flags, 0xFFFFU & ~SWP_SHOWWINDOW);
    position.flags = 0;
    Post(WM_WINDOWPOSCHANGING, 0, reinterpret_cast<LPARAM>(&position));
    EXPECT_EQ(position.flags, 0U);
}

TEST_F(AmporaSrvDlg, OtherMessagesAreLeftToTheSystem)
{
    const DWORD process = Start();
    Messages();
    for (const UINT message : {WM_QUERYDRAGICON, WM_APP}) {
        Post(message);
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_FALSE(HasEnded(process));
}

} // namespace
