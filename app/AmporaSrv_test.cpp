#include "app/AmporaSrv.h"

#include "config/TraceLog.h"
#include "platform/sim/Machine.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace {

using platform::Hive;
using platform::sim::Call;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using testing_support::CountTrace;

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";

class AmporaSrv : public testing::Test {
protected:
    ~AmporaSrv() override { g_dwLogLevel = 0; }

    void Put(const wchar_t* name, DWORD value) { m_machine.PutDword(Hive::kMachine, kMainKey, name, value); }

    platform::sim::CMachine m_machine;
};

TEST_F(AmporaSrv, MakesOnePassAndEndsWhenUpdatingIsEnabled)
{
    Put(L"Enable", 1);
    EXPECT_EQ(RunAmporaSrv(), 0);
    EXPECT_THAT(m_machine.HttpExchanges(), SizeIs(42));
}

TEST_F(AmporaSrv, EndsWithoutAPassWhenUpdatingIsOff)
{
    EXPECT_EQ(RunAmporaSrv(), 0);
    EXPECT_THAT(m_machine.HttpExchanges(), IsEmpty());
}

TEST_F(AmporaSrv, TracesNothingByDefault)
{
    Put(L"Enable", 1);
    RunAmporaSrv();
    EXPECT_THAT(m_machine.DebugLines(), IsEmpty());
}

TEST_F(AmporaSrv, TakesTheLogLevelFromTheSettingsOnceAtItsStart)
{
    Put(L"Enable", 1);
    Put(L"LogLevel", 8);
    m_machine.SetHttpHandler([this](const platform::sim::HttpExchange&) {
        Put(L"LogLevel", 0);
        return platform::sim::HttpAnswer{503, ""};
    });
    RunAmporaSrv();
    EXPECT_EQ(g_dwLogLevel, 8U);
    EXPECT_EQ(CountTrace("TRA", "CAmporaUpdater::ThreadProc", "Updated"), 1);
    EXPECT_EQ(CountTrace("TRA", "CAmporaUpdater::ThreadProc", "Enter"), 0);
}

TEST_F(AmporaSrv, EndsWithFailureWhenTheWorkerCannotBeStarted)
{
    m_machine.FailCall(Call::kStartThread, 1, 8);
    EXPECT_EQ(RunAmporaSrv(), 1);
}

} // namespace
