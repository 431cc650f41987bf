#include "platform/Pause.h"
#include "platform/Sync.h"
#include "testing/CopyTest.h"

#include <algorithm>

namespace {

using platform::sim::Call;

class CopyVerbs : public testing_support::CCopyTest {};
using Exit = CopyVerbs;
using Start = CopyVerbs;
using Restart = CopyVerbs;

// What ends at once, as amporasrv does where it can make no window.
int RunNothing() { return 1; }

// A program that takes this long to end once its window is gone.
void PutSlowProgram(platform::sim::CMachine& machine, DWORD endMs)
{
    machine.PutProgram(L"amporasrv", [endMs] {
        CAmporaSrvApp().Run({});
        platform::Pause(endMs);
        return 0;
    });
}

TEST_F(Exit, EndsTheCopyAndWaitsForItWhenAsked)
{
    PutSlowProgram(m_machine, 1000);
    EXPECT_EQ(Run({L"start"}), 0);
    const auto window = m_machine.WindowOf(kWindowClassName);
    ASSERT_TRUE(window);
    ExpectRun({L"exit"}, 0, "", "");
    EXPECT_FALSE(HasEnded(window->processId));
    m_machine.RunFor(1000);
    EXPECT_TRUE(HasEnded(window->processId));
    EXPECT_EQ(Run({L"start"}), 0);
    const DWORD process = m_machine.WindowOf(kWindowClassName)->processId;
    ExpectRun({L"exit", L"--wait"}, 0, "", "");
    EXPECT_TRUE(HasEnded(process));
}

TEST_F(Exit, HasNothingToDoWhenAmporasrvIsNotRunning)
{
    // Symptom: looking for the copy made its mutex; an amporasrv started in that moment ended at once.
    ExpectRun({L"exit"}, 0, "amporasrv was not running\n", "");
    ExpectRun({L"exit", L"--wait"}, 0, "amporasrv was not running\n", "");
    EXPECT_EQ(m_machine.CallCount(Call::kCreateNamedMutex), 0U);
}

TEST_F(Exit, TellsWhatPreventsTheEnd)
{
    const DWORD process = StartCopy();
    m_machine.FailCall(Call::kPostToWindow, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"exit", L"--wait"}, 1, "", "amporactl: amporasrv cannot be told to end (error 5)\n");
    EXPECT_FALSE(HasEnded(process));
    m_machine.FailCall(Call::kFindProgramOfWindow, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"exit", L"--wait"}, 0, "", "");
    EXPECT_TRUE(HasEnded(process)) << "also when the system does not tell whose window it is";
    PutSlowProgram(m_machine, 11'000);
    EXPECT_EQ(Run({L"start"}), 0);
    ExpectRun({L"exit", L"--wait"}, 1, "", "amporactl: amporasrv has not ended within 10 seconds\n");
}

TEST_F(Start, StartsOneCopyAndNoSecondOne)
{
    ExpectRun({L"start"}, 0, "amporasrv runs (process 3000)\n", "");
    EXPECT_TRUE(m_machine.WindowExists(kWindowClassName));
    ExpectRun({L"start"}, 0, "amporasrv runs (process 3000)\n", "");
    m_machine.FailCall(Call::kFindProgramOfWindow, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"start"}, 0, "amporasrv runs\n", "");
    EXPECT_EQ(m_machine.WindowCount(), 1U);
}

TEST_F(Start, WaitsForACopyThatIsEnding)
{
    // Symptom: a start shortly after an exit found the old copy's mutex and ended at once.
    m_machine.StartProcess(1, [] {
        const platform::WaitHandle mutex = platform::CreateNamedMutex(kInstanceMutexName, TRUE, nullptr);
        platform::Pause(500);
        return 0;
    });
    m_machine.RunUntilIdle();
    ExpectRun({L"start"}, 0, "amporasrv runs (process 3001)\n", "");
    EXPECT_GE(m_machine.ElapsedMs(), 500);
}

TEST_F(Start, TellsWhatPreventsTheStart)
{
    const std::string path = std::string("C:") + platform::EncodeUtf8(platform::kPathSeparator) + "amporasrv";
    m_machine.FailCall(Call::kStartProgram, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"start"}, 1, "", "amporactl: " + path + " cannot be started (error 5)\n");
    m_machine.PutProgram(L"amporasrv", RunNothing);
    ExpectRun({L"start"}, 1, "", "amporactl: " + path + " has ended at once; run it in a terminal to see why\n");
    m_machine.PutProgram(L"amporasrv", [] {
        platform::Pause(20'000);
        return 0;
    });
    ExpectRun({L"start"}, 1, "", "amporactl: " + path + " is not ready within 10 seconds\n");
}

TEST_F(Restart, PutsANewCopyInThePlaceOfTheOldOne)
{
    ExpectRun({L"restart"}, 0, "amporasrv runs (process 3000)\n", "");
    ExpectRun({L"restart"}, 0, "amporasrv runs (process 3001)\n", "");
    EXPECT_TRUE(HasEnded(3000));
    EXPECT_EQ(m_machine.WindowCount(), 1U);
}

TEST_F(Restart, NewCopyMakesAPassAtOnce)
{
    // A request that the old copy has not served any more is served by that pass.
    SwitchUpdatingOn();
    AnswerWithReports(0);
    EXPECT_EQ(Run({L"start"}), 0);
    m_machine.RunUntilIdle();
    EXPECT_EQ(Run({L"update"}), 0);
    EXPECT_EQ(Run({L"restart"}), 0);
    m_machine.RunUntilIdle();
    const DWORD process = m_machine.WindowOf(kWindowClassName)->processId;
    constexpr std::ptrdiff_t kRequestsOfAPass = 42;
    EXPECT_EQ(std::ranges::count(m_machine.HttpExchanges(), process, &testing_support::HttpExchange::processId),
              kRequestsOfAPass);
}

TEST_F(Restart, SaysThatNoCopyRunsWhenTheNewOneCannotBeStarted)
{
    const std::string path = std::string("C:") + platform::EncodeUtf8(platform::kPathSeparator) + "amporasrv";
    const DWORD process = StartCopy();
    m_machine.FailCall(Call::kStartProgram, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"restart"}, 1, "",
              "amporactl: amporasrv has ended and does not run any more: " + path + " cannot be started (error 5)\n");
    EXPECT_TRUE(HasEnded(process));
}

TEST_F(CopyVerbs, MissingProgramIsAFailureThatLeavesTheCopyRunning)
{
    m_machine.PutProgram(L"amporasrv", nullptr);
    const std::string err = "amporactl: there is no amporasrv beside amporactl, nor in the folders of PATH\n";
    ExpectRun({L"start"}, 1, "", err);
    const DWORD process = StartCopy();
    ExpectRun({L"restart"}, 1, "", err);
    EXPECT_FALSE(HasEnded(process));
}

} // namespace
