#include "config/TraceLog.h"

#include "platform/Clock.h"
#include "platform/DebugOutput.h"
#include "platform/Thread.h"

DWORD g_dwLogLevel = 0;

void CTraceLog::Write(const wchar_t* tag, const wchar_t* format,
                      std::span<const platform::TextArgument> arguments) const noexcept
{
    try {
        OutputTraceLine(tag, m_pszFunction, platform::FormatTextV(format, arguments));
    } catch (...) { // NOLINT(bugprone-empty-catch): a trace line that cannot be written is lost
    }
}

void CTraceScope::Enter() const noexcept { Tra(L"Enter"); }

void CTraceScope::Leave() const noexcept { Tra(L"Leave"); }

void OutputTraceLine(const wchar_t* tag, const wchar_t* function, const CString& message) noexcept
{
    try {
        SYSTEMTIME now{};
        platform::ReadLocalClock(&now);
        const DWORD thread = platform::CurrentThreadIdentifier();
        const DWORD process = platform::CurrentProcessIdentifier();
        platform::OutputDebugText(platform::FormatText(
            L"[%s] %04d/%02d/%02d %02d:%02d:%02d.%03d %d(%d) %s : %s\n", tag, now.wYear, now.wMonth, now.wDay,
            now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, process, thread, function, message));
    } catch (...) { // NOLINT(bugprone-empty-catch): a line that cannot be made is lost
    }
}
