#include "platform/Window.h"

#include "platform/contract/ContractTest.h"
#include "platform/Program.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <limits>
#include <vector>

using namespace platform;

namespace contract {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A template and the class that it names, registered by every test.
constexpr WORD kTemplate = 102;
constexpr wchar_t kClass[] = L"AmporaContract";
// Another one, whose class nobody registers.
constexpr WORD kOtherTemplate = 103;
constexpr wchar_t kOtherClass[] = L"AmporaContractOther";

struct Message {
    UINT number;
    WPARAM wParam;
    LPARAM lParam;
    bool operator==(const Message&) const = default;
};

// Collects what a window gets, of which a test sees the messages of its own; a system's windows may get more.
class CRecorder : public CMessageReceiver {
public:
    LRESULT ReceiveMessage(CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        m_numbers.push_back(message);
        m_threads.push_back(CurrentThreadIdentifier());
        if (message >= WM_APP) {
            m_messages.push_back({message, wParam, lParam});
        }
        if (m_handler) {
            m_handler(window, message);
        }
        return ProcessByDefault(window, message, wParam, lParam);
    }

    std::ptrdiff_t Count(UINT message) const { return std::ranges::count(m_numbers, message); }

    std::function<void(CWindow&, UINT message)> m_handler; // acts on each message
    std::vector<UINT> m_numbers;                           // of all messages
    std::vector<DWORD> m_threads;                          // on which they came
    std::vector<Message> m_messages;                       // from WM_APP on
};

class WindowContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        // On Windows the tests that run at the same time share their session, and take turns.
        m_turn = CreateNamedMutex(L"AmporaContractWindow", FALSE, nullptr);
        const DWORD waited = WaitForOne(m_turn, INFINITE, FALSE);
        EXPECT_TRUE(waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED_0) << waited;
        EXPECT_TRUE(RegisterDialogClass(kClass));
    }
    void TearDown() override
    {
        EXPECT_TRUE(ReleaseOwnedMutex(m_turn));
        m_turn.reset();
        ContractTest::TearDown();
    }

    WindowPtr MakeWindow()
    {
        WindowPtr window = CreateDialogWindow(kTemplate, kClass, m_recorder);
        EXPECT_NE(window, nullptr) << GetLastErrorCode();
        return window;
    }
    static void Post(UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
    {
        EXPECT_TRUE(PostToWindow(FindWindowOfClass(kClass), message, wParam, lParam));
    }

    CRecorder m_recorder;

private:
    WaitHandle m_turn;
};

TEST_F(WindowContract, NobodyFindsAWindowThatIsNotThere)
{
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
    EXPECT_FALSE(OtherProcessFindsWindow(kClass));
    EXPECT_FALSE(OtherProcessPostsToWindow(kClass, WM_APP, 0, 0));
}

TEST_F(WindowContract, AWindowIsFoundByEveryProcess)
{
    const WindowPtr window = MakeWindow();
    EXPECT_NE(FindWindowOfClass(kClass), nullptr);
    EXPECT_TRUE(OtherProcessFindsWindow(kClass));
    EXPECT_EQ(FindWindowOfClass(kOtherClass), nullptr);
    EXPECT_FALSE(OtherProcessFindsWindow(kOtherClass));
}

TEST_F(WindowContract, TheProgramThatHasAWindowIsFound)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_WINDOW_HANDLE, [] { return FindProgramOfWindow(kClass) != nullptr; }));
    const WindowPtr window = MakeWindow();
    const ProgramPtr program = FindProgramOfWindow(kClass);
    ASSERT_NE(program, nullptr) << GetLastErrorCode();
    EXPECT_EQ(ProcessIdentifierOf(program), CurrentProcessIdentifier());
    EXPECT_EQ(WaitForProgramEnd(program, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(FailsWith(ERROR_INVALID_WINDOW_HANDLE, [] { return FindProgramOfWindow(kOtherClass) != nullptr; }));
}

TEST_F(WindowContract, TheFirstMessageComesBeforeTheWindowIsHandedOut)
{
    bool wasFound = false;
    m_recorder.m_handler = [&wasFound](CWindow&, UINT message) {
        wasFound = wasFound || (message == WM_INITDIALOG && FindWindowOfClass(kClass) != nullptr);
    };
    const WindowPtr window = MakeWindow();
    ASSERT_FALSE(m_recorder.m_numbers.empty());
    EXPECT_EQ(m_recorder.m_numbers.front(), WM_INITDIALOG);
    EXPECT_EQ(m_recorder.Count(WM_INITDIALOG), 1);
    EXPECT_TRUE(wasFound) << "the window exists by then";
}

TEST_F(WindowContract, PostedMessagesArriveInOrderAndWhole)
{
    constexpr auto kLargest = std::numeric_limits<WPARAM>::max();
    constexpr auto kSmallest = std::numeric_limits<LPARAM>::min();
    const WindowPtr window = MakeWindow();
    Post(WM_APP + 3, 0x123456789ABCDEF0, -1);
    Post(WM_APP, kLargest, kSmallest);
    EXPECT_TRUE(OtherProcessPostsToWindow(kClass, WM_APP + 1, kLargest - 1, kSmallest + 1));
    Post(0xBFFF, 0, std::numeric_limits<LPARAM>::max());
    EXPECT_THAT(m_recorder.m_messages, IsEmpty()) << "nothing is given outside the loop";
    Post(WM_QUIT);
    EXPECT_EQ(RunMessageLoop(*window), 0);
    EXPECT_THAT(m_recorder.m_messages,
                ElementsAre(Message{WM_APP + 3, 0x123456789ABCDEF0, -1}, Message{WM_APP, kLargest, kSmallest},
                            Message{WM_APP + 1, kLargest - 1, kSmallest + 1},
                            Message{0xBFFF, 0, std::numeric_limits<LPARAM>::max()}));
}

TEST_F(WindowContract, MessagesPostedBeforeTheFirstOneIsHandledAreKept)
{
    m_recorder.m_handler = [](CWindow&, UINT message) {
        if (message == WM_INITDIALOG) {
            Post(WM_APP, 1, 2);
            Post(WM_QUIT, 3);
        }
    };
    const WindowPtr window = MakeWindow();
    EXPECT_EQ(RunMessageLoop(*window), 3);
    EXPECT_THAT(m_recorder.m_messages, ElementsAre(Message{WM_APP, 1, 2}));
}

TEST_F(WindowContract, AQuitOfAnotherProcessEndsTheLoopAndTheWindowStays)
{
    const WindowPtr window = MakeWindow();
    EXPECT_TRUE(OtherProcessPostsToWindow(kClass, WM_QUIT, 7, 0));
    EXPECT_EQ(RunMessageLoop(*window), 7);
    EXPECT_EQ(m_recorder.Count(WM_QUIT), 0) << "it is the loop's";
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 0);
    EXPECT_NE(FindWindowOfClass(kClass), nullptr);
}

TEST_F(WindowContract, TheLoopOfAWindowMayRunAgain)
{
    const WindowPtr window = MakeWindow();
    Post(WM_QUIT, 1);
    EXPECT_EQ(RunMessageLoop(*window), 1);
    Post(WM_APP);
    Post(WM_QUIT, 2);
    EXPECT_EQ(RunMessageLoop(*window), 2);
    EXPECT_THAT(m_recorder.m_messages, ElementsAre(Message{WM_APP, 0, 0}));
}

TEST_F(WindowContract, DestroyingGivesTheLastMessageOnce)
{
    WindowPtr window = MakeWindow();
    DestroyDialogWindow(*window);
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 1);
    DestroyDialogWindow(*window);
    window.reset();
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 1);
}

TEST_F(WindowContract, LettingGoOfTheLastReferenceDestroys)
{
    WindowPtr window = MakeWindow();
    WindowPtr other = window;
    window.reset();
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 0);
    EXPECT_NE(FindWindowOfClass(kClass), nullptr);
    other.reset();
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 1);
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
}

TEST_F(WindowContract, ADestroyedWindowIsNeitherFoundNorPostedTo)
{
    const WindowPtr window = MakeWindow();
    const FoundWindowPtr found = FindWindowOfClass(kClass);
    DestroyDialogWindow(*window);
    EXPECT_EQ(FindWindowOfClass(kClass), nullptr);
    EXPECT_FALSE(OtherProcessFindsWindow(kClass));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(FailsWith(ERROR_INVALID_WINDOW_HANDLE, [&] { return PostToWindow(found, WM_APP, 0, 0); }));
    }
}

TEST_F(WindowContract, DestroyingInAHandlerEndsTheLoop)
{
    m_recorder.m_handler = [](CWindow& window, UINT message) {
        if (message == WM_APP) {
            DestroyDialogWindow(window);
        }
    };
    const WindowPtr window = MakeWindow();
    Post(WM_APP);
    Post(WM_APP + 1);
    EXPECT_EQ(RunMessageLoop(*window), 0);
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 1);
    EXPECT_EQ(m_recorder.Count(WM_APP + 1), 0) << "what was waiting goes with the window";
    EXPECT_EQ(RunMessageLoop(*window), 0) << "nor does it begin again";
}

TEST_F(WindowContract, DestroyingWhileTheWindowIsDestroyedDoesNothing)
{
    m_recorder.m_handler = [](CWindow& window, UINT message) {
        if (message == WM_DESTROY) {
            DestroyDialogWindow(window);
        }
    };
    const WindowPtr window = MakeWindow();
    DestroyDialogWindow(*window);
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 1);
}

TEST_F(WindowContract, EndingTheLoopFinishesTheMessagesThatAreThere)
{
    m_recorder.m_handler = [](CWindow& window, UINT message) {
        if (message == WM_APP) {
            EndMessageLoop(window, 5);
        }
    };
    const WindowPtr window = MakeWindow();
    Post(WM_APP);
    Post(WM_APP + 1);
    EXPECT_EQ(RunMessageLoop(*window), 5);
    EXPECT_THAT(m_recorder.m_messages, ElementsAre(Message{WM_APP, 0, 0}, Message{WM_APP + 1, 0, 0}));
    EXPECT_EQ(m_recorder.Count(WM_DESTROY), 0);
}

TEST_F(WindowContract, ALoopThatIsToEndReturnsItsCodeAlsoWhenTheWindowGoesFirst)
{
    m_recorder.m_handler = [](CWindow& window, UINT message) {
        if (message == WM_APP) {
            EndMessageLoop(window, 5);
            DestroyDialogWindow(window);
        }
    };
    const WindowPtr window = MakeWindow();
    Post(WM_APP);
    EXPECT_EQ(RunMessageLoop(*window), 5);
    EXPECT_EQ(RunMessageLoop(*window), 0) << "once";
}

TEST_F(WindowContract, TheLoopMayBeEndedBeforeItBegins)
{
    const WindowPtr window = MakeWindow();
    EndMessageLoop(*window, 6);
    EXPECT_EQ(RunMessageLoop(*window), 6);
}

TEST_F(WindowContract, ASecondWindowHasNothingOfTheFirst)
{
    {
        const WindowPtr first = MakeWindow();
        Post(WM_QUIT, 1);
        EXPECT_EQ(RunMessageLoop(*first), 1);
    }
    CRecorder second;
    const WindowPtr window = CreateDialogWindow(kTemplate, kClass, second);
    ASSERT_NE(window, nullptr);
    Post(WM_APP);
    Post(WM_QUIT, 2);
    EXPECT_EQ(RunMessageLoop(*window), 2);
    EXPECT_THAT(second.m_messages, ElementsAre(Message{WM_APP, 0, 0}));
    EXPECT_THAT(m_recorder.m_messages, IsEmpty());
}

TEST_F(WindowContract, AWindowOfAnUnregisteredClassCannotBeMade)
{
    EXPECT_TRUE(FailsWith(ERROR_CANNOT_FIND_WND_CLASS,
                          [&] { return CreateDialogWindow(kOtherTemplate, kOtherClass, m_recorder); }));
    EXPECT_THAT(m_recorder.m_numbers, IsEmpty());
}

TEST_F(WindowContract, PostingToNoWindowFails)
{
    EXPECT_TRUE(FailsWith(ERROR_INVALID_WINDOW_HANDLE, [&] { return PostToWindow(nullptr, WM_QUIT, 0, 0); }));
}

TEST_F(WindowContract, AnotherThreadsMessagesComeOnTheWindowsThread)
{
    const WindowPtr window = MakeWindow();
    CRunningThread poster([] {
        LetPass(5);
        Post(WM_APP, 1, 2);
        Post(WM_QUIT, 3);
    });
    EXPECT_EQ(RunMessageLoop(*window), 3);
    EXPECT_THAT(m_recorder.m_messages, ElementsAre(Message{WM_APP, 1, 2}));
    EXPECT_THAT(m_recorder.m_threads, testing::Each(CurrentThreadIdentifier()));
}

TEST_F(WindowContract, InputIsTakenUnlessDisabled)
{
    const WindowPtr window = MakeWindow();
    EXPECT_FALSE(EnableWindowInput(*window, TRUE)) << "it was not disabled before";
    EXPECT_FALSE(EnableWindowInput(*window, FALSE));
    EXPECT_TRUE(EnableWindowInput(*window, FALSE));
    EXPECT_TRUE(EnableWindowInput(*window, TRUE));
    EXPECT_FALSE(EnableWindowInput(*window, TRUE));
}

TEST_F(WindowContract, EveryMessageMayBeLeftToTheSystem)
{
    const WindowPtr window = MakeWindow();
    const std::array<Message, 3> messages = {Message{WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC, 0},
                                             Message{WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT, 0},
                                             Message{WM_QUERYDRAGICON, 0, 0}};
    for (const Message& message : messages) {
        EXPECT_TRUE(OtherProcessPostsToWindow(kClass, message.number, message.wParam, message.lParam));
    }
    Post(WM_APP);
    Post(WM_QUIT);
    EXPECT_EQ(RunMessageLoop(*window), 0);
    for (const Message& message : messages) {
        EXPECT_EQ(m_recorder.Count(message.number), 1) << message.number;
    }
    EXPECT_THAT(m_recorder.m_messages, ElementsAre(Message{WM_APP, 0, 0})) << "the window has lived on";
}

TEST_F(WindowContract, SessionNoticesMayBeAskedForAtOnce)
{
    BOOL registered = FALSE;
    m_recorder.m_handler = [&registered](CWindow& window, UINT message) {
        if (message == WM_INITDIALOG) {
            registered = RegisterSessionNotices(window);
        }
    };
    const WindowPtr window = MakeWindow();
    EXPECT_TRUE(registered);
}

TEST_F(WindowContract, RegisteringAClassAgainChangesNothing)
{
    EXPECT_TRUE(RegisterDialogClass(kClass));
    EXPECT_NE(MakeWindow(), nullptr);
}

TEST_F(WindowContract, ControlsCanBeInitialized) { EXPECT_TRUE(InitializeControls(0xFF)); }

} // namespace
} // namespace contract
