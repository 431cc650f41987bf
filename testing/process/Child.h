// What each system does for Process.h; its definitions are in the folders beside it.
#pragma once

#include "testing/process/Process.h"

namespace testing_support {

// A program that has been started. All operations may be called from any thread, ReadSome of one stream by one thread.
class CChild {
public:
    // Throws std::system_error when the program cannot be run. What the arguments mean: CBackgroundProcess.
    CChild(const std::vector<std::string>& command, const EnvironmentChanges& environment);
    // It has ended by now, and nobody reads.
    ~CChild();
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;

    int ProcessId() const;

    // Waits for bytes of its standard output (stream 0) or standard error (1) and gives them. Empty: there are no more,
    // or StopReading has been called.
    std::string ReadSome(std::size_t stream);
    // Ends every ReadSome, though something that the program has started may still hold its streams. Only when it has
    // ended.
    void StopReading();

    // As CBackgroundProcess says.
    void Write(const std::string& text);
    void CloseInput();
    void Signal(int number);
    void Kill();
    std::optional<int> WaitForExit(std::chrono::milliseconds limit);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace testing_support
