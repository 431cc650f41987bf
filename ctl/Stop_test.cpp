#include "config/SharedNames.h"
#include "platform/Sync.h"
#include "platform/Window.h"
#include "testing/ControlTest.h"

namespace {

using platform::sim::Call;

// The window of a copy: lets the system do everything.
class CReceiver : public platform::CMessageReceiver {
public:
    LRESULT ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        return platform::ProcessByDefault(window, message, wParam, lParam);
    }
};

// A copy that takes a second to end when it is told to.
int RunCopy()
{
    const platform::WaitHandle mutex = platform::CreateNamedMutex(kInstanceMutexName, TRUE, nullptr);
    platform::RegisterDialogClass(kWindowClassName);
    CReceiver receiver;
    const platform::WindowPtr window = platform::CreateDialogWindow(102, kWindowClassName, receiver);
    platform::RunMessageLoop(*window);
    platform::WaitForOne(platform::CreateNamedEvent(L"Never", nullptr), 1000, FALSE);
    return 0;
}

class Stop : public testing_support::CControlTest {
protected:
    void ExpectStop(int exitCode, const std::string& out, const std::string& err)
    {
        EXPECT_EQ(Run({L"stop"}), exitCode);
        EXPECT_EQ(m_out, out);
        EXPECT_EQ(m_err, err);
    }
};

TEST_F(Stop, WaitsForTheEndOfTheCopyThatItEnds)
{
    const DWORD copy = m_machine.StartProcess(1, RunCopy);
    m_machine.RunUntilIdle();
    ExpectStop(0, "", "");
    EXPECT_EQ(m_machine.ExitCodeOf(copy), 0);
    EXPECT_EQ(m_machine.ElapsedMs(), 1000);
    EXPECT_FALSE(m_machine.NamedObjectExists(kInstanceMutexName));
}

TEST_F(Stop, HasNothingToDoWhenAmporasrvIsNotRunning)
{
    ExpectStop(0, "amporasrv was not running\n", "");
    EXPECT_EQ(m_machine.CallCount(Call::kPostToWindow), 0U);
}

TEST_F(Stop, GivesUpOnACopyThatDoesNotEnd)
{
    m_machine.OtherProcessAcquiresMutex(kInstanceMutexName);
    ExpectStop(1, "", "amporactl: amporasrv has not ended within 10 seconds\n");
    EXPECT_EQ(m_machine.ElapsedMs(), 10'000);
}

TEST_F(Stop, TellsWhatTheSystemRefuses)
{
    m_machine.FailCall(Call::kCreateNamedMutex, 1, ERROR_ACCESS_DENIED);
    ExpectStop(1, "", "amporactl: amporasrv cannot be looked for (error 5)\n");
    m_machine.StartProcess(1, RunCopy);
    m_machine.RunUntilIdle();
    m_machine.FailCall(Call::kPostToWindow, 1, ERROR_ACCESS_DENIED);
    ExpectStop(1, "", "amporactl: amporasrv cannot be told to end (error 5)\n");
    ExpectStop(0, "", "");
}

} // namespace
