// The frame of the updater's tests.
#pragma once

#include "config/SharedNames.h"
#include "engine/AmporaUpdater.h"
#include "testing/HttpAnswer.h"
#include "testing/MachineTest.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace testing_support {

inline constexpr char kThreadName[] = "CAmporaUpdater::ThreadProc";
inline constexpr char kIntervalName[] = "CAmporaUpdater::SetIntervalUpdate";

inline constexpr std::size_t kRequestsOfAPass = 42; // as the default settings have it

// An updater whose exit flag can be seen, and whose passes can be made to fail.
class CTestUpdater : public CAmporaUpdater {
public:
    using CAmporaThread::IsExitSet;

    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        return failsUpdates ? FALSE : CAmporaUpdater::Update(sites);
    }

    bool failsUpdates = false;
};

// A machine with an updater that is not started yet.
class CUpdaterTest : public CMachineTest {
protected:
    ~CUpdaterTest() override
    {
        m_updater.Stop(1000);
        m_machine.RunFor(60'000); // for a worker that outlives it
    }

    void Put(const wchar_t* name, DWORD value)
    {
        m_machine.PutDword(platform::Hive::kMachine, L"Software\\Halvex\\AmporaSrv", name, value);
    }
    // Starts the updater and lets its worker come to its wait.
    void Start()
    {
        ASSERT_TRUE(m_updater.Start());
        m_machine.RunUntilIdle();
    }
    // The same with updating on.
    void StartEnabled()
    {
        Put(L"Enable", 1);
        Start();
    }
    // Stops the updater with a pulse that its worker misses.
    void StopMissed()
    {
        m_machine.FailCall(platform::sim::Call::kPulseNamedEventMisses, 1, 0);
        m_updater.Stop(100);
    }
    // Asks for an update, as another process does.
    void RequestUpdate()
    {
        EXPECT_TRUE(m_machine.OtherProcessSetsEvent(kUpdateEventName));
        m_machine.RunUntilIdle();
    }
    std::size_t Requests() const { return m_machine.HttpExchanges().size(); }

    CTestUpdater m_updater;
};

} // namespace testing_support
