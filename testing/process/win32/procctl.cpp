// procctl: runs a program for a test that is no Windows program itself.
//
//   procctl -- PROGRAM [ARG...]
//
// Prints "started PID" and, when the program has ended, "ended 0x00000000" with its exit code; before that it writes
// "ended PID" to the debugger output, so that a listener knows that it has all of the program's. Meanwhile it does what
// the lines of its standard input say, and answers each on a line of its own:
//
//   terminate     ends the program at once, as a crash does; "terminated"
//   show CLASS    shows the window of that class, in each way that there is, and tells whether anything made it
//                 visible: "visible 0" or "visible 1"; "no window" when there is none
//
// When standard input closes the program is terminated, too. Exit code: 0, or 2 when the program cannot be started.
#include "platform/Text.h"
#include "platform/win32/Handle.h"

#include <cstdio>
#include <cwchar>
#include <iostream>
#include <string>

namespace {

using platform::win32::CKernelHandle;

constexpr UINT kTerminatedExitCode = 9;
constexpr DWORD kShownAtOnceMs = 200; // for what is shown without waiting for it

void Answer(const std::string& text) { std::cout << text << std::endl; }

// Shows a window as any program may do to any other's.
std::string Show(const CString& className)
{
    const auto window = ::FindWindowW(className.c_str(), nullptr);
    if (window == nullptr) {
        return "no window";
    }
    constexpr UINT kKeep = SWP_NOMOVE | SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE;
    ::ShowWindow(window, SW_SHOW);
    BOOL visible = ::IsWindowVisible(window);
    ::SetWindowPos(window, nullptr, 0, 0, 0, 0, kKeep | SWP_SHOWWINDOW);
    visible |= ::IsWindowVisible(window);
    ::ShowWindowAsync(window, SW_SHOWNORMAL);
    ::Sleep(kShownAtOnceMs);
    visible |= ::IsWindowVisible(window);
    return visible ? "visible 1" : "visible 0";
}

DWORD WINAPI ObeyInput(void* process)
{
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line == "terminate") {
            ::TerminateProcess(process, kTerminatedExitCode);
            Answer("terminated");
        } else if (line.starts_with("show ")) {
            Answer(Show(platform::DecodeUtf8(line.substr(5))));
        } else {
            Answer("unknown command");
        }
    }
    ::TerminateProcess(process, kTerminatedExitCode);
    return 0;
}

// What follows " -- " on the command line, as PROGRAM is to get it.
CString ProgramCommandLine()
{
    const wchar_t* const separator = std::wcsstr(::GetCommandLineW(), L" -- ");
    return separator ? separator + 4 : L"";
}

} // namespace

int main()
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    CString commandLine = ProgramCommandLine();
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &information)) {
        std::cerr << "procctl: cannot start the program (error " << ::GetLastError() << ")\n";
        return 2;
    }
    const CKernelHandle process(information.hProcess);
    const CKernelHandle thread(information.hThread);
    Answer("started " + std::to_string(information.dwProcessId));
    const CKernelHandle input(::CreateThread(nullptr, 0, ObeyInput, process.Get(), 0, nullptr));
    ::WaitForSingleObject(process.Get(), INFINITE);
    ::OutputDebugStringA(("ended " + std::to_string(information.dwProcessId) + "\n").c_str());
    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    std::printf("ended 0x%08lx\n", exitCode);
    std::fflush(stdout);
    ::ExitProcess(0); // the input may stay open
}
