// What the threads of a test's own process do, as the system shows it.
#pragma once

#include "platform/Thread.h"
#include "testing/process/Process.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>

namespace testing_support {

// The name of the calling thread's task.
inline std::string OwnTask() { return std::to_string(platform::CurrentThreadIdentifier()); }

// Whether a task sleeps in the system call of a wait.
inline bool IsPolling(const std::string& task)
{
    long call = -1;
    std::ifstream("/proc/self/task/" + task + "/syscall") >> call;
    return call == SYS_ppoll;
}

// How often a task has gone to sleep.
inline long VoluntarySwitches(const std::string& task)
{
    std::ifstream status("/proc/self/task/" + task + "/status");
    const std::string wanted = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(wanted)) {
            return std::stol(line.substr(wanted.size()));
        }
    }
    return -1;
}

// Lets time pass until a condition holds, at most 20 seconds, which only a failing test reaches.
inline void Await(const std::function<bool()>& condition)
{
    EXPECT_TRUE(WaitUntil(condition, std::chrono::seconds(20)));
}

} // namespace testing_support
