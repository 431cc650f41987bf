// tracecat: shows the debugger output.
//
//   tracecat                     of all processes of the session, until standard input closes
//   tracecat --ids               the same, each text after its writer's process identifier and a tab
//   tracecat PID                 of one process, until it has ended or standard input closes
//   tracecat -- PROGRAM [ARG...] starts a program and shows its output until it has ended
//
// Prints "ready" on a line of its own once it listens (before PROGRAM starts), then each text as UTF-8, flushed, with a
// line feed at its end. What the channel does to texts: DebugListener.h. Exit code: PROGRAM's, else 0; 2 when it cannot
// listen or there is no such process or program.
#include "platform/Text.h"
#include "platform/win32/tools/DebugListener.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

using platform::win32::CDebugListener;
using platform::win32::CKernelHandle;
using platform::win32::DebugMessage;

constexpr int kCannotListen = 2;
// How long another listener may go on.
constexpr DWORD kOpenTimeoutMs = 60000;
// A writer that never pauses must not keep us from ending.
constexpr int kMaxDrained = 1000;

void Print(std::string text)
{
    if (text.empty() || text.back() != '\n') {
        text.push_back('\n');
    }
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

int Fail(const char* what)
{
    std::fprintf(stderr, "tracecat: %s (error %lu)\n", what, ::GetLastError());
    return kCannotListen;
}

// Ends when standard input has closed.
DWORD WINAPI ReadInputToItsEnd(void*)
{
    std::array<char, 256> ignored = {};
    DWORD got = 0;
    while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), ignored.data(), ignored.size(), &got, nullptr) && got != 0) {
    }
    return 0;
}

// Which texts to show, and how.
struct Choice {
    DWORD processId = 0; // 0: everybody's
    bool withIds = false;
};

// Prints the chosen texts until one of ends (the second may be null) is signalled, and then what is still in the
// channel.
void Listen(CDebugListener& listener, const Choice& choice, std::array<HANDLE, 2> ends)
{
    const auto show = [&choice](const DebugMessage& message) {
        if (choice.processId == 0 || choice.processId == message.processId) {
            const std::string id = choice.withIds ? std::to_string(message.processId) + "\t" : std::string();
            Print(id + platform::EncodeUtf8(message.text));
        }
    };
    const std::array<HANDLE, 3> handles = {listener.DataReady(), ends[0], ends[1]};
    const DWORD count = ends[1] ? 3 : 2;
    while (::WaitForMultipleObjects(count, handles.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
        show(listener.Take());
    }
    DebugMessage message;
    for (int i = 0; i < kMaxDrained && listener.Next(0, &message); ++i) {
        show(message);
    }
}

// What follows " -- " on the command line, as PROGRAM is to get it.
CString ProgramCommandLine()
{
    const wchar_t* const line = ::GetCommandLineW();
    const wchar_t* const separator = std::wcsstr(line, L" -- ");
    return separator ? separator + 4 : L"";
}

int ListenToProgram(CDebugListener& listener)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    CString commandLine = ProgramCommandLine();
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &information)) {
        return Fail("cannot start the program");
    }
    const CKernelHandle process(information.hProcess);
    const CKernelHandle thread(information.hThread);
    Listen(listener, {.processId = information.dwProcessId}, {process.Get(), nullptr});
    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    return static_cast<int>(exitCode);
}

int ListenToProcesses(CDebugListener& listener, const Choice& choice)
{
    CKernelHandle process;
    if (choice.processId != 0) {
        process.Reset(::OpenProcess(SYNCHRONIZE, FALSE, choice.processId));
        if (!process) {
            return Fail("no such process");
        }
    }
    const CKernelHandle inputThread(::CreateThread(nullptr, 0, ReadInputToItsEnd, nullptr, 0, nullptr));
    if (!inputThread) {
        return Fail("cannot watch standard input");
    }
    Listen(listener, choice, {inputThread.Get(), process.Get()});
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const bool startsProgram = argc > 2 && std::strcmp(argv[1], "--") == 0;
    Choice choice;
    choice.withIds = argc == 2 && std::strcmp(argv[1], "--ids") == 0;
    choice.processId = argc == 2 && !choice.withIds ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (!startsProgram && (argc > 2 || (argc == 2 && !choice.withIds && choice.processId == 0))) {
        std::fprintf(stderr, "usage: tracecat [--ids | PID | -- PROGRAM [ARG...]]\n");
        return kCannotListen;
    }
    const std::unique_ptr<CDebugListener> listener = CDebugListener::Open(kOpenTimeoutMs);
    if (!listener) {
        return Fail("cannot listen to the debugger output");
    }
    Print("ready");
    return startsProgram ? ListenToProgram(*listener) : ListenToProcesses(*listener, choice);
}
