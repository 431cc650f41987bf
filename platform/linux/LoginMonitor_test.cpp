#include "platform/linux/LoginMonitor.h"

#include "platform/contract/linux/ScratchSession.h"
#include "testing/process/linux/LoginBus.h"

#include <gmock/gmock.h>

namespace platform::linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::CLoginBus;
using testing_support::CScratchSession;

// Limits a wait that should end; only a failing test reaches it.
constexpr DWORD kLongMs = 20000;

MATCHER_P2(IsNotice, message, wParam, "") { return arg.message == message && arg.wParam == wParam; }

const auto kSleeps = IsNotice(WM_POWERBROADCAST, PBT_APMSUSPEND);
const auto kWakesUp = IsNotice(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
const auto kComes = IsNotice(WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT);
const auto kLeaves = IsNotice(WM_WTSSESSION_CHANGE, WTS_CONSOLE_DISCONNECT);

// Whether the monitor still waits for an answer of the bus.
bool IsUnsettled(CLoginMonitor& monitor)
{
    Deadline due;
    return monitor.Watch(&due).fd >= 0 && due;
}

std::vector<LoginNotice> PollOnce(CLoginMonitor& monitor)
{
    Deadline deadline = DeadlineAfter(kLongMs);
    pollfd bus = monitor.Watch(&deadline);
    EXPECT_TRUE(Poll({&bus, 1}, deadline));
    return monitor.Process();
}

// Goes on until the bus has answered everything.
void Settle(CLoginMonitor& monitor)
{
    const Deadline limit = DeadlineAfter(kLongMs);
    while (IsUnsettled(monitor) && std::chrono::steady_clock::now() < *limit) {
        EXPECT_THAT(PollOnce(monitor), IsEmpty());
    }
    EXPECT_FALSE(IsUnsettled(monitor));
}

// The next notices, this many.
std::vector<LoginNotice> Take(CLoginMonitor& monitor, std::size_t count)
{
    std::vector<LoginNotice> notices;
    const Deadline limit = DeadlineAfter(kLongMs);
    while (notices.size() < count && std::chrono::steady_clock::now() < *limit) {
        for (const LoginNotice& notice : PollOnce(monitor)) {
            notices.push_back(notice);
        }
    }
    return notices;
}

class LinuxLogin : public testing::Test {
protected:
    LinuxLogin()
    {
        m_session.SetVariable("DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address().c_str());
        m_session.SetVariable("XDG_SESSION_ID", "c1");
    }

    // Connects the monitor and, unless it is for power alone, lets it watch the session; until the bus has answered.
    void Connect(bool forPowerAlone = false)
    {
        m_monitor.Connect();
        if (!forPowerAlone) {
            m_monitor.WatchSession();
        }
        Settle(m_monitor);
    }

    CScratchSession m_session;
    CLoginBus m_bus;
    CLoginMonitor m_monitor;
};

TEST_F(LinuxLogin, SleepAndWakeUpAreTold)
{
    m_bus.StartLoginManager();
    Connect(true);
    m_bus.PrepareForSleep(true);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kSleeps));
    m_bus.PrepareForSleep(false);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kWakesUp));
}

TEST_F(LinuxLogin, TheSessionsLeavingAndComingAreToldOnceAskedFor)
{
    m_bus.StartLoginManager();
    m_bus.AddSession("c1");
    Connect(true);
    m_bus.SetProperty("c1", "Active", false);
    m_bus.PrepareForSleep(true);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kSleeps)) << "and nothing of the session before";
    m_monitor.WatchSession();
    Settle(m_monitor);
    m_bus.SetProperty("c1", "Active", true);
    m_bus.SetProperty("c1", "Active", false);
    const std::vector<LoginNotice> notices = Take(m_monitor, 2);
    ASSERT_THAT(notices, ElementsAre(kComes, kLeaves));
    EXPECT_EQ(notices[0].lParam, 0) << "its name is no number";
}

TEST_F(LinuxLogin, ASessionIsToldByItsNumberOnceForEachChange)
{
    m_session.SetVariable("XDG_SESSION_ID", "71");
    m_bus.StartLoginManager();
    m_bus.AddSession("_371"); // as a path writes a name that begins with a digit
    m_monitor.Connect();
    m_monitor.WatchSession();
    m_monitor.WatchSession();
    Settle(m_monitor);
    m_bus.SetProperty("_371", "Active", false);
    m_bus.PrepareForSleep(true);
    const std::vector<LoginNotice> notices = Take(m_monitor, 2);
    ASSERT_THAT(notices, ElementsAre(kLeaves, kSleeps));
    EXPECT_EQ(notices[0].lParam, 71);
    EXPECT_EQ(notices[1].lParam, 0);
}

TEST_F(LinuxLogin, ChangesOfOtherSessionsAndOfOtherKindsAreNotTold)
{
    m_bus.StartLoginManager();
    m_bus.AddSession("c1");
    m_bus.AddSession("c11");
    Connect();
    m_bus.SetProperty("c11", "Active", false);
    m_bus.SetProperty("c1", "IdleHint", true);
    m_bus.SetProperty("c1", "Active", false);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kLeaves));
}

TEST_F(LinuxLogin, OnlyTheLoginManagerIsBelieved)
{
    m_bus.StartLoginManager();
    Connect(true);
    m_bus.ForgePrepareForSleep();
    m_bus.PrepareForSleep(false);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kWakesUp));
}

TEST_F(LinuxLogin, WithoutASessionPowerIsStillTold)
{
    m_session.SetVariable("XDG_SESSION_ID", nullptr);
    m_bus.StartLoginManager();
    Connect();
    m_bus.PrepareForSleep(true);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kSleeps));
}

TEST_F(LinuxLogin, ALoginManagerMayStartLater)
{
    Connect();
    m_bus.StartLoginManager();
    m_bus.PrepareForSleep(true);
    EXPECT_THAT(Take(m_monitor, 1), ElementsAre(kSleeps));
}

TEST_F(LinuxLogin, WithoutABusThereIsNothingToWaitFor)
{
    m_bus.Stop();
    m_monitor.Connect();
    m_monitor.WatchSession();
    Deadline deadline;
    EXPECT_EQ(m_monitor.Watch(&deadline).fd, -1);
    EXPECT_FALSE(deadline);
    EXPECT_THAT(m_monitor.Process(), IsEmpty());
}

TEST_F(LinuxLogin, ABusThatEndsIsLetGo)
{
    Connect(true);
    Deadline deadline;
    ASSERT_GE(m_monitor.Watch(&deadline).fd, 0);
    m_bus.Stop();
    EXPECT_THAT(PollOnce(m_monitor), IsEmpty());
    EXPECT_EQ(m_monitor.Watch(&deadline).fd, -1);
    EXPECT_FALSE(deadline);
    m_monitor.WatchSession();
    EXPECT_THAT(m_monitor.Process(), IsEmpty());
}

} // namespace
} // namespace platform::linux
