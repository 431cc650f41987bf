// The program ampora-reportd itself.
#include "server/Options.h"
#include "server/ReportServer.h"
#include "server/SampleSource.h"
#include "testing/Answering.h"
#include "testing/process/Process.h"
#include "testing/RawClient.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace reportd {
namespace {

using testing::StartsWith;
using testing_support::CBackgroundProcess;
using testing_support::CRawClient;
using testing_support::ProcessResult;

constexpr std::chrono::seconds kLimit{30};
constexpr const char* kReport = "/usage/tokyo/estimated?date=2012-07-02&output=xml";

std::vector<std::string> Command(const std::vector<std::string>& arguments, std::vector<std::string> wrapper = {})
{
    wrapper.emplace_back(AMPORA_REPORTD);
    wrapper.insert(wrapper.end(), arguments.begin(), arguments.end());
    return wrapper;
}

ProcessResult RunToItsEnd(const std::vector<std::string>& arguments)
{
    return testing_support::RunProcess(Command(arguments), {}, kLimit);
}

// A text without the carriage returns of a Windows program.
std::string Lines(std::string text)
{
    std::erase(text, '\r');
    return text;
}

// The program, serving on a free port.
class ReportdProgram : public testing::Test {
protected:
    void Start(const std::vector<std::string>& wrapper = {})
    {
        m_program = std::make_unique<CBackgroundProcess>(Command({"--source", "sample", "--port", "0"}, wrapper),
                                                         testing_support::EnvironmentChanges());
        const std::string ready = m_program->ReadLine(kLimit).value_or("");
        const std::string start = "ampora-reportd: serving sample data on http://127.0.0.1:";
        ASSERT_THAT(ready, StartsWith(start));
        m_port = static_cast<WORD>(std::stoul(ready.substr(start.size())));
    }

    static void ExpectReport(CRawClient& client)
    {
        client.Ask(kReport);
        EXPECT_THAT(client.ReadTo("\r\n\r\n"), StartsWith("HTTP/1.1 200 "));
        CSampleSource source;
        CAnswers answers(source, nullptr, {});
        EXPECT_EQ(client.ReadTo("</power_report>\n"),
                  testing_support::BodyOf(testing_support::Get(answers, kReport, ReadSystemClock())));
    }

    std::unique_ptr<CBackgroundProcess> m_program;
    WORD m_port = 0;
};

TEST_F(ReportdProgram, ServesOnAFreePort)
{
    Start();
    CRawClient client(m_port);
    ExpectReport(client);
    EXPECT_EQ(m_program->Err(), "");
}

TEST_F(ReportdProgram, EndsWith1WhenThePortIsTaken)
{
    Start();
    const ProcessResult second = RunToItsEnd({"--source", "sample", "--port", std::to_string(m_port)});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_EQ(second.out, "");
    EXPECT_THAT(second.err, StartsWith("ampora-reportd: "));
    CRawClient client(m_port);
    ExpectReport(client);
}

TEST(ReportdOptions, HelpAndVersionArePrinted)
{
    const ProcessResult help = RunToItsEnd({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(Lines(help.out), HelpText());
    EXPECT_EQ(help.err, "");
    const ProcessResult version = RunToItsEnd({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(Lines(version.out), "ampora-reportd " AMPORA_VERSION "\n");
    EXPECT_EQ(version.err, "");
}

TEST(ReportdOptions, EndsWith2AndTheHelpTextOnWhatItDoesNotUnderstand)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--colour"},
                                                      {"--port"},
                                                      {"--port", "65536"},
                                                      {"--help", "me"},
                                                      {"--source", "sample", "--config", "x"}}) {
        const ProcessResult result = RunToItsEnd(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments.front();
        EXPECT_EQ(result.out, "") << arguments.front();
        EXPECT_THAT(Lines(result.err), testing::AllOf(StartsWith("ampora-reportd: "), testing::EndsWith(HelpText())));
    }
}

TEST(ReportdOptions, EndsWith1OnAnAddressThatIsNotItsOwn)
{
    for (const std::string address : {"localhost", "192.0.2.1"}) { // the second one is reserved for documentation
        const ProcessResult result = RunToItsEnd({"--source", "sample", "--listen", address, "--port", "0"});
        EXPECT_EQ(result.exitCode, 1) << address;
        EXPECT_THAT(result.err, StartsWith("ampora-reportd: ")) << address;
    }
}

// --- What only Linux has --------------------------------------------------------------------------------------------

class ReportdLinux : public ReportdProgram {
protected:
    // Clock ticks of processor time that the program has used.
    long TicksUsed() const
    {
        std::ifstream file("/proc/" + std::to_string(m_program->ProcessId()) + "/stat");
        std::string text;
        std::getline(file, text);
        std::istringstream fields(text.substr(text.rfind(") ") + 2));
        std::string skipped;
        for (int field = 3; field < 14; ++field) {
            fields >> skipped;
        }
        long user = 0;
        long system = 0;
        EXPECT_TRUE(fields >> user >> system);
        return user + system;
    }

    std::size_t DescriptorCount() const
    {
        const std::filesystem::directory_iterator open("/proc/" + std::to_string(m_program->ProcessId()) + "/fd");
        return static_cast<std::size_t>(std::distance(open, {}));
    }
};

TEST_F(ReportdLinux, SignalsEndItWith0)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Start();
        CRawClient client(m_port);
        ExpectReport(client);
        m_program->Signal(signal);
        EXPECT_EQ(m_program->WaitForExit(kLimit), 0) << signal;
        EXPECT_EQ(m_program->Err(), "");
    }
}

TEST_F(ReportdLinux, RestsWhileItIsOutOfDescriptors)
{
    // Symptom: as long as idle connections held every descriptor, the program used all of a processor.
    constexpr std::size_t kDescriptors = 16;
    Start({"prlimit", "--nofile=" + std::to_string(kDescriptors)});
    std::vector<std::unique_ptr<CRawClient>> clients;
    for (std::size_t i = 0; i < kDescriptors; ++i) {
        clients.push_back(std::make_unique<CRawClient>(m_port));
    }
    ASSERT_TRUE(testing_support::WaitUntil([this] { return DescriptorCount() == kDescriptors; }, kLimit));
    const long before = TicksUsed();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    testing_support::WaitUntil([&] { return std::chrono::steady_clock::now() > end; }, kLimit);
    EXPECT_LE(TicksUsed() - before, 5); // of 50
    CRawClient late(m_port);
    clients.clear();
    ExpectReport(late);
}

} // namespace
} // namespace reportd
