#include "platform/LastError.h"
#include "platform/Sync.h"
#include "testing/ControlTest.h"

namespace {

using platform::sim::Call;

class Update : public testing_support::CControlTest {};

TEST_F(Update, SetsTheEventThatAmporasrvWaitsFor)
{
    const platform::WaitHandle event = platform::CreateNamedEvent(L"AmporaSrvUpdateEvent", nullptr);
    EXPECT_EQ(platform::WaitForOne(event, 0, FALSE), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(Run({L"update"}), 0);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, "");
    EXPECT_EQ(platform::WaitForOne(event, 0, FALSE), DWORD{WAIT_OBJECT_0});
}

TEST_F(Update, FailsWhenAmporasrvIsNotRunning)
{
    // Symptom: looking for the event made it; an amporasrv started in that moment got one that is not open to all.
    EXPECT_EQ(Run({L"update"}), 1);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, "amporactl: amporasrv is not running\n");
    EXPECT_EQ(m_machine.CallCount(Call::kCreateNamedEvent), 0U);
}

TEST_F(Update, FailsWhenTheEventCannotBeOpened)
{
    m_machine.FailEvery(Call::kOpenNamedEvent, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run({L"update"}), 1);
    EXPECT_EQ(m_err, "amporactl: amporasrv cannot be asked (error 5)\n");
}

} // namespace
