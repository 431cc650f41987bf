#include "platform/win32/DebugListener.h"

#include <gtest/gtest.h>

namespace platform::win32 {
namespace {

constexpr DWORD kOpenTimeoutMs = 50000;
constexpr DWORD kLongMs = 20000;

// Writes one text on another thread, since a writer waits for its listener.
class CWriter {
public:
    explicit CWriter(CString text) : m_text(std::move(text))
    {
        m_thread.Reset(::CreateThread(nullptr, 0, Write, this, 0, nullptr));
    }
    ~CWriter() { EXPECT_EQ(::WaitForSingleObject(m_thread.Get(), INFINITE), WAIT_OBJECT_0); }
    CWriter(const CWriter&) = delete;
    CWriter& operator=(const CWriter&) = delete;

private:
    static DWORD WINAPI Write(void* writer)
    {
        ::OutputDebugStringW(static_cast<CWriter*>(writer)->m_text.c_str());
        return 0;
    }
    CString m_text;
    CKernelHandle m_thread;
};

// The next text of this process.
CString NextText(CDebugListener& listener)
{
    DebugMessage message;
    do {
        if (!listener.Next(kLongMs, &message)) {
            return L"(none)";
        }
    } while (message.processId != ::GetCurrentProcessId());
    return message.text;
}

TEST(DebugListener, GetsWhatIsWritten)
{
    const std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    ASSERT_NE(listener, nullptr);
    {
        const CWriter writer(L"first\n");
        EXPECT_EQ(NextText(*listener), L"first\n");
    }
    const CWriter writer(L"second");
    EXPECT_EQ(NextText(*listener), L"second");
}

TEST(DebugListener, CutsATextAtTheChannelsSize)
{
    const std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    ASSERT_NE(listener, nullptr);
    const CWriter writer(CString(6000, L'x'));
    EXPECT_EQ(NextText(*listener), CString(4091, L'x'));
}

// Windows puts a question mark, or a similar character, for what the ANSI code page lacks; with UTF-8 as the code page
// nothing is lost.
TEST(DebugListener, KeepsTheCharactersOfTheAnsiCodePage)
{
    const std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    ASSERT_NE(listener, nullptr);
    const CWriter writer(L"<\u00E9 \u6771>");
    const CString text = NextText(*listener);
    if (::GetACP() == 1252) {
        EXPECT_EQ(text, L"<\u00E9 ?>");
    }
    EXPECT_EQ(text.front(), L'<');
    EXPECT_EQ(text.back(), L'>');
}

TEST(DebugListener, IsAloneInItsSession)
{
    std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    ASSERT_NE(listener, nullptr);
    EXPECT_EQ(CDebugListener::Open(0), nullptr);
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    listener.reset();
    EXPECT_NE(CDebugListener::Open(kOpenTimeoutMs), nullptr);
}

} // namespace
} // namespace platform::win32
