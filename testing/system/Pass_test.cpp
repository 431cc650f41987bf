// One pass of the real program, on the platform under test.
#include "testing/Reports.h"
#include "testing/ScratchFolder.h"
#include "testing/system/Sequences.h"
#include "testing/system/SystemTest.h"

#include <algorithm>
#include <fstream>
#include <future>

namespace system_test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;
using testing_support::HttpFault;
using testing_support::PeakReport;
using testing_support::Report;
using testing_support::TraceLine;
using testing_support::UsageReport;

constexpr const char* kUpdateOne = "CAmporaUpdater::UpdateOnePowerCompany";
constexpr const char* kSiteAnalyze = "CAmporaGoolgeSiteConfig::AnalyzeData";
constexpr const char* kAnalyze = "CGSXMLAnalyzer::AnalyzeData";
constexpr const char* kGetData = "CAmporaHttpClient::GetData";
const TraceLine kGetDataFail{"ERR", kUpdateOne, "Get Data Fail"};
const TraceLine kAnalyzeError{"ERR", kUpdateOne, "Analyze Error"};
const TraceLine kUpdated{"TRA", "CAmporaUpdater::ThreadProc", "Updated"};
const TraceLine kSendFail{"ERR", kGetData, "SendRequest Fail."};
const TraceLine kTransferBroke{"WAR", kGetData, "Exception!"};
const TraceLine kDataIsEmpty{"ERR", kSiteAnalyze, "Data is Empty"};
const TraceLine kOpenFail{"ERR", "CAmporaGoolgeSiteConfig::OutData", "Open Fail."};
const TraceLine kLoadFail{"ERR", "CXMLParser::Load", "XML Load fail.(0x08X)"};
const TraceLine kTagInvalid{"ERR", kAnalyze, "Tag name invalid"};

// The company whose answers go wrong: three kinds of data, so six requests.
constexpr const char* kFaulty = "chubu";
constexpr int kFaultyRequests = 6;
constexpr int kAllRequests = 42;

TraceLine StatusError(unsigned status) { return {"TRA", kGetData, "StatusCode is Error " + std::to_string(status)}; }

class SystemPass : public CSystemTest {
protected:
    // A pass in which the faulty company's answers, or those of one kind, are these and its files exist: they stay as
    // they are, all others are written.
    CopyOutput RunFaulty(AnswerFunction answer, unsigned dataType = 0)
    {
        SetAnswer(kFaulty, std::move(answer), dataType);
        PutOldFiles(kFaulty);
        CopyOutput pass = RunPass();
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(pass.brokenLines, 0) << pass.text;
        EXPECT_EQ(CountLines(pass, kUpdated), 1);
        if (dataType == 0) {
            ExpectOldFiles(kFaulty);
            ExpectOthersHealthy(kFaulty);
        } else {
            ExpectOldFile(kFaulty, dataType);
            ExpectOthersHealthy(kFaulty, dataType);
        }
        return pass;
    }

    CopyOutput RunFaulty(const HttpAnswer& answer, unsigned dataType = 0)
    {
        return RunFaulty([answer](const Request&) { return answer; }, dataType);
    }

    // A healthy report with a fault on its way.
    AnswerFunction HealthyWith(HttpFault fault, bool chunked = false)
    {
        return [this, fault, chunked](const Request& request) {
            HttpAnswer answer = Healthy().Answer(request);
            answer.fault = fault;
            answer.chunked = chunked;
            return answer;
        };
    }

    // A pass in which every file exists and no request gets an answer.
    void RunUnanswered(const std::string& moreSettings = "")
    {
        for (const TestCompany& company : kTestCompanies) {
            PutOldFiles(company.word);
        }
        const CopyOutput pass = RunPass(moreSettings);
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(CountLines(pass, kSendFail), kAllRequests);
        EXPECT_EQ(CountLines(pass, kGetDataFail), kAllRequests);
        EXPECT_EQ(CountLines(pass, kUpdated), 1);
        for (const TestCompany& company : kTestCompanies) {
            ExpectOldFiles(company.word);
        }
    }

    // A pass whose first answer stalls until its connection ends: it costs that day alone.
    CopyOutput RunStalled(HttpFault fault)
    {
        SetAnswer("tokyo", [this, fault](const Request& request) {
            HttpAnswer answer = Healthy().Answer(request);
            answer.fault = Exchanges().size() == 1 ? fault : HttpFault::kNone;
            return answer;
        });
        std::future<CopyOutput> running =
            std::async(std::launch::async, [this] { return RunPass(SiteSetting("tokyo", "SupportDataType", 8)); });
        EXPECT_TRUE(EndStalled());
        CopyOutput pass = running.get();
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(CountLines(pass, kGetDataFail), 1);
        EXPECT_EQ(CountLines(pass, kUpdated), 1);
        EXPECT_THAT(Requests(), SizeIs(kAllRequests - 8));
        EXPECT_EQ(Records("tokyo", 8), Healthy().RecordBytes("tokyo", 8, {Dates().at(1)}));
        ExpectOthersHealthy("tokyo");
        return pass;
    }

    // Answers of one kind with this report leave one record of these bytes for each of the two days.
    CopyOutput RunRecord(unsigned dataType, const std::string& report, const std::string& record)
    {
        SetAnswer(
            kFaulty, [report](const Request&) { return HttpAnswer{.body = report}; }, dataType);
        CopyOutput pass = RunPass();
        EXPECT_EQ(Records(kFaulty, dataType), record + record);
        ExpectOthersHealthy(kFaulty, dataType);
        return pass;
    }

    // The folder's name as the program knows it.
    std::string DataFolderName()
    {
        return PlatformUnderTest() == Platform::kWindows ? "C:\\ProgramData\\AmporaSrv" : Rig().DataFolder().string();
    }
};

// Every request of the faulty company failed for this reason, and what came of it is this.
void ExpectEachFailed(const CopyOutput& pass, const TraceLine& reason, const TraceLine& result)
{
    EXPECT_EQ(CountLines(pass, reason), kFaultyRequests);
    EXPECT_EQ(CountLines(pass, result), kFaultyRequests);
    EXPECT_EQ(CountLines(pass, kGetDataFail) + CountLines(pass, kAnalyzeError), kFaultyRequests);
}

// A report without its XML declaration.
std::string Body(const std::string& report) { return report.substr(report.find("<power_report>")); }

// Elements one inside the other, each with its end.
std::string Nested(int levels)
{
    std::string begin;
    std::string end;
    for (int level = 0; level < levels; ++level) {
        begin += "<a>";
        end += "</a>";
    }
    return begin + end;
}

// The steps of the worker that runs a healthy pass and is ended then: what each kind of each company has to trace.
std::vector<TraceLine> HealthySteps(const std::string& dataFolder)
{
    const std::map<unsigned, std::string> kinds = {
        {1, "Instant"}, {2, "Actual"}, {4, "Estimated"}, {8, "PeakSupply"}, {16, "PeakDemand"}};
    std::vector<TraceLine> steps = {{"TRA", "CAmporaUpdater::ThreadProc", "Update Flag ON"}};
    bool folderMade = false;
    for (const TestCompany& company : kTestCompanies) {
        for (const unsigned dataType : kDataTypes) {
            for (int day = 0; day < 2; ++day) {
                if ((company.mask & dataType) != 0) {
                    steps.push_back({"TRA", kAnalyze, kinds.at(dataType) + " Tag Success"});
                } else {
                    steps.push_back({"TRA", company.className + "::GetURL", "Not Support Setting"});
                    steps.push_back({"TRA", kUpdateOne, "Get URL Empty. Skip"});
                }
            }
            if (!folderMade) {
                steps.push_back(
                    {"TRA", "CAmporaGoolgeSiteConfig::GetSaveFolderPath", "Save Folder Created(" + dataFolder + ")"});
                folderMade = true;
            }
        }
    }
    steps.push_back(kUpdated);
    const Lines rest = TimerMade() + IntervalArmed() + WokenUp() + WorkerEnd();
    steps.insert(steps.end(), rest.begin(), rest.end());
    return steps;
}

TEST_F(SystemPass, AsksForEveryReportOfBothDaysInOrder)
{
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(RunPass().exitCode, 0);
    const std::time_t after = std::time(nullptr);
    const std::vector<std::string> dates = Dates();
    ASSERT_THAT(dates, SizeIs(2));
    EXPECT_TRUE(dates[0] == DateOf(before - 43200) || dates[0] == DateOf(after - 43200)) << dates[0];
    EXPECT_TRUE(dates[1] == DateOf(before + 43200) || dates[1] == DateOf(after + 43200)) << dates[1];
    std::vector<std::string> expected;
    for (const TestCompany& company : kTestCompanies) {
        for (const unsigned dataType : kDataTypes) {
            for (const std::string& date : dates) {
                if ((company.mask & dataType) != 0) {
                    expected.push_back(TargetOf({company.word, dataType, date}));
                }
            }
        }
    }
    ASSERT_THAT(expected, SizeIs(42));
    std::vector<std::string> targets;
    for (const HttpExchange& exchange : Exchanges()) {
        targets.push_back(exchange.target);
    }
    EXPECT_EQ(targets, expected);
}

TEST_F(SystemPass, UsesOneConnectionAndNamesItself)
{
    RunPass();
    const std::vector<HttpExchange> exchanges = Exchanges();
    ASSERT_THAT(exchanges, SizeIs(42));
    EXPECT_THAT(exchanges, Each(Field(&HttpExchange::connection, exchanges.front().connection)));
    EXPECT_THAT(exchanges, Each(Field(&HttpExchange::method, "GET")));
    EXPECT_THAT(exchanges, Each(Field(&HttpExchange::agent, "Ampora Service")));
    EXPECT_THAT(exchanges, Each(Field(&HttpExchange::host, "127.0.0.1:" + std::to_string(Port()))));
}

TEST_F(SystemPass, WritesEveryFileByteForByte)
{
    RunPass();
    for (const TestCompany& company : kTestCompanies) {
        ExpectHealthyFiles(company.word);
    }
    const auto files = std::filesystem::directory_iterator(Rig().DataFolder());
    EXPECT_EQ(std::distance(begin(files), end(files)), 21);
}

TEST_F(SystemPass, TracesEveryStepInOrder)
{
    const CopyOutput pass = RunPass(MainSettings(kFixedInterval), kEveryLine);
    EXPECT_EQ(pass.brokenLines, 0) << pass.text;
    EXPECT_EQ(Steps(WorkerLines(pass)), HealthySteps(DataFolderName()));
    EXPECT_EQ(Steps(MainLines(pass)), ProgramStart() + ProgramEnd());
}

TEST_F(SystemPass, TracesEntryAndExitOfEveryFunction)
{
    const CopyOutput pass = RunPass("", kEveryLine);
    EXPECT_TRUE(ScopesBalance(pass));
    EXPECT_EQ(CountLines(pass, {"TRA", kGetData, "Enter"}), 42);
    EXPECT_EQ(CountLines(pass, {"TRA", kGetData, "Leave"}), 42);
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaGoolgeSiteConfig::OutData", "Enter"}), 21);
    EXPECT_EQ(CountLines(pass, {"TRA", kUpdateOne, "Enter"}), 5);
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaUpdater::Update", "Enter"}), 1);
    for (const StampedLine& line : pass.lines) {
        EXPECT_EQ(line.process, pass.lines.front().process);
    }
}

TEST_F(SystemPass, TracesNothingWhenLogLevelIs0)
{
    EXPECT_EQ(RunSilentPass("", 0).text, "");
    ExpectHealthyFiles("tokyo");
}

TEST_F(SystemPass, TracesErrorsAndWarningsAloneWhenLogLevelIs3)
{
    SetAnswer("tokyo", [](const Request&) { return HttpAnswer{.status = 404}; });
    const CopyOutput pass = RunSilentPass("", 3);
    EXPECT_EQ(pass.lines.size(), 20U); // two for each of Tokyo's ten reports
    for (const StampedLine& line : pass.lines) {
        EXPECT_EQ(line.trace.level, "ERR") << line.trace;
    }
}

TEST_F(SystemPass, PerUserLogLevelCountsBeforeTheMachineWideOne)
{
    EXPECT_EQ(
        RunSilentPass("[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv]\n\"LogLevel\"=dword:0\n\n", kMessages).text,
        "");
}

TEST_F(SystemPass, ChangedLogLevelCountsAtTheNextStart)
{
    const std::string settings = OnlySetting("tokyo", 8);
    SetAnswer("tokyo", [&](const Request& request) {
        if (Exchanges().size() == 1) {
            Rig().PutSettings(BaseSettings(Port(), 0) + settings);
        }
        return Healthy().Answer(request);
    });
    const CopyOutput pass = RunPass(settings);
    EXPECT_EQ(CountLines(pass, {"TRA", kAnalyze, "PeakSupply Tag Success"}), 2);
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(RunSilentPass(settings, 0).text, "");
    EXPECT_THAT(Exchanges(), SizeIs(4));
}

TEST_F(SystemPass, DoesNothingWhenUpdatingIsOff)
{
    for (const std::string settings : {"", "[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n\"Enable\"=dword:0\n\n",
                                       "[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv]\n\"Enable\"=dword:1\n\n"}) {
        Rig().PutSettings(settings +
                          "[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv]\n\"LogLevel\"=dword:0000000b\n"
                          "\"ApiHost\"=\"127.0.0.1:" +
                          std::to_string(Port()) + "\"\n\n");
        const std::unique_ptr<CCopy> copy = Rig().Start();
        AwaitArmed(*copy);
        EXPECT_TRUE(Rig().Do("set AmporaSrvUpdateEvent"));
        EXPECT_TRUE(copy->WaitForLine({"TRA", "CAmporaUpdater::ThreadProc", "Update Flag OFF"})) << settings;
        EXPECT_EQ(EndCopy(*copy).exitCode, 0);
    }
    EXPECT_THAT(Exchanges(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(Rig().DataFolder()));
}

TEST_F(SystemPass, LeavesOutACompanyThatIsSwitchedOff)
{
    PutOldFile("kansai", 1);
    const CopyOutput pass = RunPass(SiteSetting("kansai", "Enable", 0));
    EXPECT_THAT(Requests(), SizeIs(32));
    EXPECT_THAT(Requests(), Each(Field(&Request::company, Not("kansai"))));
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaKansaiPowerCompany::GetURL", "Not Update Setting"}), 10);
    ExpectOldFile("kansai", 1);
    EXPECT_FALSE(std::filesystem::exists(DataFile("kansai", 2)));
    ExpectOthersHealthy("kansai");
}

TEST_F(SystemPass, AsksForTheKindsOfTheMask)
{
    const CopyOutput pass =
        RunPass(SiteSetting("tokyo", "SupportDataType", 0) + SiteSetting("chubu", "SupportDataType", 31) +
                SiteSetting("kyushu", "SupportDataType", 4));
    std::map<std::pair<std::string, unsigned>, int> counts;
    for (const Request& request : Requests()) {
        ++counts[{request.company, request.dataType}];
    }
    std::map<std::pair<std::string, unsigned>, int> expected = {{{"kyushu", 4}, 2}};
    for (const unsigned dataType : kDataTypes) {
        expected[{"tohoku", dataType}] = 2;
        expected[{"kansai", dataType}] = 2;
        expected[{"chubu", dataType}] = 2;
    }
    EXPECT_EQ(counts, expected);
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaTokyoPowerCompany::GetURL", "Not Support Setting"}), 10);
    ExpectHealthyFile("chubu", 1);
    ExpectHealthyFile("kyushu", 4);
    EXPECT_FALSE(std::filesystem::exists(DataFile("tokyo", 1)));
}

TEST_F(SystemPass, ReplacesTheFilesOfTheLastPass)
{
    PutOldFile("tokyo", 1);
    RunPass();
    RunPass();
    for (const TestCompany& company : kTestCompanies) {
        ExpectHealthyFiles(company.word);
    }
}

TEST_F(SystemPass, UnavailableDaysLeaveAHeaderAlone)
{
    SetAnswer("tohoku", [](const Request&) { return HttpAnswer{.status = 503}; });
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, StatusError(503)), 10);
    EXPECT_EQ(CountLines(pass, {"TRA", kSiteAnalyze, "No Data"}), 10);
    for (const unsigned dataType : kDataTypes) {
        ExpectEmptyFile("tohoku", dataType);
    }
    ExpectOthersHealthy("tohoku");
}

TEST_F(SystemPass, OneUnavailableDayLeavesTheOtherDaysRecords)
{
    SetAnswer("tohoku", [this](const Request& request) {
        return request.date == Dates().front() ? HttpAnswer{.status = 503} : Healthy().Answer(request);
    });
    RunPass();
    const std::string records = Healthy().RecordBytes("tohoku", 8, {Dates().at(1)});
    EXPECT_EQ(Records("tohoku", 8), records);
    EXPECT_EQ(records.size(), 40U);
}

TEST_F(SystemPass, OneFailedDayLeavesTheOtherDaysRecords)
{
    SetAnswer("tohoku", [this](const Request& request) {
        return request.date == Dates().front() ? Healthy().Answer(request) : HttpAnswer{.status = 500};
    });
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, StatusError(500)), 5);
    EXPECT_EQ(CountLines(pass, kDataIsEmpty), 5);
    EXPECT_EQ(CountLines(pass, kAnalyzeError), 5);
    EXPECT_EQ(Records("tohoku", 16), Healthy().RecordBytes("tohoku", 16, {Dates().at(0)}));
}

TEST_F(SystemPass, BodyOfAnUnavailableDayIsNotRead)
{
    SetAnswer(
        "tohoku",
        [this](const Request& request) { return HttpAnswer{.status = 503, .body = Healthy().Answer(request).body}; },
        8);
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, StatusError(503)), 2);
    EXPECT_EQ(CountLines(pass, {"TRA", kSiteAnalyze, "No Data"}), 2);
    ExpectEmptyFile("tohoku", 8);
    ExpectHealthyFile("tohoku", 16);
}

TEST_F(SystemPass, ErrorStatusLeavesTheFilesAsTheyAre)
{
    const std::map<unsigned, unsigned> statuses = {{2, 404}, {8, 400}, {16, 500}};
    const CopyOutput pass = RunFaulty([&](const Request& request) {
        const bool isFirstDay = request.date == Dates().front();
        return HttpAnswer{.status = statuses.at(request.dataType), .body = isFirstDay ? "<power_report/>" : ""};
    });
    for (const auto& [dataType, status] : statuses) {
        EXPECT_EQ(CountLines(pass, StatusError(status)), 2) << status;
    }
    ExpectEachFailed(pass, kDataIsEmpty, kAnalyzeError);
}

TEST_F(SystemPass, EmptyAnswerLeavesTheFilesAsTheyAre)
{
    ExpectEachFailed(RunFaulty(HttpAnswer{}), kDataIsEmpty, kAnalyzeError);
}

TEST_F(SystemPass, ServerThatIsNotThereCostsEveryReportAndNothingElse)
{
    const testing_support::CClosedPort nobody;
    SetPort(nobody.Port());
    RunUnanswered();
}

TEST_F(SystemPass, HostThatCannotBeResolvedCostsEveryReportAndNothingElse)
{
    // No name server is asked for a name with a part above 63 characters.
    const std::string host = std::string(64, 'x') + ".invalid";
    RunUnanswered("[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv]\n\"ApiHost\"=\"" + host + "\"\n\n");
    EXPECT_THAT(Exchanges(), IsEmpty());
}

TEST_F(SystemPass, ConnectionThatClosesEarlyFails)
{
    ExpectEachFailed(RunFaulty({.fault = HttpFault::kClosedEarly}), kSendFail, kGetDataFail);
}

TEST_F(SystemPass, BytesThatAreNotHttpAreNoReport)
{
    const CopyOutput pass = RunFaulty({.fault = HttpFault::kGarbage});
    if (PlatformUnderTest() == Platform::kLinux) {
        ExpectEachFailed(pass, kSendFail, kGetDataFail);
    } else { // WinINet takes them for an old server's answer
        ExpectEachFailed(pass, kLoadFail, kAnalyzeError);
    }
}

TEST_F(SystemPass, AnswerShorterThanItSaysFails)
{
    ExpectEachFailed(RunFaulty(HealthyWith(HttpFault::kShortBody)), kTransferBroke, kGetDataFail);
}

TEST_F(SystemPass, AnswerLongerThanItSaysIsNoReport)
{
    ExpectEachFailed(RunFaulty(HealthyWith(HttpFault::kLongBody)), kLoadFail, kAnalyzeError);
}

TEST_F(SystemPass, ChunksThatBreakOffAreNoReport)
{
    const CopyOutput pass = RunFaulty(HealthyWith(HttpFault::kShortBody, true));
    if (PlatformUnderTest() == Platform::kLinux) {
        ExpectEachFailed(pass, kTransferBroke, kGetDataFail);
    } else { // wine takes the break for the body's end
        ExpectEachFailed(pass, kLoadFail, kAnalyzeError);
    }
}

TEST_F(SystemPass, ConnectionResetInTheBodyFails)
{
    const CopyOutput pass = RunFaulty(HealthyWith(HttpFault::kReset));
    // The reset may overtake the header.
    EXPECT_EQ(CountLines(pass, kSendFail) + CountLines(pass, kTransferBroke), kFaultyRequests);
    EXPECT_EQ(CountLines(pass, kGetDataFail), kFaultyRequests);
}

TEST_F(SystemPass, RedirectLoopEnds)
{
    // WinINet gives up after some redirects, wine never does: there the server ends the loop.
    constexpr int kServersPatience = 40;
    std::map<std::string, int> redirects; // by target
    const CopyOutput pass = RunFaulty([&redirects](const Request& request) {
        const std::string target = TargetOf(request);
        if (++redirects[target] > kServersPatience) {
            return HttpAnswer{.fault = HttpFault::kClosedEarly};
        }
        return HttpAnswer{.status = 302, .headers = {{"Location", target}}};
    });
    EXPECT_THAT(redirects, SizeIs(kFaultyRequests));
    if (PlatformUnderTest() == Platform::kLinux) {
        ExpectEachFailed(pass, kSendFail, kGetDataFail);
        EXPECT_THAT(redirects, Each(testing::Pair(testing::_, 11)));
    } else { // an answer without a body, by its last status
        ExpectEachFailed(pass, kDataIsEmpty, kAnalyzeError);
    }
}

TEST_F(SystemPass, RedirectIsFollowed)
{
    SetAnswer(kFaulty, [this](const Request& request) {
        if (request.dataType == 8) {
            return HttpAnswer{.status = 302, .headers = {{"Location", TargetOf({request.company, 1, request.date})}}};
        }
        return request.dataType == 1 ? Healthy().Answer({request.company, 8, request.date}) : Healthy().Answer(request);
    });
    RunPass();
    ExpectHealthyFile(kFaulty, 8);
}

TEST_F(SystemPass, ChunkedAnswerIsRead)
{
    SetAnswerForAll([this](const Request& request) {
        HttpAnswer answer = Healthy().Answer(request);
        answer.chunked = true;
        return answer;
    });
    RunPass();
    for (const TestCompany& company : kTestCompanies) {
        ExpectHealthyFiles(company.word);
    }
}

TEST_F(SystemPass, TextThatIsNoDocumentIsNoReport)
{
    std::vector<testing_support::NamedReport> reports = testing_support::UnloadableReports();
    std::erase_if(reports, [](const auto& report) { return report.xml.empty(); }); // a case of its own
    const std::size_t requests = 20;
    ASSERT_LE(reports.size(), requests);
    std::size_t next = 0;
    for (const char* company : {"tohoku", "kansai"}) {
        SetAnswer(company, [&](const Request&) { return HttpAnswer{.body = reports[next++ % reports.size()].xml}; });
        PutOldFiles(company);
    }
    const CopyOutput pass = RunPass();
    EXPECT_EQ(next, requests);
    EXPECT_EQ(CountLines(pass, kLoadFail), 20);
    EXPECT_EQ(CountLines(pass, kTagInvalid), 20);
    EXPECT_EQ(CountLines(pass, kAnalyzeError), 20);
    ExpectOldFiles("tohoku");
    ExpectOldFiles("kansai");
    ExpectHealthyFiles("tokyo");
    ExpectHealthyFiles("chubu");
    ExpectHealthyFiles("kyushu");
}

TEST_F(SystemPass, EndlessNestingIsNoReport)
{
    ExpectEachFailed(RunFaulty({.body = Report(Nested(100000))}), kLoadFail, kAnalyzeError);
}

TEST_F(SystemPass, ReportBeyondTheLimitFails)
{
    constexpr std::size_t kLongestBody = std::size_t{8} * 1024 * 1024;
    HttpAnswer answer{.body = PeakReport(8, {})};
    answer.body.resize(kLongestBody + 1, ' ');
    const CopyOutput pass = RunFaulty(answer, 8);
    EXPECT_EQ(CountLines(pass, kTransferBroke), 2);
    EXPECT_EQ(CountLines(pass, kGetDataFail), 2);
}

TEST_F(SystemPass, HugeReportIsStored)
{
    constexpr int kUsages = 100000;
    constexpr int kWindowSeconds = 12 * 60 * 60;
    const std::time_t first = std::time(nullptr) - kWindowSeconds / 2;
    std::vector<testing_support::UsageRow> rows;
    std::string records;
    for (int i = 0; i < kUsages; ++i) {
        const std::time_t start = first + i % kWindowSeconds;
        rows.push_back({DateTimeOf(start), "60", std::to_string(i)});
        records += Bytes64(static_cast<unsigned>(i)) + CalendarBytes(start) + CalendarBytes(start + 60);
    }
    SetAnswer("tokyo", [&](const Request& request) {
        return request.date == Dates().front() ? HttpAnswer{.body = UsageReport(2, rows)} : HttpAnswer{.status = 503};
    });
    // Without the lines about each usage.
    EXPECT_EQ(RunSilentPass(OnlySetting("tokyo", 2), 3).text, "");
    EXPECT_EQ(FileBytes(DataFile("tokyo", 2)).substr(0, 16), HeaderBytes(2, kUsages));
    EXPECT_TRUE(Records("tokyo", 2) == records) << Records("tokyo", 2).size();
}

TEST_F(SystemPass, DocumentWithAnotherRootIsNoReport)
{
    const CopyOutput pass = RunFaulty({.body = "<?xml version=\"1.0\"?><Power_Report><peak_supply/></Power_Report>"});
    EXPECT_EQ(CountLines(pass, kLoadFail), 0);
    ExpectEachFailed(pass, kTagInvalid, kAnalyzeError);
}

TEST_F(SystemPass, NothingThatADocumentNamesIsFetched)
{
    const std::string secret = "271828182845";
    const testing_support::CScratchFolder folder;
    const std::string root = PlatformUnderTest() == Platform::kWindows ? "file:///Z:" : "file://";
    const std::string file = root + folder.Write("secret", secret).string();
    const std::string definitions = root + folder.Write("definitions", "<!ENTITY e \"" + secret + "\">").string();
    const std::string url = "http://127.0.0.1:" + std::to_string(Port()) + "/stolen";
    const std::map<unsigned, std::string> documents = {
        {2, "[<!ENTITY e SYSTEM \"" + file + "\">]>" + Body(UsageReport(2, {{.value = "&e;"}}))},
        {8, "SYSTEM \"" + url + ".dtd\" [<!ENTITY % p SYSTEM \"" + url + "\">%p;<!ENTITY e SYSTEM \"" + url + "\">]>" +
                Body(PeakReport(8, {.value = "&e;"}))},
        {16, "SYSTEM \"" + definitions + "\">" + Body(PeakReport(16, {.value = "&e;"}))}};
    const CopyOutput pass = RunFaulty([&documents](const Request& request) {
        return HttpAnswer{.body = "<?xml version=\"1.0\"?><!DOCTYPE power_report " + documents.at(request.dataType)};
    });
    EXPECT_THAT(Exchanges(), SizeIs(kAllRequests));
    EXPECT_THAT(pass.text, Not(HasSubstr(secret)));
    ExpectEachFailed(pass, kLoadFail, kAnalyzeError);
}

TEST_F(SystemPass, BrokenDatesAndNumbersBecomeTheirDefaults)
{
    // Value 0, from Monday 1601-01-01 00:00:00 to the same.
    const std::string never("\x41\x06\x01\x00\x01\x00\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00", 16);
    RunRecord(8, PeakReport(8, {"2012-13-01T00:00:00", "tomorrow", "many"}), Bytes64(0) + never + never);
}

TEST_F(SystemPass, BrokenNumbersOfAUsageBecomeZero)
{
    const std::time_t start = std::time(nullptr);
    RunRecord(2, UsageReport(2, {{DateTimeOf(start), "long", "much"}}),
              Bytes64(0) + CalendarBytes(start) + CalendarBytes(start));
}

TEST_F(SystemPass, UsageWithABrokenDateCostsItselfAlone)
{
    const std::time_t start = std::time(nullptr);
    SetAnswer(kFaulty, [start](const Request&) {
        return HttpAnswer{.body =
                              UsageReport(2, {{"2012-13-01T00:00:00", "300", "6"}, {DateTimeOf(start), "300", "7"}})};
    });
    const CopyOutput pass = RunPass(OnlySetting(kFaulty, 2));
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaDataCollection::AdjustData", "Out of Range. Remove Item"}), 2);
    const std::string record = Bytes64(7) + CalendarBytes(start) + CalendarBytes(start + 300);
    EXPECT_EQ(Records(kFaulty, 2), record + record);
}

TEST_F(SystemPass, ImpossibleDateCostsItsReport)
{
    const CopyOutput pass = RunFaulty(
        [this](const Request& request) {
            const std::string date = request.date == Dates().front() ? "1950-01-01" : "3001-02-01";
            return HttpAnswer{.body = UsageReport(2, {{date + "T00:00:00", "300", "1"}})};
        },
        2);
    EXPECT_EQ(CountLines(pass, {"ERR", kSiteAnalyze, "Analyze Exception!"}), 2);
    EXPECT_EQ(CountLines(pass, kAnalyzeError), 2);
}

TEST_F(SystemPass, UnknownAndIncompleteElementsCostNothingElse)
{
    const std::time_t start = std::time(nullptr);
    const std::string usage = testing_support::UsageXml({DateTimeOf(start), "60", "7"});
    const std::string report = Report("<notice/>" + Nested(200) + "<actual_usage><usage>1</usage>" + usage +
                                      "<!-- end --></actual_usage><instant_usage/>");
    const CopyOutput pass = RunRecord(2, report, Bytes64(7) + CalendarBytes(start) + CalendarBytes(start + 60));
    EXPECT_EQ(CountLines(pass, {"WAR", kAnalyze, "Unknown Tag.(notice)"}), 2);
    EXPECT_EQ(CountLines(pass, {"WAR", kAnalyze, "Unknown Tag.(a)"}), 2);
    EXPECT_EQ(CountLines(pass, {"ERR", kAnalyze, "Instant Tag Fail"}), 2);
}

TEST_F(SystemPass, PlainFileInPlaceOfTheFolderKeepsEveryFileFromBeingWritten)
{
    std::ofstream(Rig().DataFolder()) << "in the way";
    const CopyOutput pass = RunPass();
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(CountLines(pass, kOpenFail), 21);
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(FileBytes(Rig().DataFolder()), "in the way");
}

TEST_F(SystemPass, FolderInPlaceOfAFileCostsThatFileAlone)
{
    std::filesystem::create_directories(DataFile("kansai", 4));
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    EXPECT_TRUE(std::filesystem::is_directory(DataFile("kansai", 4)));
    ExpectOthersHealthy("kansai", 4);
}

TEST_F(SystemPass, FileHeldOpenByAReaderStaysAsItIs)
{
    PutOldFile("kansai", 4);
    ASSERT_TRUE(Rig().HoldOpen(DataFile("kansai", 4)));
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    ExpectOldFile("kansai", 4);
    ExpectOthersHealthy("kansai", 4);
}

TEST_F(SystemPass, StalledAnswerEndsWithTheConnection)
{
    const CopyOutput pass = RunStalled(HttpFault::kStalled);
    EXPECT_EQ(CountLines(pass, kSendFail), 1);
}

TEST_F(SystemPass, StalledBodyEndsWithTheConnection)
{
    const CopyOutput pass = RunStalled(HttpFault::kStalledBody);
    EXPECT_EQ(CountLines(pass, kTransferBroke), 1);
}

TEST_F(SystemPass, EveryCompanyHasAFaultOfItsOwn)
{
    SetAnswer("tokyo", [](const Request&) { return HttpAnswer{.status = 404}; });
    SetAnswer("tohoku", [](const Request&) { return HttpAnswer{.body = "<power_report>"}; });
    SetAnswer("kansai", [](const Request&) { return HttpAnswer{.fault = HttpFault::kClosedEarly}; });
    SetAnswer("chubu", [](const Request&) { return HttpAnswer{.status = 503}; });
    constexpr const char* kSpoiled[] = {"tokyo", "tohoku", "kansai"};
    for (const char* company : kSpoiled) {
        PutOldFiles(company);
    }
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    for (const char* company : kSpoiled) {
        ExpectOldFiles(company);
    }
    for (const unsigned dataType : KindsOf("chubu")) {
        ExpectEmptyFile("chubu", dataType);
    }
    ExpectHealthyFiles("kyushu");
}

} // namespace
} // namespace system_test
