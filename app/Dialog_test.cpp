#include "app/Dialog.h"

#include "platform/LastError.h"
#include "platform/sim/Machine.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using platform::sim::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t kClass[] = L"TestDialog";
constexpr WORD kTemplate = 7;

// Keeps the numbers of the messages that it gets, and does what a test wants with them.
class TestDialog : public CDialog {
public:
    TestDialog() : CDialog(kTemplate, kClass) {}

    std::vector<UINT> messages;
    std::vector<LRESULT> results; // of those whose handling did not fail
    std::function<void(UINT)> handle = [](UINT) {};

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        messages.push_back(message);
        handle(message);
        results.push_back(CDialog::WindowProc(message, wParam, lParam));
        return results.back();
    }
};

class Dialog : public testing::Test {
protected:
    Dialog() { platform::RegisterDialogClass(kClass); }

    void PostFromOutside(UINT message, WPARAM wParam = 0)
    {
        EXPECT_TRUE(m_machine.OtherProcessPosts(kClass, message, wParam, 0));
    }

    platform::sim::CMachine m_machine;
    TestDialog m_dialog;
};

TEST_F(Dialog, ModalDialogLivesUntilQuit)
{
    m_dialog.handle = [this](UINT message) {
        if (message == WM_INITDIALOG) {
            EXPECT_EQ(m_machine.WindowOf(kClass)->templateNumber, kTemplate);
            PostFromOutside(WM_APP);
            PostFromOutside(WM_QUIT, 3);
            PostFromOutside(WM_APP + 1); // too late
        }
    };
    EXPECT_EQ(m_dialog.DoModal(), 3);
    EXPECT_THAT(m_dialog.messages, ElementsAre(WM_INITDIALOG, WM_APP, WM_DESTROY));
    EXPECT_FALSE(m_machine.WindowExists(kClass));
}

TEST_F(Dialog, CloseEndsTheModalDialog)
{
    m_dialog.handle = [this](UINT message) {
        if (message == WM_INITDIALOG) {
            PostFromOutside(WM_CLOSE);
        }
    };
    EXPECT_EQ(m_dialog.DoModal(), 0);
    EXPECT_THAT(m_dialog.messages, ElementsAre(WM_INITDIALOG, WM_CLOSE, WM_DESTROY));
    EXPECT_THAT(m_dialog.results, ElementsAre(TRUE, 0, 0));
}

TEST_F(Dialog, ModalDialogWithoutWindowFails)
{
    m_machine.FailCall(Call::kCreateDialogWindow, 1, 5);
    EXPECT_EQ(m_dialog.DoModal(), std::nullopt);
    EXPECT_EQ(platform::GetLastErrorCode(), 5U);
    EXPECT_THAT(m_dialog.messages, IsEmpty());
}

TEST_F(Dialog, AnExceptionIsFollowedByDefaultProcessing)
{
    m_dialog.handle = [this](UINT message) {
        if (message == WM_INITDIALOG) {
            PostFromOutside(WM_QUIT);
        }
        throw std::runtime_error("handler fails");
    };
    EXPECT_EQ(m_dialog.DoModal(), 0);
    EXPECT_THAT(m_dialog.messages, ElementsAre(WM_INITDIALOG, WM_DESTROY));
}

TEST_F(Dialog, ModalStateKeepsTheUsersInputOut)
{
    ASSERT_TRUE(m_dialog.Create());
    m_dialog.BeginModalState();
    EXPECT_FALSE(m_machine.WindowOf(kClass)->takesInput);
    m_dialog.EndModalState();
    EXPECT_TRUE(m_machine.WindowOf(kClass)->takesInput);
}

} // namespace
