#include "engine/AutoLock.h"

#include "platform/sim/Machine.h"
#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace {

using platform::CCriticalSection;

static_assert(std::has_virtual_destructor_v<CAutoLock>);

class AutoLock : public testing::Test {
protected:
    // Starts another thread that enters the section and notes that it could. Whether it is in by the time it waits.
    bool CanOtherThreadEnter()
    {
        m_thread = platform::StartThread(&EnterSection, this);
        m_machine.RunUntilIdle();
        return m_entered;
    }
    // Waits until that thread has entered.
    void ExpectOtherThreadEnters()
    {
        EXPECT_EQ(platform::WaitForThread(m_thread, INFINITE), WAIT_OBJECT_0);
        EXPECT_TRUE(m_entered);
    }

    platform::sim::CMachine m_machine;
    CCriticalSection m_section;

private:
    static DWORD EnterSection(void* argument)
    {
        auto* test = static_cast<AutoLock*>(argument);
        const CAutoLock lock(&test->m_section);
        test->m_entered = true;
        return 0;
    }

    platform::ThreadPtr m_thread;
    bool m_entered = false;
};

TEST_F(AutoLock, KeepsOtherThreadsOutUntilDestroyed)
{
    {
        const CAutoLock lock(&m_section);
        EXPECT_FALSE(CanOtherThreadEnter());
    }
    ExpectOtherThreadEnters();
}

TEST_F(AutoLock, LeavesWhenAnExceptionPasses)
{
    EXPECT_THROW(
        {
            const CAutoLock lock(&m_section);
            throw std::runtime_error("passes");
        },
        std::runtime_error);
    EXPECT_TRUE(CanOtherThreadEnter());
    ExpectOtherThreadEnters();
}

TEST_F(AutoLock, NestsOnOneThread)
{
    {
        const CAutoLock outer(&m_section);
        {
            const CAutoLock inner(&m_section);
        }
        EXPECT_FALSE(CanOtherThreadEnter());
    }
    ExpectOtherThreadEnters();
}

} // namespace
