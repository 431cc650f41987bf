#include "testing/process/Process.h"

#include "testing/process/Child.h"

#include <array>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace testing_support {
namespace {

// What the program has left in its pipes when it ends comes at once, unless something that it started keeps them.
constexpr std::chrono::seconds kLastWordsLimit{2};

} // namespace

struct CBackgroundProcess::Impl {
    Impl(const std::vector<std::string>& command, const EnvironmentChanges& environment) : child(command, environment)
    {
        for (std::size_t stream = 0; stream < readers.size(); ++stream) {
            readers[stream] = std::thread([this, stream] { ReadToTheEnd(stream); });
        }
    }

    ~Impl()
    {
        child.Kill();
        child.StopReading();
        for (std::thread& reader : readers) {
            reader.join();
        }
    }

    void ReadToTheEnd(std::size_t stream)
    {
        for (std::string bytes = child.ReadSome(stream); !bytes.empty(); bytes = child.ReadSome(stream)) {
            const std::scoped_lock lock(mutex);
            texts[stream] += bytes;
            hasRead.notify_all();
        }
        const std::scoped_lock lock(mutex);
        isAtEnd[stream] = true;
        hasRead.notify_all();
    }

    std::string Text(std::size_t stream)
    {
        const std::scoped_lock lock(mutex);
        return texts[stream];
    }

    CChild child;

    std::mutex mutex; // guards what follows
    std::condition_variable hasRead;
    std::array<std::string, 2> texts = {}; // standard output, standard error
    std::array<bool, 2> isAtEnd = {};
    std::size_t lineStart = 0; // of the next line in texts[0]

    std::array<std::thread, 2> readers; // the last ones: they use all of them
};

CBackgroundProcess::CBackgroundProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment)
    : m_impl(std::make_unique<Impl>(command, environment))
{
}

CBackgroundProcess::CBackgroundProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment,
                                       std::chrono::seconds limit)
    : CBackgroundProcess(command, environment)
{
    if (!ReadLine(limit)) {
        throw std::runtime_error(command.front() + " did not start: " + Out() + Err());
    }
}

CBackgroundProcess::~CBackgroundProcess() = default;

int CBackgroundProcess::ProcessId() const { return m_impl->child.ProcessId(); }

std::string CBackgroundProcess::Out() const { return m_impl->Text(0); }

std::string CBackgroundProcess::Err() const { return m_impl->Text(1); }

std::optional<std::string> CBackgroundProcess::ReadLine(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_impl->mutex);
    const std::string& text = m_impl->texts[0];
    std::size_t end = std::string::npos;
    m_impl->hasRead.wait_for(lock, limit, [&] {
        end = text.find('\n', m_impl->lineStart);
        return end != std::string::npos || m_impl->isAtEnd[0];
    });
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = text.substr(m_impl->lineStart, end - m_impl->lineStart);
    m_impl->lineStart = end + 1;
    if (line.ends_with('\r')) { // of a Windows program
        line.pop_back();
    }
    return line;
}

void CBackgroundProcess::Write(const std::string& text) { m_impl->child.Write(text); }

void CBackgroundProcess::CloseInput() { m_impl->child.CloseInput(); }

void CBackgroundProcess::Signal(int number) { m_impl->child.Signal(number); }

void CBackgroundProcess::Kill() { m_impl->child.Kill(); }

std::optional<int> CBackgroundProcess::WaitForExit(std::chrono::milliseconds limit)
{
    const std::optional<int> exitCode = m_impl->child.WaitForExit(limit);
    if (exitCode) {
        std::unique_lock lock(m_impl->mutex);
        m_impl->hasRead.wait_for(lock, kLastWordsLimit, [this] { return m_impl->isAtEnd[0] && m_impl->isAtEnd[1]; });
    }
    return exitCode;
}

ProcessResult RunProcess(const std::vector<std::string>& command, const EnvironmentChanges& environment,
                         std::chrono::seconds limit)
{
    CBackgroundProcess process(command, environment);
    process.CloseInput();
    const std::optional<int> exitCode = process.WaitForExit(limit);
    return {exitCode.value_or(-1), process.Out(), process.Err() + (exitCode ? "" : "\n(ended: the time was up)\n")};
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds kPause{5};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

} // namespace testing_support
