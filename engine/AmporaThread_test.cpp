#include "engine/AmporaThread.h"

#include "config/TraceLog.h"
#include "engine/AutoLock.h"
#include "platform/sim/Machine.h"
#include "platform/Sync.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using platform::sim::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::CountTrace;
using testing_support::SlotOf;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

// Lets virtual time pass on the calling thread.
void Sleep(DWORD timeMs) { platform::WaitForOne(platform::CreateNamedEvent(L"NobodySetsIt", nullptr), timeMs, FALSE); }

// A thread whose work is a function.
class WorkThread : public CAmporaThread {
public:
    explicit WorkThread(std::function<void(WorkThread&)> work) : m_work(std::move(work)) {}
    void ThreadProc() override
    {
        ++m_runs;
        m_work(*this);
    }

    using CAmporaThread::_CallThreadProc;
    using CAmporaThread::IsExitSet;
    using CAmporaThread::m_lock;

    int Runs() const { return m_runs; }

private:
    std::function<void(WorkThread&)> m_work;
    int m_runs = 0;
};

void WorkUntilExit(WorkThread& thread)
{
    while (!thread.IsExitSet()) {
        Sleep(10);
    }
}

class AmporaThread : public testing::Test {
protected:
    AmporaThread() { g_dwLogLevel = kTraceErr | kTraceWar | kTraceTra | kTraceScope; }
    ~AmporaThread() override { g_dwLogLevel = 0; }

    // Starts a thread and lets it run until it waits.
    void Start(CAmporaThread& thread)
    {
        ASSERT_TRUE(thread.Start());
        m_machine.RunUntilIdle();
    }

    platform::sim::CMachine m_machine;
};

TEST_F(AmporaThread, SlotsAreInOrder)
{
    EXPECT_EQ(SlotOf(&CAmporaThread::Start), 1);
    EXPECT_EQ(SlotOf(&CAmporaThread::Stop), 2);
    EXPECT_EQ(SlotOf(&CAmporaThread::ThreadProc), 3);
    EXPECT_EQ(SlotOf(&CAmporaThread::SetExit), 4);
}

TEST_F(AmporaThread, StartRunsTheProcedureInsideAnApartment)
{
    int balance = 0;
    WorkThread thread([&](WorkThread&) { balance = m_machine.ApartmentBalance(); });
    Start(thread);
    EXPECT_EQ(thread.Runs(), 1);
    EXPECT_EQ(balance, 1);
    EXPECT_EQ(m_machine.ApartmentBalance(), 0);
    thread.Stop(100);
}

TEST_F(AmporaThread, SecondStartReturnsFalseSilently)
{
    WorkThread thread(WorkUntilExit);
    Start(thread);
    EXPECT_FALSE(thread.Start());
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_EQ(m_machine.CallCount(Call::kStartThread), 1U);
    thread.Stop(INFINITE);
}

TEST_F(AmporaThread, FailedCreationIsTracedAndStartMayBeTriedAgain)
{
    m_machine.FailCall(Call::kStartThread, 1, 8);
    WorkThread thread([](WorkThread&) {});
    EXPECT_FALSE(thread.Start());
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"ERR", "CAmporaThread::Start", "Thread Create Fail"}));
    Start(thread);
    EXPECT_EQ(thread.Runs(), 1);
    thread.Stop(100);
}

TEST_F(AmporaThread, StopSetsTheExitFlagAndWaits)
{
    WorkThread thread(WorkUntilExit);
    ASSERT_TRUE(thread.Start());
    m_machine.RunFor(1000);
    EXPECT_FALSE(thread.IsExitSet());
    thread.Stop(100);
    EXPECT_TRUE(thread.IsExitSet());
    EXPECT_LE(m_machine.ElapsedMs(), 1010);
}

TEST_F(AmporaThread, StopWithoutThreadDoesNotSetTheExitFlag)
{
    WorkThread thread([](WorkThread&) {});
    thread.Stop(100);
    EXPECT_FALSE(thread.IsExitSet());
    EXPECT_EQ(CountTrace("TRA", "CAmporaThread::SetExit", "Enter"), 0);
}

TEST_F(AmporaThread, StopGivesUpAfterItsTimeoutAndTheThreadGoesOn)
{
    bool ended = false;
    WorkThread thread([&](WorkThread&) {
        Sleep(5000);
        ended = true;
    });
    Start(thread);
    thread.Stop(100);
    EXPECT_EQ(m_machine.ElapsedMs(), 100);
    EXPECT_FALSE(ended);
    m_machine.RunFor(5000);
    EXPECT_TRUE(ended);
}

TEST_F(AmporaThread, StopReleasesTheLockWhileItWaits)
{
    bool locked = false;
    WorkThread thread([&](WorkThread& self) {
        WorkUntilExit(self);
        const CAutoLock lock(&self.m_lock);
        locked = true;
    });
    Start(thread);
    thread.Stop(INFINITE);
    EXPECT_TRUE(locked);
}

TEST_F(AmporaThread, StartAfterStopClearsTheExitFlag)
{
    WorkThread thread(WorkUntilExit);
    ASSERT_TRUE(thread.Start());
    thread.Stop(INFINITE);
    ASSERT_TRUE(thread.IsExitSet());
    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.IsExitSet());
    m_machine.RunFor(1000);
    EXPECT_EQ(thread.Runs(), 2);
    EXPECT_FALSE(thread.IsExitSet());
    thread.Stop(INFINITE);
}

TEST_F(AmporaThread, EachRunHasItsOwnExitFlag)
{
    // The first run is busy for 5 s, is given up after 100 ms, and a second run starts before it looks at its flag.
    std::vector<bool> exitSeen;
    WorkThread thread([&](WorkThread& self) {
        Sleep(5000);
        exitSeen.push_back(self.IsExitSet());
    });
    Start(thread);
    thread.Stop(100);
    ASSERT_TRUE(thread.Start());
    m_machine.RunFor(10000);
    EXPECT_THAT(exitSeen, ElementsAre(true, false));
    thread.Stop(100);
}

TEST_F(AmporaThread, AThreadSeesTheFlagOfAnotherObject)
{
    WorkThread other(WorkUntilExit);
    Start(other);
    std::vector<bool> exitSeen;
    WorkThread thread([&](WorkThread&) {
        exitSeen.push_back(other.IsExitSet());
        other.SetExit();
        exitSeen.push_back(other.IsExitSet());
    });
    Start(thread);
    EXPECT_THAT(exitSeen, ElementsAre(false, true));
    EXPECT_FALSE(thread.IsExitSet());
    thread.Stop(100);
    other.Stop(100);
}

TEST_F(AmporaThread, ARunKeepsASharedObjectAlive)
{
    auto thread = std::make_shared<WorkThread>([](WorkThread& self) {
        Sleep(5000);
        EXPECT_TRUE(self.IsExitSet());
    });
    const std::weak_ptr<WorkThread> watch = thread;
    Start(*thread);
    thread->Stop(100);
    thread.reset();
    EXPECT_FALSE(watch.expired());
    m_machine.RunFor(5000);
    EXPECT_TRUE(watch.expired());
}

TEST_F(AmporaThread, DestructionStopsARunningThreadWithin100Ms)
{
    {
        WorkThread thread(WorkUntilExit);
        Start(thread);
        m_machine.ClearDebugLines();
    }
    EXPECT_LE(m_machine.ElapsedMs(), 100);
    EXPECT_THAT(TraceLines(), ::testing::Contains(TraceLine{"TRA", "CAmporaThread::Stop", "Enter"}));
    EXPECT_THAT(TraceLines(), ::testing::Contains(TraceLine{"TRA", "CAmporaThread::_CallThreadProc", "Leave"}));
}

// A thread that does not look at its exit flag, nor at any other member, so that it may outlive its object.
class DeafThread : public CAmporaThread {
public:
    void ThreadProc() override { Sleep(5000); }
};

TEST_F(AmporaThread, DestructionGivesUpAfter100Ms)
{
    {
        DeafThread thread;
        Start(thread);
    }
    EXPECT_EQ(m_machine.ElapsedMs(), 100);
    EXPECT_EQ(CountTrace("TRA", "CAmporaThread::_CallThreadProc", "Leave"), 0);
    m_machine.RunFor(5000);
    EXPECT_EQ(CountTrace("TRA", "CAmporaThread::_CallThreadProc", "Leave"), 1);
}

TEST_F(AmporaThread, DestructionWithoutThreadStopsNothing)
{
    {
        WorkThread thread([](WorkThread&) {});
    }
    EXPECT_THAT(TraceLines(), ElementsAre(TraceLine{"TRA", "CAmporaThread::CAmporaThread", "Enter"},
                                          TraceLine{"TRA", "CAmporaThread::CAmporaThread", "Leave"},
                                          TraceLine{"TRA", "CAmporaThread::~CAmporaThread", "Enter"},
                                          TraceLine{"TRA", "CAmporaThread::~CAmporaThread", "Leave"}));
}

TEST_F(AmporaThread, ExceptionLeavesTheApartmentOpen)
{
    WorkThread thread([](WorkThread&) { throw std::runtime_error("work fails"); });
    Start(thread);
    EXPECT_EQ(m_machine.ApartmentBalance(), 1);
    thread.Stop(100);
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

TEST_F(AmporaThread, EntryWithoutObjectReturns0)
{
    EXPECT_EQ(WorkThread::_CallThreadProc(nullptr), 0U);
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_EQ(m_machine.ApartmentBalance(), 0);
}

} // namespace
