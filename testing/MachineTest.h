// The frame of tests on the simulated machine.
#pragma once

#include "config/TraceLog.h"
#include "platform/Apartment.h"
#include "platform/sim/Machine.h"
#include "platform/Thread.h"

#include <gtest/gtest.h>

namespace testing_support {

// A fresh machine, inside an apartment, on which every trace line is written.
class CMachineTest : public testing::Test {
protected:
    CMachineTest()
    {
        g_dwLogLevel = kTraceErr | kTraceWar | kTraceTra | kTraceScope;
        platform::EnterApartment();
    }
    ~CMachineTest() override
    {
        platform::LeaveApartment();
        g_dwLogLevel = 0;
    }

    platform::sim::CMachine m_machine;
};

} // namespace testing_support
