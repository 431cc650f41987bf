// Runs programs to their end.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace system_test {

struct ProcessResult {
    int exitCode = -1; // -1: ended by a signal, or by us when the time was up
    std::string out;   // its standard output
    std::string err;   // its standard error
};

// Changes of the environment that the program sees. Without value: removed.
using Environment = std::map<std::string, std::string>;

// Runs a program with empty standard input until it ends; after the time limit ends it and what it started.
// command: program, by path or to be looked for, and its arguments. Throws std::system_error when it cannot be run.
ProcessResult RunProcess(const std::vector<std::string>& command, const Environment& environment,
                         std::chrono::seconds limit);

// A program that runs beside the test; ended, with what it started, when this object goes.
class CBackgroundProcess {
public:
    // Starts the program and waits until it has written a first line to standard output. command, environment: as
    // above. Throws std::runtime_error when it ends, or the time is up, before that.
    CBackgroundProcess(const std::vector<std::string>& command, const Environment& environment,
                       std::chrono::seconds limit);
    ~CBackgroundProcess();
    CBackgroundProcess(const CBackgroundProcess&) = delete;
    CBackgroundProcess& operator=(const CBackgroundProcess&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace system_test
