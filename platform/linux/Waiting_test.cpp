#include "platform/linux/Waiting.h"

#include "platform/contract/linux/ScratchSession.h"
#include "platform/contract/linux/TaskWatch.h"
#include "platform/linux/NamedFile.h"
#include "platform/Thread.h"

#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>

namespace platform::linux {
namespace {

using testing_support::Await;
using testing_support::IsInCall;

// An operation on a thread of its own.
class COperation {
public:
    explicit COperation(std::function<void()> operation)
        : m_thread([this, operation = std::move(operation)] {
              m_task = CurrentThreadIdentifier();
              operation();
              m_isOver = true;
          })
    {
        Await([this] { return m_task != 0; });
    }
    ~COperation() { m_thread.join(); }
    COperation(const COperation&) = delete;
    COperation& operator=(const COperation&) = delete;

    // Waits until it has ended or sleeps in the system call. Whether it sleeps.
    bool ComesTo(long call) const
    {
        Await([this, call] { return m_isOver || IsInCall(std::to_string(m_task), call); });
        return !m_isOver;
    }

private:
    std::atomic<DWORD> m_task = 0;
    std::atomic<bool> m_isOver = false;
    std::thread m_thread;
};

class Waiting : public testing::Test {
protected:
    static WaitHandle MakeMutex(const wchar_t* name) { return CreateNamedMutex(name, FALSE, nullptr); }
    static WaitHandle MakeEvent() { return CreateNamedEvent(L"Event", nullptr); }

    testing_support::CScratchSession m_session;
};

TEST_F(Waiting, EveryOperationWaitsForTheDispatcher)
{
    const WaitHandle mutex = MakeMutex(L"Mutex");
    const WaitHandle event = MakeEvent();
    const ThreadPtr thread = StartThread([](void*) -> DWORD { return 0; }, nullptr);
    EXPECT_EQ(WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    const LARGE_INTEGER hour = {.QuadPart = -36000000000};
    WaitHandle owned;
    WaitHandle closed = MakeMutex(L"Closed");
    TimerPtr timer = MakeTimer();
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"wait", [&] { WaitForOne(event, 0, FALSE); }},
        {"own", [&] { owned = CreateNamedMutex(L"Owned", TRUE, nullptr); }},
        {"release", [&] { ReleaseOwnedMutex(mutex); }},
        {"close", [&] { closed.reset(); }},
        {"open", [&] { MakeEvent(); }},
        {"set", [&] { SetNamedEvent(event); }},
        {"pulse", [&] { PulseNamedEvent(event); }},
        {"interrupt", [&] { InterruptWait(thread); }},
        {"arm",
         [&] {
             ArmTimer(
                 timer, &hour, [](void*, DWORD, DWORD) {}, nullptr);
         }},
        {"disarm", [&] { DisarmTimer(timer); }},
        {"close timer", [&] { timer.reset(); }},
        {"end of a thread", [] { CThreadState(); }}};
    for (const auto& [name, operation] : operations) {
        std::unique_lock held(g_dispatcher);
        const COperation waiting(operation);
        EXPECT_TRUE(waiting.ComesTo(SYS_futex)) << name;
        held.unlock();
    }
}

TEST_F(Waiting, ThreadsThatOpenAnEventAtTheSameTimeGetTheSame)
{
    MakeEvent();
    CFileDescriptor file(::open(NamedFilePath(L"Event").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ASSERT_EQ(ClaimExistence(file), Existence::kNew); // the threads wait for this briefly
    WaitHandle first;
    WaitHandle second;
    {
        const COperation one([&first] { first = MakeEvent(); });
        EXPECT_TRUE(one.ComesTo(SYS_clock_nanosleep));
        const COperation other([&second] { second = MakeEvent(); });
        EXPECT_TRUE(other.ComesTo(SYS_futex));
        const std::lock_guard held(g_dispatcher);
        file = CFileDescriptor();
        EXPECT_TRUE(one.ComesTo(SYS_futex));
    }
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(first, second);
}

} // namespace
} // namespace platform::linux
