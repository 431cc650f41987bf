#include "platform/Window.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/contract/linux/ResourceLimit.h"
#include "platform/contract/linux/ScratchSession.h"
#include "platform/contract/linux/TaskWatch.h"
#include "platform/LastError.h"
#include "platform/linux/MessageSocket.h"
#include "platform/Program.h"
#include "testing/process/linux/LoginBus.h"
#include "testing/process/Peer.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <mutex>
#include <optional>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace platform::linux {
namespace {

using testing_support::CLoginBus;
using testing_support::CPeer;
using testing_support::CResourceLimit;
using testing_support::CScratchSession;
using testing_support::IsPolling;
using testing_support::OwnTask;
using testing_support::VoluntarySwitches;

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t kClass[] = L"Class";
constexpr const char* kName = "Class";
// Time in which a loop that polled would wake up many times.
constexpr std::chrono::milliseconds kCalm{300};
constexpr std::chrono::seconds kIdle{2};
// What waking up once may cost a thread.
constexpr long kFewSwitches = 4;
constexpr std::chrono::milliseconds kLittleWork{50};

sigset_t BlockedSignals()
{
    sigset_t blocked;
    EXPECT_EQ(::pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
    return blocked;
}

testing::AssertionResult BlocksEndSignals(bool expected)
{
    const sigset_t blocked = BlockedSignals();
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        if ((sigismember(&blocked, signal) == 1) != expected) {
            return testing::AssertionFailure() << "signal " << signal;
        }
    }
    return testing::AssertionSuccess();
}

// Collects the messages of a window.
class CRecorder : public CMessageReceiver {
public:
    LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM) override
    {
        if (message == WM_INITDIALOG) {
            EXPECT_TRUE(RegisterSessionNotices(window));
            const sigset_t blocked = BlockedSignals();
            EXPECT_EQ(sigismember(&blocked, SIGTERM), 1) << "threads that are started here inherit that";
        }
        const std::lock_guard lock(m_mutex);
        m_messages.emplace_back(message, wParam);
        m_arrived.notify_all();
        return 0;
    }

    // Waits until a message has come that often.
    void Await(UINT message, WPARAM wParam, std::ptrdiff_t count = 1)
    {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_arrived.wait_for(lock, std::chrono::seconds(20), [&] {
            return std::ranges::count(m_messages, std::pair{message, wParam}) >= count;
        })) << message;
    }
    // What has come between the first and the last message of a window.
    std::vector<std::pair<UINT, WPARAM>> Messages() const
    {
        std::vector<std::pair<UINT, WPARAM>> messages = m_messages;
        std::erase(messages, std::pair<UINT, WPARAM>(WM_INITDIALOG, 0));
        std::erase(messages, std::pair<UINT, WPARAM>(WM_DESTROY, 0));
        return messages;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<std::pair<UINT, WPARAM>> m_messages;
};

// A window whose loop runs on a thread of its own.
class CWindowThread {
public:
    CWindowThread() : m_thread([this] { Run(); }) { m_recorder.Await(WM_INITDIALOG, 0); }
    ~CWindowThread()
    {
        PostToWindow(FindWindowOfClass(kClass), WM_QUIT, 0, 0);
        m_thread.join();
    }
    CWindowThread(const CWindowThread&) = delete;
    CWindowThread& operator=(const CWindowThread&) = delete;

    CRecorder& Recorder() { return m_recorder; }
    // Waits until the loop sleeps, having handled everything that had come before the call.
    void AwaitSleep()
    {
        EXPECT_TRUE(PostToWindow(FindWindowOfClass(kClass), WM_APP, ++m_marks, 0));
        m_recorder.Await(WM_APP, m_marks);
        testing_support::Await([this] { return IsPolling(m_task); });
    }
    // The thread neither polls nor works, and handles messages still.
    void ExpectCalm()
    {
        const long switches = Switches();
        const std::chrono::nanoseconds work = Work();
        std::this_thread::sleep_for(kCalm);
        EXPECT_LE(Switches() - switches, kFewSwitches);
        EXPECT_LT(Work() - work, kLittleWork);
        AwaitSleep();
    }
    long Switches() const { return VoluntarySwitches(m_task); }
    // How long the thread has been at work.
    std::chrono::nanoseconds Work()
    {
        clockid_t clock = 0;
        timespec time = {};
        EXPECT_EQ(::pthread_getcpuclockid(m_thread.native_handle(), &clock), 0);
        EXPECT_EQ(::clock_gettime(clock, &time), 0);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

private:
    void Run()
    {
        m_task = OwnTask();
        const WindowPtr window = CreateDialogWindow(0, kClass, m_recorder);
        ASSERT_NE(window, nullptr);
        EXPECT_EQ(RunMessageLoop(*window), 0);
    }

    CRecorder m_recorder;
    std::string m_task; // written before the first message
    WPARAM m_marks = 0;
    std::thread m_thread;
};

class LinuxWindow : public testing::Test {
protected:
    LinuxWindow()
    {
        // A sanitizer starts a thread of its own with the first one.
        std::thread([] {}).join();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        // No bus, unless a test brings one.
        m_session.SetVariable("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + BusSocket().string()).c_str());
        m_session.SetVariable("XDG_SESSION_ID", "c1");
        RegisterDialogClass(kClass);
    }

    fs::path BusSocket() const { return m_session.Folder() / "bus"; }
    fs::path SocketFile() const { return m_session.SessionFolder() / kName; }

    void MakeSessionFolder() const
    {
        fs::create_directory(m_session.SessionFolder());
        fs::permissions(m_session.SessionFolder(), fs::perms::owner_all);
    }
    WindowPtr Make() { return CreateDialogWindow(0, kClass, m_recorder); }
    // Fails to make the window; what is written to standard error then.
    std::string FailToMake(DWORD code)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(Make(), nullptr);
        EXPECT_EQ(GetLastErrorCode(), code);
        return testing::internal::GetCapturedStderr();
    }
    // Runs the loop of a window up to what has been posted by now.
    void Drain(CWindow& window)
    {
        EXPECT_TRUE(PostToWindow(FindWindowOfClass(kClass), WM_QUIT, 0, 0));
        EXPECT_EQ(RunMessageLoop(window), 0);
    }

    CScratchSession m_session;
    CPeer m_peer;
    CRecorder m_recorder;
};

// Stands for LinuxWindow where a test needs processes of its own.
using LinuxWindowDeathTest = LinuxWindow;

TEST_F(LinuxWindow, IsASocketOfTheUsersAloneInTheSessionFolder)
{
    const WindowPtr window = Make();
    struct stat status = {};
    ASSERT_EQ(::lstat(SocketFile().c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    DestroyDialogWindow(*window);
    EXPECT_FALSE(fs::exists(fs::symlink_status(SocketFile())));
}

TEST_F(LinuxWindow, ReplacesTheSocketOfAKilledProcess)
{
    ASSERT_TRUE(m_peer.Do("window Class"));
    m_peer.Kill();
    ASSERT_TRUE(fs::is_socket(SocketFile()));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
    const WindowPtr window = Make();
    ASSERT_NE(window, nullptr);
    EXPECT_NE(FindWindowOfClass(kClass), nullptr);
}

TEST_F(LinuxWindow, ItsProgramIsFoundAmongThoseOfOtherSessions)
{
    ASSERT_TRUE(m_peer.Do("window Class"));
    const ProgramPtr program = FindProgramOfWindow(kClass);
    ASSERT_NE(program, nullptr) << GetLastErrorCode();
    EXPECT_NE(ProcessIdentifierOf(program), CurrentProcessIdentifier());
    m_session.SetVariable("XDG_RUNTIME_DIR", m_session.LockFolder().c_str());
    const WindowPtr window = Make();
    EXPECT_EQ(ProcessIdentifierOf(FindProgramOfWindow(kClass)), CurrentProcessIdentifier());
    m_session.SetVariable("XDG_RUNTIME_DIR", m_session.RuntimeFolder().c_str());
    EXPECT_EQ(ProcessIdentifierOf(FindProgramOfWindow(kClass)), ProcessIdentifierOf(program));
    m_peer.Kill();
    EXPECT_EQ(WaitForProgramEnd(program, INFINITE), WAIT_OBJECT_0);
}

TEST_F(LinuxWindow, ItsProgramIsNotFoundWhereTheSystemShowsNoProcesses)
{
    const WindowPtr window = Make();
    std::thread([] {
        testing_support::RefuseCall(SYS_getdents64, EACCES);
        SetLastErrorCode(ERROR_SUCCESS);
        EXPECT_EQ(FindProgramOfWindow(kClass), nullptr);
        EXPECT_EQ(GetLastErrorCode(), ERROR_ACCESS_DENIED);
    }).join();
}

TEST_F(LinuxWindow, IsRefusedWhileAnotherProcessHasOne)
{
    ASSERT_TRUE(m_peer.Do("window Class"));
    EXPECT_THAT(FailToMake(ERROR_ALREADY_EXISTS),
                AllOf(HasSubstr(": cannot make the window \"Class\" in " + m_session.SessionFolder().string() + ": "),
                      EndsWith("another process of the session has it\n")));
    EXPECT_NE(FindWindowOfClass(kClass), nullptr) << "the other's is untouched";
    EXPECT_TRUE(BlocksEndSignals(false));
    EXPECT_THAT(m_recorder.Messages(), IsEmpty());
}

TEST_F(LinuxWindow, RefusesAndKeepsAFileInItsPlace)
{
    MakeSessionFolder();
    const CFileDescriptor file(::open(SocketFile().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_THAT(FailToMake(ERROR_INVALID_HANDLE), EndsWith(": something else has this name\n"));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
    EXPECT_TRUE(fs::is_regular_file(SocketFile()));
}

TEST_F(LinuxWindow, RefusesAndKeepsASymbolicLinkInItsPlace)
{
    m_session.SetVariable("XDG_RUNTIME_DIR", m_session.Folder().c_str());
    const WindowPtr other = Make();
    ASSERT_NE(other, nullptr);
    m_session.SetVariable("XDG_RUNTIME_DIR", m_session.RuntimeFolder().c_str());
    MakeSessionFolder();
    fs::create_symlink(m_session.Folder() / "AmporaSrv" / kName, SocketFile());

    EXPECT_THAT(FailToMake(ERROR_INVALID_HANDLE), EndsWith(": something else has this name\n"));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr) << "nor is it followed";
    EXPECT_TRUE(fs::is_symlink(SocketFile()));
}

TEST_F(LinuxWindow, IsRefusedInAFolderThatOthersMayEnter)
{
    const FoundWindowPtr none = FindWindowOfClass(kClass); // makes the folder
    fs::permissions(m_session.SessionFolder(), fs::perms::owner_all | fs::perms::others_exec);
    EXPECT_THAT(FailToMake(ERROR_ACCESS_DENIED),
                AllOf(HasSubstr(m_session.SessionFolder().string()), EndsWith("or not the user's alone\n")));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
}

TEST_F(LinuxWindow, IsRefusedWhereThereIsNoRuntimeFolder)
{
    m_session.SetVariable("XDG_RUNTIME_DIR", (m_session.Folder() / "missing").c_str());
    EXPECT_THAT(FailToMake(ERROR_FILE_NOT_FOUND), EndsWith(": No such file or directory\n"));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
}

TEST_F(LinuxWindow, ANameThatCannotBeAFilesIsRefused)
{
    for (const wchar_t* name : {L"a/b", L".."}) {
        RegisterDialogClass(name);
        testing::internal::CaptureStderr();
        EXPECT_EQ(CreateDialogWindow(0, name, m_recorder), nullptr);
        EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(": Invalid argument\n"));
        EXPECT_EQ(FindWindowOfClass(name), nullptr);
    }
}

TEST_F(LinuxWindow, IsRefusedWithoutDescriptorsAndKeepsNoSignals)
{
    testing::internal::CaptureStderr();
    std::optional<CResourceLimit> none(std::in_place, RLIMIT_NOFILE, 0);
    const WindowPtr window = Make();
    const DWORD code = GetLastErrorCode();
    none.reset();
    constexpr DWORD kTooManyOpenFiles = 4;
    EXPECT_EQ(window, nullptr);
    EXPECT_EQ(code, kTooManyOpenFiles);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(": Too many open files\n"));
    EXPECT_TRUE(BlocksEndSignals(false));
}

TEST_F(LinuxWindow, AWaitForMessagesThatFailsDoesNotEndTheLoop)
{
    // Symptom: a program whose wait for messages failed once ended, with success and without a reason.
    const WindowPtr window = Make();
    ASSERT_TRUE(PostToWindow(FindWindowOfClass(kClass), WM_QUIT, 7, 0));
    const CResourceLimit none(RLIMIT_NOFILE, 0); // refuses a wait for any
    EXPECT_EQ(RunMessageLoop(*window), 7);
}

TEST_F(LinuxWindow, WithoutRuntimeFolderItLiesInThePrivateFallback)
{
    // A name of this test's own, since that folder is not.
    const std::wstring name = L"Class" + std::to_wstring(CurrentProcessIdentifier());
    m_session.SetVariable("XDG_RUNTIME_DIR", nullptr);
    const fs::path folder = "/tmp/AmporaSrv-" + std::to_string(::geteuid());
    const bool wasThere = fs::exists(folder);
    RegisterDialogClass(name.c_str());
    WindowPtr window = CreateDialogWindow(0, name.c_str(), m_recorder);
    EXPECT_NE(window, nullptr);
    EXPECT_NE(FindWindowOfClass(name.c_str()), nullptr);
    EXPECT_TRUE(fs::is_socket(folder / name));
    window.reset();
    EXPECT_FALSE(fs::exists(folder / name));
    if (!wasThere) {
        std::error_code inUse;
        fs::remove(folder, inUse);
    }
}

TEST_F(LinuxWindow, ItsEndLeavesTheSocketOfAnotherProcessAlone)
{
    const WindowPtr window = Make();
    ASSERT_TRUE(fs::remove(SocketFile()));
    ASSERT_TRUE(m_peer.Do("window Class"));
    DestroyDialogWindow(*window);
    EXPECT_NE(FindWindowOfClass(kClass), nullptr);
}

TEST_F(LinuxWindow, ADatagramOfAnotherSizeIsDropped)
{
    const WindowPtr window = Make();
    const CFileDescriptor socket = ConnectMessageSocket(kName);
    const PostedMessage messages[2] = {{WM_APP, 1, 0}, {}};
    for (const std::size_t size : {sizeof(PostedMessage) - 1, sizeof(PostedMessage) + 1, std::size_t(0)}) {
        EXPECT_EQ(::send(socket.Get(), messages, size, 0), static_cast<ssize_t>(size));
    }
    EXPECT_TRUE(SendMessageTo(socket, {WM_APP, 2, 0}));
    Drain(*window);
    EXPECT_THAT(m_recorder.Messages(), ElementsAre(std::pair(WM_APP, 2)));
}

// Sends as another user, if that can be done, from a thread that is his.
void SendAs(uid_t user, const CFileDescriptor& socket, const PostedMessage& message)
{
    std::thread([&] {
        EXPECT_EQ(::syscall(SYS_setresuid, user, user, user), 0);
        EXPECT_TRUE(SendMessageTo(socket, message));
    }).join();
}

TEST_F(LinuxWindow, AMessageOfAnotherUserIsDropped)
{
    constexpr uid_t kNobody = 65534;
    const WindowPtr window = Make();
    const CFileDescriptor socket = ConnectMessageSocket(kName);
    // Only root can be somebody else; for others the message in question is never sent.
    if (::geteuid() == 0) {
        SendAs(kNobody, socket, {WM_APP, 1, 0});
    }
    SendAs(::geteuid(), socket, {WM_APP, 2, 0});
    Drain(*window);
    EXPECT_THAT(m_recorder.Messages(), ElementsAre(std::pair(WM_APP, 2)));
}

TEST_F(LinuxWindow, AMessageThatWouldCarryAPointerIsDropped)
{
    const WindowPtr window = Make();
    EXPECT_TRUE(PostToWindow(FindWindowOfClass(kClass), WM_WINDOWPOSCHANGING, 0, 1));
    Drain(*window);
    EXPECT_THAT(m_recorder.Messages(), IsEmpty());
}

TEST_F(LinuxWindow, ALockedSessionFolderIsNotWaitedForWithoutLimit)
{
    // Symptom: a program that kept the folder locked made this one hang at its start and ignore /Exit and signals.
    MakeSessionFolder();
    CFileDescriptor folder(::open(m_session.SessionFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::flock(folder.Get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_THAT(FailToMake(1460), EndsWith(": another program has locked the folder\n"));
    folder = CFileDescriptor();
    EXPECT_NE(Make(), nullptr);
}

TEST_F(LinuxWindow, AFullQueueRefusesMessagesWithoutWaiting)
{
    const WindowPtr window = Make();
    const FoundWindowPtr found = FindWindowOfClass(kClass);
    std::size_t posted = 0;
    while (posted < 100000 && PostToWindow(found, WM_APP, 0, 0)) {
        ++posted;
    }
    constexpr DWORD kNoSystemResources = 1450;
    EXPECT_EQ(GetLastErrorCode(), kNoSystemResources);
    EndMessageLoop(*window, 0);
    EXPECT_EQ(RunMessageLoop(*window), 0);
    EXPECT_EQ(m_recorder.Messages().size(), posted);
    EXPECT_TRUE(PostToWindow(found, WM_APP, 0, 0)) << "there is room again";
}

TEST_F(LinuxWindow, KeepsTheSignalsThatEndAProgramAsLongAsItLives)
{
    // Symptom: the test failed when it was itself run by nohup.
    std::signal(SIGHUP, SIG_DFL);
    ASSERT_TRUE(BlocksEndSignals(false));
    WindowPtr window = Make();
    EXPECT_TRUE(BlocksEndSignals(true));
    window.reset();
    EXPECT_TRUE(BlocksEndSignals(false));
}

TEST_F(LinuxWindow, AHangupThatTheProgramWasToldToIgnoreStaysIgnored)
{
    std::signal(SIGHUP, SIG_IGN);
    const WindowPtr window = Make();
    EXPECT_EQ(::kill(::getpid(), SIGHUP), 0);
    EXPECT_TRUE(PostToWindow(FindWindowOfClass(kClass), WM_QUIT, 4, 0));
    EXPECT_EQ(RunMessageLoop(*window), 4);
    std::signal(SIGHUP, SIG_DFL);
}

TEST_F(LinuxWindowDeathTest, EachSignalThatEndsAProgramEndsTheLoop)
{
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        EXPECT_EXIT(
            {
                std::signal(signal, SIG_DFL);
                const WindowPtr window = Make();
                std::thread sender([signal] {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    ::kill(::getpid(), signal);
                });
                const int result = RunMessageLoop(*window);
                sender.join();
                DestroyDialogWindow(*window);
                EndProcess(result == 0 && BlocksEndSignals(false) ? 7 : 1);
            },
            ExitedWithCode(7), "");
    }
}

TEST_F(LinuxWindowDeathTest, ASignalBetweenTheLoopsEndAndTheWindowsIsTaken)
{
    EXPECT_EXIT(
        {
            WindowPtr window = Make();
            ::kill(::getpid(), SIGTERM);
            ::kill(::getpid(), SIGINT);
            window.reset();
            EndProcess(8);
        },
        ExitedWithCode(8), "");
}

class LinuxWindowWithBus : public LinuxWindow {
protected:
    LinuxWindowWithBus()
    {
        m_bus.StartLoginManager();
        m_bus.AddSession("c1");
        m_session.SetVariable("DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address().c_str());
    }

    CLoginBus m_bus;
};

TEST_F(LinuxWindowWithBus, NoticesOfPowerAndSessionArrive)
{
    CWindowThread window;
    m_bus.AwaitListener("PrepareForSleep");
    m_bus.AwaitListener("PropertiesChanged");
    m_bus.PrepareForSleep(true);
    m_bus.PrepareForSleep(false);
    m_bus.SetProperty("c1", "Active", false);
    m_bus.SetProperty("c1", "Active", true);
    window.Recorder().Await(WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT);
    EXPECT_THAT(window.Recorder().Messages(), ElementsAre(std::pair(WM_POWERBROADCAST, PBT_APMSUSPEND),
                                                          std::pair(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC),
                                                          std::pair(WM_WTSSESSION_CHANGE, WTS_CONSOLE_DISCONNECT),
                                                          std::pair(WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT)));
}

TEST_F(LinuxWindowWithBus, AnIdleLoopNeverWakesUp)
{
    CWindowThread window;
    m_bus.AwaitListener("PropertiesChanged");
    m_bus.SetProperty("c1", "Active", false);
    window.Recorder().Await(WM_WTSSESSION_CHANGE, WTS_CONSOLE_DISCONNECT);
    window.AwaitSleep();
    const long before = window.Switches();
    ASSERT_GT(before, 0);
    std::this_thread::sleep_for(kIdle);
    EXPECT_EQ(window.Switches(), before);
}

TEST_F(LinuxWindowWithBus, ABusThatEndsIsForgottenQuietly)
{
    CWindowThread window;
    m_bus.AwaitListener("PrepareForSleep");
    window.AwaitSleep();
    m_bus.Stop();
    window.AwaitSleep();
    window.ExpectCalm();
}

TEST_F(LinuxWindow, ABusThatNeverAnswersDelaysNothing)
{
    const CFileDescriptor bus(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    BusSocket().string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(bus.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(bus.Get(), 1), 0);

    const auto start = std::chrono::steady_clock::now();
    CWindowThread window;
    window.AwaitSleep();
    const CFileDescriptor connection(::accept4(bus.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_TRUE(connection) << "it has been asked";
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "as long as the library may wait";
    window.ExpectCalm();
}

} // namespace
} // namespace platform::linux
