#include "platform/Http.h"
#include "platform/Types.h"

#include <gtest/gtest.h>
#include <vector>

namespace platform {
namespace {

template <class... Values>
std::vector<DWORD> Numbers(Values... values)
{
    return {static_cast<DWORD>(values)...};
}

// What is written on one system is read on the other: settings, trace lines, scripts of users.

TEST(Types, MessagesAreNumberedAsOnWindows)
{
    EXPECT_EQ(Numbers(WM_DESTROY, WM_CLOSE, WM_QUIT, WM_QUERYDRAGICON, WM_WINDOWPOSCHANGING, WM_INITDIALOG,
                      WM_POWERBROADCAST, WM_WTSSESSION_CHANGE, WM_APP),
              Numbers(0x2, 0x10, 0x12, 0x37, 0x46, 0x110, 0x218, 0x2B1, 0x8000));
    EXPECT_EQ(Numbers(SWP_SHOWWINDOW, PBT_APMSUSPEND, PBT_APMRESUMESUSPEND, PBT_APMRESUMEAUTOMATIC, WTS_CONSOLE_CONNECT,
                      WTS_CONSOLE_DISCONNECT),
              Numbers(0x40, 4, 7, 18, 1, 2));
}

TEST(Types, ErrorCodesAreThoseOfWindows)
{
    EXPECT_EQ(Numbers(ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
                      ERROR_INVALID_HANDLE, ERROR_OUTOFMEMORY, ERROR_WRITE_FAULT, ERROR_SHARING_VIOLATION,
                      ERROR_NOT_SUPPORTED, ERROR_INVALID_PARAMETER, ERROR_DISK_FULL, ERROR_ALREADY_EXISTS,
                      ERROR_NOT_OWNER, ERROR_INVALID_WINDOW_HANDLE, ERROR_CANNOT_FIND_WND_CLASS),
              Numbers(0, 2, 3, 5, 6, 14, 29, 32, 50, 87, 112, 183, 288, 1400, 1407));
    EXPECT_EQ(Numbers(kHttpTimedOut, kHttpNameNotResolved, kHttpCannotConnect, kHttpConnectionAborted),
              Numbers(12002, 12007, 12029, 12030));
    EXPECT_EQ(Numbers(kConnectionModem, kConnectionLan, kConnectionProxy, kConnectionOffline), Numbers(1, 2, 4, 32));
}

TEST(Types, ResultsOfWaitsAreThoseOfWindows)
{
    EXPECT_EQ(Numbers(INFINITE, WAIT_OBJECT_0, WAIT_ABANDONED_0, WAIT_IO_COMPLETION, WAIT_TIMEOUT, WAIT_FAILED),
              Numbers(0xFFFFFFFF, 0, 0x80, 0xC0, 0x102, 0xFFFFFFFF));
}

TEST(Types, StatusCodesAreThoseOfWindows)
{
    EXPECT_EQ(Numbers(S_OK, S_FALSE, E_NOINTERFACE, E_POINTER, E_FAIL, E_OUTOFMEMORY, E_INVALIDARG),
              Numbers(0, 1, 0x80004002, 0x80004003, 0x80004005, 0x8007000E, 0x80070057));
    EXPECT_TRUE(SUCCEEDED(S_OK) && SUCCEEDED(S_FALSE) && FAILED(E_FAIL));
    EXPECT_FALSE(FAILED(S_OK) || FAILED(S_FALSE) || SUCCEEDED(E_FAIL));
}

TEST(Types, TypesOfSettingsAreNumberedAsOnWindows)
{
    EXPECT_EQ(Numbers(REG_NONE, REG_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD), Numbers(0, 1, 3, 4, 7, 11));
    EXPECT_EQ(Numbers(FALSE, TRUE, MAX_PATH), Numbers(0, 1, 260));
}

} // namespace
} // namespace platform
