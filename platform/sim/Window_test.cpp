#include "platform/Window.h"

#include "platform/LastError.h"
#include "platform/sim/Machine.h"
#include "testing/TestThread.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::StartBody;

constexpr wchar_t kClass[] = L"Class";

// Writes down what arrives.
class CRecorder : public CMessageReceiver {
public:
    LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        messages.push_back({message, wParam, lParam});
        if (message == WM_INITDIALOG) {
            RegisterSessionNotices(window);
        }
        return ProcessByDefault(window, message, wParam, lParam);
    }

    struct Message {
        UINT number;
        WPARAM wParam;
        LPARAM lParam;
        bool operator==(const Message&) const = default;
    };
    std::vector<Message> messages;
};

// A process with a window that runs until its message loop ends.
int RunWindow(CRecorder& recorder)
{
    RegisterDialogClass(kClass);
    const WindowPtr window = CreateDialogWindow(102, kClass, recorder);
    return RunMessageLoop(*window);
}

TEST(SimWindow, IsFoundOnlyInItsSession)
{
    CMachine machine;
    CRecorder recorder;
    machine.StartProcess(2, [&] { return RunWindow(recorder); });
    machine.RunUntilIdle();
    EXPECT_TRUE(machine.WindowExists(kClass, 2));
    EXPECT_FALSE(machine.WindowExists(kClass));
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
    bool found = false;
    machine.StartProcess(2, [&] {
        const FoundWindowPtr window = FindWindowOfClass(kClass);
        found = window != nullptr;
        return PostToWindow(window, WM_QUIT, 0, 0);
    });
    machine.RunUntilIdle();
    EXPECT_TRUE(found);
    EXPECT_EQ(machine.WindowCount(), 0U);
}

TEST(SimWindow, TellsTestsHowItWasMade)
{
    CMachine machine;
    CRecorder recorder;
    RegisterDialogClass(kClass);
    const WindowPtr window = CreateDialogWindow(102, kClass, recorder);
    std::optional<SimWindow> seen = machine.WindowOf(kClass);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->templateNumber, 102);
    EXPECT_EQ(seen->processId, CurrentProcessIdentifier());
    EXPECT_TRUE(seen->takesInput);
    EXPECT_TRUE(seen->getsSessionNotices);
    EXPECT_FALSE(EnableWindowInput(*window, FALSE));
    seen = machine.WindowOf(kClass);
    ASSERT_TRUE(seen);
    EXPECT_FALSE(seen->takesInput);
    EXPECT_TRUE(EnableWindowInput(*window, TRUE));
    DestroyDialogWindow(*window);
    EXPECT_FALSE(machine.WindowOf(kClass));
}

TEST(SimWindow, ClassBelongsToTheProcessThatRegisteredIt)
{
    CMachine machine;
    CRecorder recorder;
    EXPECT_EQ(CreateDialogWindow(102, kClass, recorder), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_CANNOT_FIND_WND_CLASS);
    RegisterDialogClass(kClass);
    bool made = true;
    machine.StartProcess(1, [&] {
        made = CreateDialogWindow(102, kClass, recorder) != nullptr;
        return 0;
    });
    machine.RunUntilIdle();
    EXPECT_FALSE(made);
    EXPECT_THAT(recorder.messages, IsEmpty());
}

TEST(SimWindow, PowerReachesAllWindowsAndSessionNoticesThoseThatAsked)
{
    CMachine machine;
    CRecorder first;
    CRecorder second;
    machine.FailCall(Call::kRegisterSessionNotices, 2, ERROR_ACCESS_DENIED);
    machine.StartProcess(1, [&] { return RunWindow(first); });
    machine.StartProcess(2, [&] { return RunWindow(second); });
    machine.RunUntilIdle();
    machine.NotifyPower(PBT_APMSUSPEND);
    machine.NotifySession(1, WTS_CONSOLE_CONNECT);
    machine.NotifySession(2, WTS_CONSOLE_CONNECT);
    machine.RunUntilIdle();
    const CRecorder::Message begin{WM_INITDIALOG, 0, 0};
    const CRecorder::Message suspend{WM_POWERBROADCAST, PBT_APMSUSPEND, 0};
    EXPECT_THAT(first.messages,
                ElementsAre(begin, suspend, CRecorder::Message{WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT, 1}));
    EXPECT_THAT(second.messages, ElementsAre(begin, suspend));
    machine.OtherProcessPosts(kClass, WM_QUIT, 0, 0);
    machine.OtherProcessPosts(kClass, WM_QUIT, 0, 0, 2);
    machine.RunUntilIdle();
}

TEST(SimWindow, GoesWithItsThread)
{
    CMachine machine;
    CRecorder recorder;
    WindowPtr window;
    StartBody([&] {
        RegisterDialogClass(kClass);
        window = CreateDialogWindow(102, kClass, recorder);
    });
    machine.RunUntilIdle();
    EXPECT_NE(window, nullptr);
    EXPECT_FALSE(machine.WindowExists(kClass));
}

TEST(SimWindow, CallsFailWhenAskedTo)
{
    CMachine machine;
    CRecorder recorder;
    machine.FailCall(Call::kInitializeControls, 1, ERROR_OUTOFMEMORY);
    machine.FailCall(Call::kRegisterDialogClass, 1, ERROR_ALREADY_EXISTS);
    machine.FailCall(Call::kCreateDialogWindow, 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(InitializeControls(0xFF));
    EXPECT_TRUE(InitializeControls(0xFF));
    EXPECT_FALSE(RegisterDialogClass(kClass));
    EXPECT_EQ(GetLastErrorCode(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(CreateDialogWindow(102, kClass, recorder), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(CreateDialogWindow(102, kClass, recorder), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_CANNOT_FIND_WND_CLASS);
}

TEST(SimWindow, DefaultGrantsPowerRequests)
{
    class CResults : public CMessageReceiver {
    public:
        LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
        {
            last = ProcessByDefault(window, message, wParam, lParam);
            return last;
        }
        LRESULT last = -1;
    };
    CMachine machine;
    CResults results;
    RegisterDialogClass(kClass);
    const WindowPtr window = CreateDialogWindow(102, kClass, results);
    EXPECT_EQ(results.last, 0);
    machine.NotifyPower(PBT_APMSUSPEND);
    EndMessageLoop(*window, 0);
    EXPECT_EQ(RunMessageLoop(*window), 0);
    EXPECT_EQ(results.last, 1);
}

TEST(SimWindowDeathTest, UseByAnotherThreadEndsTheProgram)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            CRecorder recorder;
            RegisterDialogClass(kClass);
            const WindowPtr window = CreateDialogWindow(102, kClass, recorder);
            StartBody([&] { RunMessageLoop(*window); });
            machine.RunUntilIdle();
        },
        "a window is used by a thread that did not create it");
}

TEST(SimWindowDeathTest, DeadlockReportNamesTheWindow)
{
    EXPECT_DEATH(
        {
            CMachine machine;
            CRecorder recorder;
            RunWindow(recorder);
        },
        "thread 1 waits for a message to window \"Class\"");
}

} // namespace
} // namespace platform::sim
