#include "engine/AutoLock.h"

#include "platform/sim/Machine.h"
#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using platform::CCriticalSection;

static_assert(std::has_virtual_destructor_v<CAutoLock>);

struct Probe {
    CCriticalSection* section;
    bool entered = false;
};

// Enters the section on another thread and notes that it could.
DWORD EnterSection(void* argument)
{
    auto* probe = static_cast<Probe*>(argument);
    const CAutoLock lock(probe->section);
    probe->entered = true;
    return 0;
}

TEST(AutoLock, KeepsOtherThreadsOutUntilDestroyed)
{
    platform::sim::CMachine machine;
    CCriticalSection section;
    Probe probe{&section};
    platform::ThreadPtr thread;
    {
        const CAutoLock lock(&section);
        thread = platform::StartThread(&EnterSection, &probe);
        machine.RunUntilIdle();
        EXPECT_FALSE(probe.entered);
    }
    EXPECT_EQ(platform::WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(probe.entered);
}

TEST(AutoLock, LeavesWhenAnExceptionPasses)
{
    platform::sim::CMachine machine;
    CCriticalSection section;
    EXPECT_THROW(
        {
            const CAutoLock lock(&section);
            throw std::runtime_error("passes");
        },
        std::runtime_error);
    Probe probe{&section};
    const platform::ThreadPtr thread = platform::StartThread(&EnterSection, &probe);
    EXPECT_EQ(platform::WaitForThread(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(probe.entered);
}

TEST(AutoLock, NestsOnOneThread)
{
    platform::sim::CMachine machine;
    CCriticalSection section;
    Probe probe{&section};
    platform::ThreadPtr thread;
    {
        const CAutoLock outer(&section);
        {
            const CAutoLock inner(&section);
        }
        thread = platform::StartThread(&EnterSection, &probe);
        machine.RunUntilIdle();
        EXPECT_FALSE(probe.entered);
    }
    platform::WaitForThread(thread, INFINITE);
    EXPECT_TRUE(probe.entered);
}

} // namespace
