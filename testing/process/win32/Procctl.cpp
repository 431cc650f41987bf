// procctl: runs a program for a test that is no Windows program itself. Not a word of test_peer, which answers each of
// its commands with one line: what this one prints is the life of its one program, whose end comes when it comes.
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
#include "platform/Arguments.h"
#include "platform/Text.h"
#include "testing/process/Child.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>

namespace {

using testing_support::CChild;

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

void ObeyInput(CChild& process)
{
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line == "terminate") {
            process.Kill();
            Answer("terminated");
        } else if (line.starts_with("show ")) {
            Answer(Show(platform::DecodeUtf8(line.substr(5))));
        } else {
            Answer("unknown command");
        }
    }
    process.Kill();
}

// Does not return: the input may stay open, and so may the program's output, which wine has kept open after its end.
[[noreturn]] void Run(const std::vector<std::string>& command)
{
    CChild process(command, {});
    const std::string id = std::to_string(process.ProcessId());
    Answer("started " + id);
    std::thread(ObeyInput, std::ref(process)).detach();
    for (const std::size_t stream : {0U, 1U}) {
        std::thread([&process, stream] {
            while (!process.ReadSome(stream).empty()) {
            }
        }).detach();
    }
    std::optional<int> exitCode;
    while (!exitCode) {
        exitCode = process.WaitForExit(std::chrono::hours(1));
    }
    ::OutputDebugStringA(("ended " + id + "\n").c_str());
    std::printf("ended 0x%08x\n", static_cast<unsigned>(*exitCode));
    std::fflush(stdout);
    ::ExitProcess(0);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> command;
    for (const CString& argument : platform::ProgramArguments(argc, argv)) {
        command.push_back(platform::EncodeUtf8(argument));
    }
    if (command.size() < 2 || command.front() != "--") {
        std::cerr << "usage: procctl -- PROGRAM [ARG...]\n";
        return 2;
    }
    command.erase(command.begin());
    try {
        Run(command);
    } catch (const std::system_error& error) {
        std::cerr << "procctl: cannot start the program: " << error.what() << "\n";
        return 2;
    }
}
