#include "platform/Program.h"

#include "platform/win32/Handle.h"

#include <array>

namespace platform {

class CProgram {
public:
    DWORD m_id = 0;
    win32::CKernelHandle m_handle; // none when the system refuses one
};

namespace {

// The text that a function of the system writes into a buffer (DWORD(wchar_t*, DWORD size), 0 on failure).
template <class Function>
CString TextFrom(Function function)
{
    constexpr DWORD kLongestPath = 0x8000; // no path is longer
    CString text(kLongestPath, L'\0');
    text.resize(function(text.data(), kLongestPath));
    return text;
}

bool IsFile(const CString& path)
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

CString FolderOf(const CString& path) { return path.substr(0, path.find_last_of(L"\\/")); }

} // namespace

ProgramPtr FindProgramOfWindow(const wchar_t* className)
{
    HWND window = ::FindWindowW(className, nullptr);
    auto program = std::make_shared<CProgram>();
    if (window == nullptr || ::GetWindowThreadProcessId(window, &program->m_id) == 0) {
        ::SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    program->m_handle.Reset(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, program->m_id));
    return program;
}

DWORD ProcessIdentifierOf(const ProgramPtr& program) { return program->m_id; }

std::int64_t StartTimeOf(const ProgramPtr& program)
{
    constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
    constexpr std::uint64_t kUnixEpoch = 11'644'473'600; // seconds from 1601 to 1970
    std::array<FILETIME, 4> times = {};
    if (!::GetProcessTimes(program->m_handle.Get(), times.data(), &times[1], &times[2], &times[3])) {
        return -1;
    }
    const std::uint64_t start = (std::uint64_t{times[0].dwHighDateTime} << 32) | times[0].dwLowDateTime;
    return static_cast<std::int64_t>(start / kUnitsPerSecond - kUnixEpoch);
}

DWORD WaitForProgramEnd(const ProgramPtr& program, DWORD timeoutMs)
{
    if (!program || !program->m_handle) {
        ::SetLastError(program ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return ::WaitForSingleObject(program->m_handle.Get(), timeoutMs);
}

CString FindProgram(const wchar_t* name)
{
    const CString self = TextFrom([](wchar_t* text, DWORD size) { return ::GetModuleFileNameW(nullptr, text, size); });
    CString beside = FolderOf(self) + L"\\" + name + L".exe";
    if (IsFile(beside)) {
        return beside;
    }
    // Given the folders, the function leaves out the working folder, where anybody may have put a program.
    const CString folders =
        TextFrom([](wchar_t* text, DWORD size) { return ::GetEnvironmentVariableW(L"PATH", text, size); });
    return TextFrom(
        [&](wchar_t* text, DWORD size) { return ::SearchPathW(folders.c_str(), name, L".exe", size, text, nullptr); });
}

ProgramPtr StartProgram(const CString& path)
{
    CString commandLine = L"\"" + path + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    if (!::CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                          DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP, nullptr, FolderOf(path).c_str(), &startup,
                          &information)) {
        return nullptr;
    }
    const win32::CKernelHandle thread(information.hThread);
    auto program = std::make_shared<CProgram>();
    program->m_id = information.dwProcessId;
    program->m_handle.Reset(information.hProcess);
    return program;
}

} // namespace platform
