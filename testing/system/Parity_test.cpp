// The Linux and the Windows program do the same.
#include "testing/Reports.h"
#include "testing/system/Life.h"

#include <map>

namespace system_test {
namespace {

using testing_support::HttpAnswer;
using testing_support::TraceLine;

constexpr std::size_t kWriteTimeOffset = 16;
constexpr std::size_t kWriteTimeSize = 16;

// What a pass left: each thread's lines in its order, and the files without their time of writing.
struct Outcome {
    std::vector<std::vector<TraceLine>> threads;
    std::map<std::string, std::string> files;
    std::vector<std::string> dates;
};

// What the copies of one life traced, by who wrote it: application and workers of the copy that lives, a second one,
// the one that ends it.
using LifeLines = std::map<std::string, Lines>;

class SystemParity : public CLifeTest {
protected:
    SystemParity() : CLifeTest(Platform::kLinux) {}

    // Starts, updates, suspends, resumes, meets a second copy and ends.
    LifeLines LiveOn(Platform platform)
    {
        const std::unique_ptr<CRig> rig = MakeRig(platform);
        rig->PutSettings(Settings({}, kEveryLine));
        const std::unique_ptr<CCopy> copy = rig->Start();
        AwaitArmed(*copy);
        EXPECT_TRUE(rig->Do("set AmporaSrvUpdateEvent"));
        AwaitArmed(*copy, 2);
        EXPECT_TRUE(rig->Do("post Ampora " + std::to_string(kPower) + " 4 0"));
        EXPECT_TRUE(copy->WaitForLine({"TRA", "CAmporaSrvDlg::OnPowerBroadcast", "Leave"}));
        EXPECT_TRUE(copy->WaitForLine({"TRA", "CAmporaThread::_CallThreadProc", "Leave"}));
        for (const char* event : {"18", "7"}) {
            EXPECT_TRUE(rig->Do("post Ampora " + std::to_string(kPower) + " " + event + " 0"));
        }
        EXPECT_TRUE(copy->WaitForLine({"TRA", "CAmporaSrvDlg::OnPowerBroadcast", "Leave"}, 3));
        AwaitArmed(*copy, 3);
        const std::unique_ptr<CCopy> second = rig->Start();
        EXPECT_EQ(second->WaitForExit(kEndLimit), 0);
        const std::unique_ptr<CCopy> exitCopy = rig->Start({"/Exit"});
        EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
        EXPECT_EQ(copy->WaitForExit(kEndLimit), 0);
        return {{"application", MainLines(copy->Trace())},
                {"workers", WithoutFolder(WorkerLines(copy->Trace()))},
                {"second copy", MainLines(second->Trace())},
                {"copy that ends it", MainLines(exitCopy->Trace())}};
    }

    // The data folder's name is the platform's own.
    static Lines WithoutFolder(Lines lines)
    {
        for (TraceLine& line : lines) {
            if (line.message.starts_with("Save Folder Created(")) {
                line.message = "Save Folder Created";
            }
        }
        return lines;
    }

    Outcome RunOn(Platform platform)
    {
        const std::unique_ptr<CRig> rig = MakeRig(platform);
        rig->PutSettings(BaseSettings(Port(), kEveryLine) + SiteSetting("chubu", "SupportDataType", 31) +
                         MainSettings(kFixedInterval));
        const std::size_t before = Requests().size();
        const std::unique_ptr<CCopy> copy = rig->Start();
        AwaitArmed(*copy);
        const CopyOutput pass = EndCopy(*rig, *copy);
        EXPECT_EQ(pass.exitCode, 0);
        Outcome outcome;
        std::map<unsigned, std::size_t> threads;
        for (StampedLine line : pass.lines) {
            const auto thread = threads.try_emplace(line.thread, threads.size()).first->second;
            outcome.threads.resize(threads.size());
            if (line.trace.message.starts_with("Save Folder Created(")) {
                line.trace.message = "Save Folder Created"; // with the platform's own path
            }
            outcome.threads[thread].push_back(line.trace);
        }
        for (const auto& file : std::filesystem::directory_iterator(rig->DataFolder())) {
            std::string bytes = FileBytes(file.path());
            if (bytes.size() >= kWriteTimeOffset + kWriteTimeSize) {
                bytes.replace(kWriteTimeOffset, kWriteTimeSize, kWriteTimeSize, '\0');
            }
            outcome.files[file.path().filename().string()] = bytes;
        }
        const std::vector<Request> requests = Requests();
        for (std::size_t i = before; i < requests.size(); ++i) {
            outcome.dates.push_back(requests[i].date);
        }
        return outcome;
    }
};

TEST_F(SystemParity, SameReportsGiveTheSameFilesAndTraceLines)
{
    // Each kind of trouble that a report can make, and healthy ones between.
    const std::vector<testing_support::NamedReport> broken = testing_support::UnloadableReports();
    SetAnswer("tohoku", [&broken](const Request& request) {
        const std::size_t turn = request.dataType * 31 + static_cast<std::size_t>(request.date.back());
        return HttpAnswer{.body = broken[turn % broken.size()].xml};
    });
    SetAnswer(
        "kansai", [](const Request&) { return HttpAnswer{.body = "<other/>"}; }, 1);
    SetAnswer(
        "kansai", [](const Request&) { return HttpAnswer{.status = 503}; }, 2);
    SetAnswer(
        "kansai", [](const Request&) { return HttpAnswer{.status = 404}; }, 4);
    SetAnswer(
        "kansai", [](const Request&) { return HttpAnswer{.body = "<power_report><x/><peak_supply/></power_report>"}; },
        8);
    SetAnswer(
        "kyushu",
        [](const Request&) {
            return HttpAnswer{.body = testing_support::PeakReport(8, {"2012-02-30T10:00:00", "99-1-1T1:1:1", "-1"})};
        },
        8);
    SetAnswer(
        "kyushu",
        [](const Request&) {
            return HttpAnswer{.body = testing_support::PeakReport(
                                  16, {"2012-02-29T10:00:00+09:00", " 2012-07-02T23:59:59", "18446744073709551616"})};
        },
        16);
    Outcome onLinux = RunOn(Platform::kLinux);
    Outcome onWindows = RunOn(Platform::kWindows);
    if (onLinux.dates != onWindows.dates) {
        onLinux = RunOn(Platform::kLinux); // noon or midnight came between the two: once more
    }
    ASSERT_EQ(onLinux.dates, onWindows.dates);
    EXPECT_EQ(onLinux.files, onWindows.files);
    ASSERT_EQ(onLinux.threads.size(), onWindows.threads.size());
    for (std::size_t i = 0; i < onLinux.threads.size(); ++i) {
        EXPECT_EQ(onLinux.threads[i], onWindows.threads[i]);
    }
    EXPECT_EQ(onLinux.files.size(), 16U); // Tokyo 5, Tohoku 0, Kansai 3, Chubu 5, Kyushu 3
}

TEST_F(SystemParity, SameLifeGivesTheSameTraceLines)
{
    const LifeLines onLinux = LiveOn(Platform::kLinux);
    const LifeLines onWindows = LiveOn(Platform::kWindows);
    for (const auto& [writer, lines] : onLinux) {
        EXPECT_EQ(lines, onWindows.at(writer)) << writer;
        EXPECT_TRUE(testing_support::TraceScopesBalance(lines)) << writer;
    }
    EXPECT_EQ(Life(Steps(onLinux.at("workers"))), FirstPass() + TimerMade() + IntervalArmed() + WokenUp() +
                                                      LaterPass() + IntervalArmed() + WokenUp() + WorkerEnd() +
                                                      TimerMade() + IntervalArmed() + WokenUp() + WorkerEnd());
}

} // namespace
} // namespace system_test
