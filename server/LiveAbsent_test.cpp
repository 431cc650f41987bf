// The program without live sources. Built for Windows only: a program that has them would ask the companies.
#include "testing/process/Process.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using testing::StartsWith;
using testing_support::CBackgroundProcess;
using testing_support::ProcessResult;

constexpr std::chrono::seconds kLimit{30};

TEST(ReportdWindows, LiveSourcesNeedLinux)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--source", "live"},
                                                      {"check"},
                                                      {"import", "x.csv"},
                                                      {"backfill", "--from", "2026-04-20"}}) {
        std::vector<std::string> command{AMPORA_REPORTD};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ProcessResult result = testing_support::RunProcess(command, {}, kLimit);
        EXPECT_EQ(result.exitCode, 1) << arguments.front();
        EXPECT_EQ(result.out, "") << arguments.front();
        EXPECT_THAT(result.err, StartsWith("ampora-reportd: live sources need Linux")) << arguments.front();
    }
}

TEST(ReportdWindows, SampleDataIsTheDefault)
{
    CBackgroundProcess program({AMPORA_REPORTD, "--port", "0"}, testing_support::EnvironmentChanges());
    EXPECT_THAT(program.ReadLine(kLimit).value_or(""), StartsWith("ampora-reportd: serving sample data on http://"));
}

} // namespace
} // namespace reportd
