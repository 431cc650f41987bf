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

// Whether a task sleeps in this system call.
inline bool IsInCall(const std::string& task, long wanted)
{
    long call = -1;
    std::ifstream("/proc/self/task/" + task + "/syscall") >> call;
    return call == wanted;
}

// Whether a task sleeps in the system call of a wait.
inline bool IsPolling(const std::string& task) { return IsInCall(task, SYS_ppoll); }

// What a task's status says in a field, such as "SigBlk:"; empty when the task is gone.
inline std::string StatusOf(const std::string& task, const std::string& field)
{
    std::ifstream status("/proc/self/task/" + task + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field)) {
            return line.substr(field.size());
        }
    }
    return {};
}

// How often a task has gone to sleep.
inline long VoluntarySwitches(const std::string& task)
{
    const std::string count = StatusOf(task, "voluntary_ctxt_switches:");
    return count.empty() ? -1 : std::stol(count);
}

// Whether a signal of the process cannot reach the task.
inline bool Blocks(const std::string& task, int signal)
{
    return (std::stoull(StatusOf(task, "SigBlk:"), nullptr, 16) >> (signal - 1) & 1) != 0;
}

// Lets time pass until a condition holds, at most 20 seconds, which only a failing test reaches.
inline void Await(const std::function<bool()>& condition)
{
    EXPECT_TRUE(WaitUntil(condition, std::chrono::seconds(20)));
}

} // namespace testing_support
