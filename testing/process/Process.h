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

// Changes of the environment that the program sees. Without value: removed.
using Environment = std::map<std::string, std::string>;

// A program that runs beside the test; killed, with what it started, when this object goes. All operations may be
// called from any thread.
class CBackgroundProcess {
public:
    // Starts a program. command: program, by path or to be looked for, and its arguments. Its standard input waits for
    // Write. Throws std::system_error when it cannot be run.
    CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment);
    // The same, and waits until it has written a first line to standard output. Throws std::runtime_error when it ends,
    // or the time is up, before that.
    CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment,
                       std::chrono::seconds limit);
    ~CBackgroundProcess();
    CBackgroundProcess(const CBackgroundProcess&) = delete;
    CBackgroundProcess& operator=(const CBackgroundProcess&) = delete;

    int ProcessId() const;

    // What it has written to its standard output and standard error so far; all of it once WaitForExit has given its
    // exit code.
    std::string Out() const;
    std::string Err() const;

    // To its standard input; lost when it does not read any more.
    void Write(const std::string& text);
    void CloseInput();

    // Sends a signal to the program alone.
    void Signal(int number);

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
ProcessResult RunProcess(const std::vector<std::string>& command, const Environment& environment,
                         std::chrono::seconds limit);

// Waits until the condition holds, looking at it again and again. False when the time is up before.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

} // namespace testing_support
