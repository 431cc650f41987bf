// Collects, for the whole test run, which trace lines the simulated machine's debugger got. Belongs to every program
// that links the simulated machine. When the environment names a folder, the program leaves there a text file of its
// distinct lines "level|function|message"; scripts/check-trace-messages compares them with the list of all messages.
#include "platform/sim/Machine.h"
#include "platform/Text.h"
#include "testing/Trace.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <set>

namespace {

constexpr const char* kFolderVariable = "AMPORA_TRACE_COLLECT";

class CTraceCollector {
public:
    CTraceCollector()
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): before main, no other thread can change the environment
        const char* folder = std::getenv(kFolderVariable);
        if (folder != nullptr && *folder != '\0') {
            m_folder = folder;
            platform::sim::SetDebugTap([](const CString& text) { Instance().Add(platform::EncodeUtf8(text)); });
        }
    }
    ~CTraceCollector()
    {
        if (!m_lines.empty()) {
            // Processes of one run may get the same identifier one after the other, a random name tells them apart.
            std::random_device random;
            std::ofstream file(m_folder + "/" + std::to_string(random()) + "-" + std::to_string(random()) + ".txt");
            for (const std::string& line : m_lines) {
                file << line << "\n";
            }
        }
    }
    CTraceCollector(const CTraceCollector&) = delete;
    CTraceCollector& operator=(const CTraceCollector&) = delete;

    static CTraceCollector& Instance();

private:
    void Add(const std::string& text)
    {
        const auto parsed = testing_support::ParseTraceLine(text);
        if (!parsed) {
            return; // other output, such as a test's own
        }
        std::string line = parsed->trace.level + "|" + parsed->trace.function + "|" + parsed->trace.message;
        std::replace_if(
            line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        const std::scoped_lock lock(m_mutex);
        m_lines.insert(std::move(line));
    }

    std::string m_folder;
    std::mutex m_mutex;
    std::set<std::string> m_lines;
};

CTraceCollector g_collector;

CTraceCollector& CTraceCollector::Instance() { return g_collector; }

} // namespace
