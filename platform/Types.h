// The value types, status codes and constants that every layer shares.
//
// On Windows they are the system's own. Elsewhere this header defines them with the same names, sizes, field order and
// values, so that a record or a file written on one system is read on the other. This is the one header that may
// include <windows.h>.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#else

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using BOOL = int;
using UINT = std::uint32_t;
using HRESULT = std::int32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

// Names as the Windows headers have them: macros there, so they cannot be namespaced here either.
inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// Calendar time, local unless said otherwise. wMonth is 1 to 12, wDayOfWeek 0 (Sunday) to 6.
// Source: Windows SDK, minwinbase.h.
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

// Count of 100-nanosecond units since 1601-01-01 00:00:00. Source: Windows SDK, minwindef.h.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// 64-bit signed number; the halves of the Windows union are not used by this program.
union LARGE_INTEGER {
    LONGLONG QuadPart;
};

// What WM_WINDOWPOSCHANGING brings: how a window is about to change. Source: Windows SDK, winuser.h.
struct WINDOWPOS {
    void* hwnd;
    void* hwndInsertAfter;
    int x;
    int y;
    int cx;
    int cy;
    UINT flags;
};

// Window messages. Source: Windows SDK, winuser.h.
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_QUERYDRAGICON = 0x0037;
inline constexpr UINT WM_WINDOWPOSCHANGING = 0x0046;
inline constexpr UINT WM_INITDIALOG = 0x0110;
inline constexpr UINT WM_POWERBROADCAST = 0x0218;
inline constexpr UINT WM_WTSSESSION_CHANGE = 0x02B1;
inline constexpr UINT WM_APP = 0x8000; // from here on the program's own

// What they carry: a flag of WINDOWPOS, power events, session codes. Source: Windows SDK, winuser.h.
inline constexpr UINT SWP_SHOWWINDOW = 0x0040;
inline constexpr WPARAM PBT_APMSUSPEND = 4;
inline constexpr WPARAM PBT_APMRESUMESUSPEND = 7;
inline constexpr WPARAM PBT_APMRESUMEAUTOMATIC = 18;
inline constexpr WPARAM WTS_CONSOLE_CONNECT = 1;
inline constexpr WPARAM WTS_CONSOLE_DISCONNECT = 2;

// Last-error codes. Source: Windows SDK, winerror.h.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_OUTOFMEMORY = 14;
inline constexpr DWORD ERROR_WRITE_FAULT = 29;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;

// Wait results and time-outs. Source: Windows SDK, winbase.h.
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED_0 = 0x80;
inline constexpr DWORD WAIT_IO_COMPLETION = 0xC0;
inline constexpr DWORD WAIT_TIMEOUT = 0x102;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// COM status codes. Source: Windows SDK, winerror.h.
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr bool SUCCEEDED(HRESULT status) { return status >= 0; }
constexpr bool FAILED(HRESULT status) { return status < 0; }

// Registry value types. Source: Windows SDK, winnt.h.
inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

// Wide characters in a path buffer, terminator included. Source: Windows SDK, minwindef.h.
inline constexpr std::size_t MAX_PATH = 260;

#endif

static_assert(sizeof(SYSTEMTIME) == 16 && sizeof(FILETIME) == 8 && sizeof(LARGE_INTEGER) == 8);

// Wide text: UTF-16 where wchar_t has 16 bits (Windows), UTF-32 where it has 32.
using CString = std::wstring;
