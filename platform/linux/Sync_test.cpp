#include "platform/Sync.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/contract/linux/ResourceLimit.h"
#include "platform/contract/linux/ScratchSession.h"
#include "platform/contract/linux/TaskWatch.h"
#include "platform/LastError.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Waiting.h"
#include "platform/Thread.h"
#include "platform/Timer.h"
#include "testing/FailingMemory.h"
#include "testing/process/Peer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace platform::linux {
namespace {

using testing_support::Await;
using testing_support::Blocks;
using testing_support::CFailingMemory;
using testing_support::CPeer;
using testing_support::CResourceLimit;
using testing_support::CScratchSession;
using testing_support::IsInCall;
using testing_support::IsPolling;
using testing_support::OwnTask;
using testing_support::RefuseCall;
using testing_support::VoluntarySwitches;

namespace fs = std::filesystem;

// A wait that only a failing test sees the end of.
constexpr DWORD kLongMs = 20000;
// A wait that polled would wake up many times.
constexpr DWORD kCalmMs = 300;
// What a wait may cost in all: going to sleep, waking up, and meeting another thread at a lock.
constexpr long kFewSwitches = 4;

class LinuxSync : public testing::Test {
protected:
    // A sanitizer starts a thread of its own with the first one; it is not to be counted.
    LinuxSync()
    {
        std::thread([] {}).join();
    }

    static WaitHandle MakeMutex(const wchar_t* name = L"Mutex") { return CreateNamedMutex(name, FALSE, nullptr); }
    static WaitHandle MakeEvent(const wchar_t* name = L"Event") { return CreateNamedEvent(name, nullptr); }

    CFileDescriptor OpenFile(const char* name, int flags) const
    {
        return CFileDescriptor(::open((m_session.SessionFolder() / name).c_str(), flags | O_CLOEXEC));
    }
    // What any other program does with an event's file.
    bool WriteTo(const char* name, const std::string& bytes) const
    {
        const CFileDescriptor file = OpenFile(name, O_WRONLY | O_NONBLOCK);
        return ::write(file.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    // Takes the lock of a mutex's file without having the mutex. None when somebody else has it.
    CFileDescriptor LockFile(const char* name) const
    {
        CFileDescriptor file = OpenFile(name, O_RDONLY);
        return ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0 ? std::move(file) : CFileDescriptor();
    }

    CScratchSession m_session;
    CPeer m_peer;
};

std::size_t ResidentBytes()
{
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm").ignore(100, ' ') >> pages;
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::set<std::string> Tasks()
{
    std::set<std::string> tasks;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/task")) {
        tasks.insert(entry.path().filename());
    }
    return tasks;
}

std::set<std::string> TasksSince(const std::set<std::string>& before)
{
    std::set<std::string> tasks = Tasks();
    std::erase_if(tasks, [&before](const std::string& task) { return before.contains(task); });
    return tasks;
}

TEST_F(LinuxSync, AWaitForAnEventAndATimerSleepsThrough)
{
    const WaitHandle event = MakeEvent();
    const TimerPtr timer = MakeTimer();
    const LARGE_INTEGER hour = {.QuadPart = -36000000000};
    ASSERT_TRUE(ArmTimer(
        timer, &hour, [](void*, DWORD, DWORD) {}, nullptr));
    const long before = VoluntarySwitches(OwnTask());
    EXPECT_EQ(WaitForOne(event, kCalmMs, TRUE), WAIT_TIMEOUT);
    EXPECT_LE(VoluntarySwitches(OwnTask()) - before, kFewSwitches);
}

TEST_F(LinuxSync, AWaitForAMutexOfAnotherProcessSleepsThrough)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    const std::array<WaitHandle, 2> objects = {MakeMutex(), MakeEvent()};
    const std::set<std::string> tasks = Tasks();
    const long before = VoluntarySwitches(OwnTask());
    EXPECT_EQ(WaitForAny(objects, kCalmMs, FALSE), WAIT_TIMEOUT);
    EXPECT_LE(VoluntarySwitches(OwnTask()) - before, kFewSwitches);
    const std::set<std::string> helpers = TasksSince(tasks);
    ASSERT_EQ(helpers.size(), 1U) << "one thread waits for the lock";
    const long helperSwitches = VoluntarySwitches(*helpers.begin());
    EXPECT_GE(helperSwitches, 0);
    EXPECT_LE(helperSwitches, kFewSwitches);
}

TEST_F(LinuxSync, AWaitForAMutexOfAnotherThreadSleepsThroughWithoutHelp)
{
    const WaitHandle mutex = CreateNamedMutex(L"Mutex", TRUE, nullptr);
    long switches = -1;
    std::set<std::string> helpers;
    std::thread([&] {
        const std::set<std::string> tasks = Tasks();
        const long before = VoluntarySwitches(OwnTask());
        EXPECT_EQ(WaitForOne(mutex, kCalmMs, FALSE), WAIT_TIMEOUT);
        switches = VoluntarySwitches(OwnTask()) - before;
        helpers = TasksSince(tasks);
    }).join();
    EXPECT_GE(switches, 1) << "it works all the time";
    EXPECT_LE(switches, kFewSwitches);
    EXPECT_TRUE(helpers.empty());
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, TheThreadThatAwaitsALockHandlesNoSignalsOfTheProcess)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    const WaitHandle mutex = MakeMutex();
    const std::set<std::string> tasks = Tasks();
    EXPECT_EQ(WaitForOne(mutex, 5, FALSE), WAIT_TIMEOUT);
    const std::set<std::string> helpers = TasksSince(tasks);
    ASSERT_EQ(helpers.size(), 1U);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGUSR1}) {
        EXPECT_TRUE(Blocks(*helpers.begin(), signal)) << signal;
    }
    testing_support::Await([&] { return !Blocks(*helpers.begin(), SIGURG); }); // which ends its wait
}

TEST_F(LinuxSync, OneThreadAwaitsTheLockForAllWaits)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    const WaitHandle mutex = MakeMutex();
    const std::set<std::string> tasks = Tasks();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitForOne(mutex, 5, FALSE), WAIT_TIMEOUT);
    }
    EXPECT_EQ(TasksSince(tasks).size(), 1U);
    ASSERT_TRUE(m_peer.Do("release Mutex"));
    EXPECT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, ALockThatComesWhenNobodyWaitsIsGivenBack)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    const WaitHandle mutex = MakeMutex();
    const std::set<std::string> tasks = Tasks();
    EXPECT_EQ(WaitForOne(mutex, 5, FALSE), WAIT_TIMEOUT);
    {
        const std::lock_guard held(g_dispatcher);
        ASSERT_TRUE(m_peer.Do("release Mutex"));
        std::set<std::string> helpers;
        Await([&] {
            helpers = TasksSince(tasks);
            return helpers.empty() || IsInCall(*helpers.begin(), SYS_futex);
        });
        EXPECT_FALSE(helpers.empty()) << "it waits for the dispatcher";
    }
    Await([&tasks] { return TasksSince(tasks).empty(); });
    EXPECT_TRUE(LockFile("Mutex"));
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0) << "it was not abandoned either";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AHandleClosedWhileTheLockIsAwaitedLeavesNothingBehind)
{
    // Symptom: a thread stayed for as long as another program kept the lock of a mutex that was long closed.
    MakeMutex();
    CFileDescriptor lock = LockFile("Mutex");
    ASSERT_TRUE(lock);
    WaitHandle mutex = MakeMutex();
    const std::set<std::string> tasks = Tasks();
    EXPECT_EQ(WaitForOne(mutex, 5, FALSE), WAIT_TIMEOUT);
    mutex.reset();
    Await([&tasks] { return TasksSince(tasks).empty(); });
    mutex = MakeMutex();
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS) << "the mutex had gone";
    lock = CFileDescriptor();
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, TwoHandlesOfOneProcessContend)
{
    const WaitHandle first = MakeMutex();
    const WaitHandle second = MakeMutex();
    EXPECT_EQ(WaitForOne(first, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_FALSE(ReleaseOwnedMutex(second));
    EXPECT_TRUE(ReleaseOwnedMutex(first));
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(second));
}

TEST_F(LinuxSync, ClosingAnOwnedMutexAbandonsIt)
{
    WaitHandle first = MakeMutex();
    const WaitHandle second = MakeMutex();
    EXPECT_EQ(WaitForOne(first, 0, FALSE), WAIT_OBJECT_0);
    first.reset();
    EXPECT_EQ(WaitForOne(second, 0, FALSE), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseOwnedMutex(second));
}

TEST_F(LinuxSync, AKilledOnlyOwnerLeavesAFreeMutex)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    m_peer.Kill();
    const WaitHandle mutex = MakeMutex();
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AKilledOwnerEndsAWaitAsAbandoned)
{
    ASSERT_TRUE(m_peer.Do("acquire Mutex"));
    const WaitHandle mutex = MakeMutex();
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] {
        result = WaitForOne(mutex, kLongMs, FALSE);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    });
    m_peer.Kill();
    waiter.join();
    EXPECT_EQ(result, WAIT_ABANDONED_0);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AThreadIsSeenToEndOnlyAfterItsMutexesAreAbandoned)
{
    for (int i = 0; i < 50; ++i) {
        WaitHandle mutex = MakeMutex();
        const ThreadPtr thread = StartThread(
            [](void* argument) -> DWORD { return WaitForOne(*static_cast<WaitHandle*>(argument), 0, FALSE); }, &mutex);
        ASSERT_EQ(WaitForThread(thread, kLongMs), WAIT_OBJECT_0);
        ASSERT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_ABANDONED_0);
        ASSERT_TRUE(ReleaseOwnedMutex(mutex));
    }
}

// Also a thread that the platform did not start.
TEST_F(LinuxSync, AThreadThatEndsHandsItsMutexToAWaitingOne)
{
    const WaitHandle mutex = MakeMutex();
    std::thread([&] { EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0); }).join();
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_ABANDONED_0);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] {
        result = WaitForOne(mutex, kLongMs, FALSE);
        EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    });
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0) << "and is told once";
}

TEST_F(LinuxSync, ManyThreadsOfTwoHandlesExcludeEachOther)
{
    constexpr int kRounds = 200;
    const std::array<WaitHandle, 2> handles = {MakeMutex(), MakeMutex()};
    int counter = 0; // by no other means than the mutex
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, mutex = handles[static_cast<std::size_t>(i % 2)]] {
            for (int round = 0; round < kRounds; ++round) {
                ASSERT_EQ(WaitForOne(mutex, kLongMs, FALSE), WAIT_OBJECT_0);
                const int seen = counter;
                std::this_thread::yield();
                counter = seen + 1;
                ASSERT_TRUE(ReleaseOwnedMutex(mutex));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 4 * kRounds);
}

TEST_F(LinuxSync, WritingToItsFileSetsAnEvent)
{
    const WaitHandle event = MakeEvent();
    EXPECT_TRUE(WriteTo("Event", "\n"));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(WriteTo("Event", std::string(60000, 'x'))) << "however much is written";
    EXPECT_TRUE(WriteTo("Event", "x")) << "and how often";
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, kLongMs, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(LinuxSync, EverySettingReleasesAThreadThatWaits)
{
    constexpr std::size_t kThreads = 8;
    const WaitHandle event = MakeEvent();
    const std::set<std::string> tasks = Tasks();
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&event] { EXPECT_EQ(WaitForOne(event, kLongMs, FALSE), WAIT_OBJECT_0); });
    }
    Await([&tasks] {
        const std::set<std::string> waiting = TasksSince(tasks);
        return waiting.size() == kThreads && std::ranges::all_of(waiting, IsPolling);
    });
    for (std::size_t i = 0; i < kThreads; ++i) {
        EXPECT_TRUE(SetNamedEvent(event));
    }
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT) << "each was for a thread that waited already";
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(LinuxSync, AWaitWithoutLimitReturnsFreedMemoryToTheSystemFirst)
{
    // Symptom: after one hostile report the idle program kept 340 MB.
    constexpr std::size_t kBlocks = 1000;
    std::vector<std::vector<char>> blocks(kBlocks);
    for (std::vector<char>& block : blocks) {
        block.resize(std::size_t{32} * 1024);
    }
    const std::vector<char> atTheEnd(1024); // so that the C library cannot return the blocks when they are freed
    blocks.clear();
    const std::size_t before = ResidentBytes();

    const WaitHandle event = MakeEvent();
    std::thread waiting([&event] { EXPECT_EQ(WaitForOne(event, INFINITE, FALSE), WAIT_OBJECT_0); });
    Await([before] { return ResidentBytes() < before - 25'000'000; });
    EXPECT_TRUE(SetNamedEvent(event));
    waiting.join();
    EXPECT_EQ(atTheEnd.size(), 1024U);
}

TEST_F(LinuxSync, AFullFileIsASetEvent)
{
    const WaitHandle event = MakeEvent();
    const CFileDescriptor file = OpenFile("Event", O_WRONLY | O_NONBLOCK);
    while (::write(file.Get(), "0123456789abcdef", 16) > 0) {
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(SetNamedEvent(event));
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

TEST_F(LinuxSync, AnEventThatNobodyHasCannotBeWrittenTo)
{
    MakeEvent();
    EXPECT_FALSE(WriteTo("Event", "x"));
    ASSERT_NE(MakeEvent(), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
}

TEST_F(LinuxSync, AnEventWorksAcrossProcessesInBothDirections)
{
    const WaitHandle event = MakeEvent();
    EXPECT_TRUE(m_peer.Do("set Event"));
    EXPECT_EQ(WaitForOne(event, kLongMs, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(SetNamedEvent(event));
    const CFileDescriptor other = OpenFile("Event", O_RDONLY | O_NONBLOCK);
    char byte = 0;
    EXPECT_EQ(::read(other.Get(), &byte, 1), 1) << "whoever reads first takes it";
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
}

ThreadPtr StartIdleThread()
{
    return StartThread([](void*) -> DWORD { return 0; }, nullptr);
}

// Does everything that needs a descriptor, on a thread that has not slept in a wait yet.
void FailWithoutDescriptors(const WaitHandle& event)
{
    static constexpr DWORD kTooManyOpenFiles = 4;
    const auto expectFailure = [](bool failed) {
        EXPECT_TRUE(failed);
        EXPECT_EQ(GetLastErrorCode(), kTooManyOpenFiles);
        SetLastErrorCode(0);
    };
    const CResourceLimit none(RLIMIT_NOFILE, 0);
    expectFailure(CreateNamedMutex(L"Mutex", FALSE, nullptr) == nullptr);
    expectFailure(CreateNamedEvent(L"Other", nullptr) == nullptr);
    expectFailure(MakeTimer() == nullptr);
    expectFailure(StartIdleThread() == nullptr);
    expectFailure(WaitForOne(event, 5, FALSE) == WAIT_FAILED);
}

TEST_F(LinuxSync, WithoutDescriptorsEverythingFailsWithItsCode)
{
    const WaitHandle event = MakeEvent();
    std::thread([&event] {
        // All of it once with descriptors: a sanitizer that meets a class for the first time needs them too.
        EXPECT_NE(MakeMutex(), nullptr);
        EXPECT_NE(MakeEvent(L"Other"), nullptr);
        EXPECT_NE(MakeTimer(), nullptr);
        EXPECT_EQ(WaitForThread(StartIdleThread(), kLongMs), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT);
        FailWithoutDescriptors(event);
    }).join();
    EXPECT_EQ(WaitForOne(event, 0, FALSE), WAIT_TIMEOUT) << "the event is as it was";
}

// What a wait gives on a thread where a system call fails, and how it explains it.
std::pair<DWORD, DWORD> WaitRefused(const WaitHandle& object, unsigned call, unsigned error,
                                    std::optional<unsigned> second = {})
{
    std::pair<DWORD, DWORD> result;
    std::thread([&] {
        RefuseCall(call, error, second);
        result.first = WaitForOne(object, kLongMs, FALSE);
        result.second = GetLastErrorCode();
    }).join();
    return result;
}

TEST_F(LinuxSync, AWaitThatTheSystemRefusesFailsWithItsCode)
{
    // Symptom: a thread spun on a lock that it could not wait for, and the wait never failed.
    const std::pair<DWORD, DWORD> noResources = {WAIT_FAILED, 1450};
    const WaitHandle mutex = MakeMutex();
    EXPECT_EQ(WaitRefused(mutex, SYS_flock, ENOLCK, LOCK_EX | LOCK_NB), noResources);
    EXPECT_EQ(WaitRefused(MakeEvent(), SYS_ppoll, ENOMEM), std::pair(WAIT_FAILED, ERROR_OUTOFMEMORY));
    CFileDescriptor lock = LockFile("Mutex");
    ASSERT_TRUE(lock);
    EXPECT_EQ(WaitRefused(mutex, SYS_flock, ENOLCK, LOCK_EX), noResources);
    EXPECT_EQ(WaitRefused(mutex, SYS_clone3, EAGAIN), noResources);
    lock = CFileDescriptor();
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_OBJECT_0) << "the mutex is as it was";
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AMutexWorksWhereNoFileMayBeWritten)
{
    // Symptom: with a file size limit of 0 the first mutex ended the program.
    const CResourceLimit none(RLIMIT_FSIZE, 0);
    const WaitHandle mutex = CreateNamedMutex(L"Mutex", TRUE, nullptr);
    EXPECT_EQ(WaitForOne(MakeMutex(), 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AnOldMarkThatCannotBeWrittenOverDoesNotMakeANewMutexAnOldOne)
{
    // Symptom: after a copy had ended, the next one took itself for a second copy when its lock file could not be
    // written.
    CreateNamedMutex(L"Mutex", TRUE, nullptr).reset(); // leaves the mark of an owner
    const CResourceLimit none(RLIMIT_FSIZE, 0);
    const WaitHandle mutex = CreateNamedMutex(L"Mutex", TRUE, nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    EXPECT_TRUE(ReleaseOwnedMutex(mutex));
}

TEST_F(LinuxSync, AMutexThatMemoryIsMissingForLeavesNothingBehind)
{
    bool isMade = false;
    for (unsigned nth = 1; !isMade; ++nth) {
        const CFailingMemory memory(nth);
        try {
            isMade = CreateNamedMutex(L"Mutex", TRUE, nullptr) != nullptr;
            EXPECT_TRUE(isMade);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(memory.HasFailed());
        }
    }
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS) << "the attempts before were not taken for another program's mutex";
}

TEST_F(LinuxSync, AnEventThatCannotBeLookedAtIsNotMade)
{
    std::thread([] {
        RefuseCall(SYS_newfstatat, ENOMEM);
        RefuseCall(SYS_fstat, ENOMEM); // which of them it is depends on the C library
        EXPECT_EQ(MakeEvent(), nullptr);
        EXPECT_EQ(GetLastErrorCode(), ERROR_OUTOFMEMORY);
    }).join();
    EXPECT_NE(MakeEvent(), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
}

TEST_F(LinuxSync, AnEventThatCannotBeWrittenToIsNotSet)
{
    const WaitHandle event = MakeEvent();
    std::thread([&event] {
        RefuseCall(SYS_write, ENOMEM);
        EXPECT_FALSE(SetNamedEvent(event));
        EXPECT_EQ(GetLastErrorCode(), ERROR_OUTOFMEMORY);
    }).join();
}

TEST_F(LinuxSync, AWaitWithoutMemoryFailsAndLeavesTheObjectAsItWas)
{
    // Symptom: a wait that ran out of memory threw, and could leave the mutex owned by a thread that did not know.
    const WaitHandle mutex = MakeMutex();
    const WaitHandle held = MakeMutex(L"Held");
    const CFileDescriptor lock = LockFile("Held");
    for (const auto& [object, expected] :
         {std::pair(mutex, WAIT_OBJECT_0), {MakeEvent(), WAIT_TIMEOUT}, {held, WAIT_TIMEOUT}}) {
        std::thread([&] {
            DWORD result = WAIT_FAILED;
            for (unsigned nth = 1; result == WAIT_FAILED; ++nth) {
                SetLastErrorCode(ERROR_SUCCESS);
                const CFailingMemory memory(nth);
                result = WaitForOne(object, 1, FALSE);
                EXPECT_EQ(result == WAIT_FAILED, memory.HasFailed());
                EXPECT_TRUE(result != WAIT_FAILED || GetLastErrorCode() == ERROR_OUTOFMEMORY);
            }
            EXPECT_EQ(result, expected);
            EXPECT_EQ(ReleaseOwnedMutex(object), result == WAIT_OBJECT_0);
        }).join();
    }
}

TEST_F(LinuxSync, TheRoutineOfATimerMayDisarmAnotherThatIsDue)
{
    struct Timers {
        std::array<TimerPtr, 2> timers = {MakeTimer(), MakeTimer()};
        int runs = 0;
    };
    Timers both;
    const auto routine = [](void* argument, DWORD, DWORD) {
        auto* const all = static_cast<Timers*>(argument);
        ++all->runs;
        EXPECT_TRUE(DisarmTimer(all->timers[0]));
        EXPECT_TRUE(DisarmTimer(all->timers[1]));
    };
    const LARGE_INTEGER atOnce = {.QuadPart = -1};
    EXPECT_TRUE(ArmTimer(both.timers[0], &atOnce, routine, &both));
    EXPECT_TRUE(ArmTimer(both.timers[1], &atOnce, routine, &both));
    EXPECT_EQ(WaitForOne(MakeEvent(), kLongMs, TRUE), WAIT_IO_COMPLETION);
    EXPECT_EQ(both.runs, 1);
}

TEST(LinuxTimer, ExtremeDueTimesAreAccepted)
{
    const CScratchSession session;
    const WaitHandle event = CreateNamedEvent(L"Event", nullptr);
    const TimerPtr timer = MakeTimer();
    bool ran = false;
    const auto routine = [](void* argument, DWORD, DWORD) { *static_cast<bool*>(argument) = true; };
    for (const LONGLONG units : {std::numeric_limits<LONGLONG>::min(), std::numeric_limits<LONGLONG>::max()}) {
        const LARGE_INTEGER dueTime = {.QuadPart = units};
        EXPECT_TRUE(ArmTimer(timer, &dueTime, routine, &ran));
        EXPECT_EQ(WaitForOne(event, 5, TRUE), WAIT_TIMEOUT);
    }
    EXPECT_FALSE(ran);
    EXPECT_FALSE(ArmTimer(timer, nullptr, routine, &ran));
    EXPECT_EQ(GetLastErrorCode(), ERROR_INVALID_PARAMETER);
}

} // namespace
} // namespace platform::linux
