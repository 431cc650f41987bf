// Runs programs.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

// Variables of the environment that the program is to see, in UTF-8. Without value: removed. All others it inherits.
using EnvironmentChanges = std::map<std::string, std::string>;

// A program that runs beside the test; killed, with what it started, when this object goes. It inherits nothing but the
// environment and its standard streams. All operations may be called from any thread.
class CBackgroundProcess {
public:
    // Starts a program. command: program, by path or to be looked for, and its arguments, in UTF-8. Its standard input
    // waits for Write. Throws std::system_error when it cannot be run.
    CBackgroundProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment);
    // The same, and reads a first line. Throws std::runtime_error when it ends, or the time is up, before that.
    CBackgroundProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment,
                       std::chrono::seconds limit);
    ~CBackgroundProcess();
    CBackgroundProcess(const CBackgroundProcess&) = delete;
    CBackgroundProcess& operator=(const CBackgroundProcess&) = delete;

    int ProcessId() const;

    // What it has written to its standard output and standard error so far; all of it once WaitForExit has given its
    // exit code.
    std::string Out() const;
    std::string Err() const;
    // The next line of its standard output, without its end; waits at most this long for it. None when the time is up
    // or its output ends before that.
    std::optional<std::string> ReadLine(std::chrono::milliseconds limit);

    // To its standard input; lost when it does not read any more.
    void Write(const std::string& text);
    void CloseInput();

    // Sends a signal to the program alone. Linux only.
    void Signal(int number);
    // Ends it, with what it started, as a crash does, and waits until it has gone.
    void Kill();

    // Its exit code, -1 when a signal has ended it; none while it runs, after waiting at most this long for its end.
    std::optional<int> WaitForExit(std::chrono::milliseconds limit);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

struct ProcessResult {
    int exitCode = -1; // -1: ended by a signal, or by us when the time was up
    std::string out;   // its standard output
    std::string err;   // its standard error
};

// Runs a program with empty standard input until it ends; after the time limit ends it and what it started.
ProcessResult RunProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment,
                         std::chrono::seconds limit);

// Waits until the condition holds, looking at it again and again. False when the time is up before.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

} // namespace testing_support
