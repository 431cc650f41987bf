// The trace log: one line per event to the debugger output, selected by a bit mask.
#pragma once

#include "platform/Text.h"
#include "platform/Types.h"

// Which lines are written; set once at program start from CConfigUtil::GetLogLevel, only read afterwards.
extern DWORD g_dwLogLevel;

// Bits of g_dwLogLevel. Bit 2 (value 4) selects nothing.
inline constexpr DWORD kTraceErr = 1;
inline constexpr DWORD kTraceWar = 2;
inline constexpr DWORD kTraceTra = 8;
inline constexpr DWORD kTraceScope = 16; // "Enter" and "Leave", only together with kTraceTra

// Writes trace lines under one function's name. Helpers that trace under their caller's name take a const CTraceLog&,
// for which the caller hands in its CTraceScope. Holds nothing but the pointer to the name. Every operation may be
// called from any thread and never throws; a line that cannot be formatted or written is lost.
class CTraceLog {
public:
    // pszFunction: qualified name of the function that logs, a literal; must not be null.
    constexpr explicit CTraceLog(const wchar_t* pszFunction) noexcept : m_pszFunction(pszFunction) {}
    CTraceLog(const CTraceLog&) = delete;
    CTraceLog& operator=(const CTraceLog&) = delete;

    // Each tests its bit before anything is formatted. format: as for platform::FormatText; a message that is not a
    // literal goes in as an argument of L"%s".
    template <class... Arguments>
    void Err(const wchar_t* format, const Arguments&... arguments) const noexcept
    {
        if ((g_dwLogLevel & kTraceErr) != 0) {
            Write(L"ERR", format,
                  std::array<platform::TextArgument, sizeof...(Arguments)>{platform::TextArgument(arguments)...});
        }
    }
    template <class... Arguments>
    void War(const wchar_t* format, const Arguments&... arguments) const noexcept
    {
        if ((g_dwLogLevel & kTraceWar) != 0) {
            Write(L"WAR", format,
                  std::array<platform::TextArgument, sizeof...(Arguments)>{platform::TextArgument(arguments)...});
        }
    }
    template <class... Arguments>
    void Tra(const wchar_t* format, const Arguments&... arguments) const noexcept
    {
        if ((g_dwLogLevel & kTraceTra) != 0) {
            Write(L"TRA", format,
                  std::array<platform::TextArgument, sizeof...(Arguments)>{platform::TextArgument(arguments)...});
        }
    }

private:
    void Write(const wchar_t* tag, const wchar_t* format,
               std::span<const platform::TextArgument> arguments) const noexcept;

    const wchar_t* m_pszFunction;
};

// The log of a function that also writes "Enter" when it begins and "Leave" when it ends, by an exception, too, when
// both kTraceTra and kTraceScope are set.
class CTraceScope : public CTraceLog {
public:
    // pszFunction: as for CTraceLog.
    explicit CTraceScope(const wchar_t* pszFunction) noexcept : CTraceLog(pszFunction)
    {
        if (IsScopeTraced()) {
            Enter();
        }
    }
    ~CTraceScope()
    {
        if (IsScopeTraced()) {
            Leave();
        }
    }
    CTraceScope(const CTraceScope&) = delete;
    CTraceScope& operator=(const CTraceScope&) = delete;

private:
    static bool IsScopeTraced() { return (g_dwLogLevel & kTraceScope) != 0; }
    void Enter() const noexcept;
    void Leave() const noexcept;
};

// Formats and writes one line, line feed included, in one call to the debugger output:
//   [tag] yyyy/mm/dd hh:mm:ss.mmm process(thread) function : message
// Local time. Arguments must not be null. Never throws. Any thread.
void OutputTraceLine(const wchar_t* tag, const wchar_t* function, const CString& message) noexcept;
