#include "testing/CopyTest.h"

#include <nlohmann/json.hpp>

namespace {

using namespace catalogue;
using namespace testing_support;

using platform::Hive;
using platform::sim::Call;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr SYSTEMTIME kNow{2012, 7, 1, 2, 13, 0, 0, 0};

class Status : public CCopyTest {
protected:
    // Only Tokyo's actual usage and peak demand are wanted.
    Status()
    {
        for (const Company& company : kCompanies) {
            m_machine.PutDword(Hive::kMachine,
                               L"Software\\Halvex\\AmporaSrv\\site\\" + std::to_wstring(company.siteNumber),
                               L"SupportDataType", company.siteNumber == kTokyo ? kActualUsage | kPeakDemand : 0);
        }
        AnswerWithReports(0);
    }

    // A copy that has made a pass, and two fresh files.
    void MakeAllWell()
    {
        SwitchUpdatingOn();
        StartCopy();
    }
    // The codes of the causes, in their order.
    std::vector<std::string> Codes(const std::vector<CString>& options = {})
    {
        std::vector<CString> arguments = {L"status", L"--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        m_exitCode = Run(arguments);
        m_document = nlohmann::json::parse(m_out);
        std::vector<std::string> codes;
        for (const auto& cause : m_document["causes"]) {
            codes.push_back(cause["code"]);
        }
        EXPECT_EQ(m_exitCode, m_document["fresh"] ? 0 : 1);
        return codes;
    }
    void AnswerWith(const HttpAnswer& answer)
    {
        m_machine.SetHttpHandler([answer](const auto&) { return answer; });
    }

    int m_exitCode = -1;
    nlohmann::json m_document;
};

TEST_F(Status, TellsThatAllIsWell)
{
    MakeAllWell();
    EXPECT_EQ(Run({L"status"}), 0);
    EXPECT_EQ(m_err, "");
    EXPECT_EQ(m_out, "amporasrv runs (process 3000) since 2012-07-02 13:00:00\n"
                     "updating is on, the next pass is expected between 2012-07-02 13:15 and 13:45\n"
                     "\n"
                     "COMPANY  KIND          STATE  AGE  RECORDS  VALUE NOW\n"
                     "Tokyo    actual usage  fresh  0 s        2       4000\n"
                     "Tokyo    peak demand   fresh  0 s        2       5000\n"
                     "\n"
                     "SETTING                 VALUE           FROM\n"
                     "Enable                  1               machine\n"
                     "LogLevel                0               default\n"
                     "ApiHost                 127.0.0.1:8470  default\n"
                     "Interval                30              default\n"
                     "IntervalMin             -15             default\n"
                     "IntervalMax             15              default\n"
                     "FixedClock              9               default\n"
                     "FixedClockMin           0               default\n"
                     "FixedClockMax           30              default\n"
                     "tokyo.SupportDataType   18              machine\n"
                     "tohoku.SupportDataType  0               machine\n"
                     "chubu.SupportDataType   0               machine\n"
                     "kansai.SupportDataType  0               machine\n"
                     "kyushu.SupportDataType  0               machine\n");
}

TEST_F(Status, TellsWhyThereIsNoData)
{
    m_machine.RemoveFile(DataFolder());
    AnswerWith({.fault = HttpFault::kRefused});
    EXPECT_EQ(Run({L"status"}), 1);
    EXPECT_THAT(m_out,
                StartsWith("amporasrv is not running\n"
                           "updating is off\n"
                           "- amporasrv is not running: start it with 'amporactl start'\n"
                           "- updating is off: switch it on with 'amporactl config set Enable 1 --machine', then ask "
                           "for a pass with 'amporactl update'\n"
                           "- there is no folder " +
                           platform::EncodeUtf8(DataFolder()) +
                           ": the first pass makes it\n"
                           "- the report API at 127.0.0.1:8470 refuses the connection: start the report server, or "
                           "correct the setting ApiHost\n"
                           "- Tokyo actual usage and 1 more: no file yet\n"
                           "\n"
                           "COMPANY  KIND          STATE    AGE  RECORDS  VALUE NOW\n"
                           "Tokyo    actual usage  missing    -        -          -\n"
                           "Tokyo    peak demand   missing    -        -          -\n"
                           "\n"));
}

TEST_F(Status, EachFaultOfTheReportApiHasItsCause)
{
    MakeAllWell();
    m_machine.RunFor(60'000);
    m_machine.RemoveFile(DataFileIn(DataFolder(), kTokyo, kPeakDemand));
    const struct {
        HttpAnswer answer;
        const char* code;
    } answers[] = {
        {{.status = 503}, "apiNoData"},
        {{.status = 404}, "apiStatus"},
        {{.body = "<html/>"}, "apiNoReport"},
        {{.fault = HttpFault::kRefused}, "apiRefused"},
        {{.fault = HttpFault::kStalled}, "apiTimeOut"},
        {{.fault = HttpFault::kClosedEarly}, "apiNoAnswer"},
        {{.body = "<power", .fault = HttpFault::kShortBody}, "apiNoAnswer"},
    };
    for (const auto& [answer, code] : answers) {
        AnswerWith(answer);
        EXPECT_THAT(Codes(), ElementsAre(code, "missing"));
        EXPECT_THAT(Codes({L"--offline"}), ElementsAre("missing"));
    }
    EXPECT_LE(m_machine.ElapsedMs(), 66'000) << "the one that does not answer costs five seconds";
    m_machine.PutText(Hive::kMachine, L"Software\\Halvex\\AmporaSrv", L"ApiHost", L"no host");
    EXPECT_THAT(Codes(), ElementsAre("apiHost", "missing"));
    m_machine.PutText(Hive::kMachine, L"Software\\Halvex\\AmporaSrv", L"ApiHost", L"");
    AnswerWithReports(0);
    EXPECT_THAT(Codes(), ElementsAre("missing", "ask"));
    const auto requests = m_machine.HttpExchanges().size();
    m_machine.SetConnectedState(TRUE, 0);
    EXPECT_THAT(Codes(), ElementsAre("offLine", "missing"));
    EXPECT_EQ(m_machine.HttpExchanges().size(), requests) << "nobody is asked while the machine is off line";
}

TEST_F(Status, NobodyIsAskedWhileAllIsFresh)
{
    MakeAllWell();
    const auto requests = m_machine.HttpExchanges().size();
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_EQ(m_machine.HttpExchanges().size(), requests);
}

TEST_F(Status, EachStateOfAFileHasItsCause)
{
    MakeAllWell();
    const Records one = {FiveMinutes(1, 12, 0)};
    std::vector<BYTE> torn = FileOf(kActualUsage, one, kNow);
    torn.resize(40);
    const struct {
        std::vector<BYTE> bytes;
        const char* code;
        const char* text;
    } files[] = {
        {FileOf(kActualUsage, {}, kNow), "empty", "Tokyo actual usage: no records, because"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 11, 0, 0, 0}), "old", "Tokyo actual usage: older than 1 h 30 min"},
        {FileOf(kActualUsage, one, {2012, 7, 1, 2, 15, 0, 0, 0}), "future", "has the clock been put back"},
        {FileOf(kActualUsage, one, {}), "undated", "the time of writing is unknown"},
        {torn, "faulty", "Tokyo actual usage is faulty, it has 40 bytes, but its record count of 1 makes 72"},
    };
    for (const auto& file : files) {
        Put(kTokyo, kActualUsage, file.bytes);
        EXPECT_EQ(Codes().at(0), file.code);
        EXPECT_EQ(m_exitCode, 1);
        EXPECT_THAT(m_document["causes"][0]["text"].get<std::string>(), HasSubstr(file.text));
    }
    Put(kTokyo, kActualUsage, FileOf(kActualUsage, one, {2012, 7, 1, 2, 11, 0, 0, 0}));
    EXPECT_THAT(Codes({L"--max-age", L"121"}), IsEmpty());
}

TEST_F(Status, CopyThatMakesNoPassesIsTold)
{
    MakeAllWell();
    m_machine.NotifyPower(PBT_APMSUSPEND);
    m_machine.RunFor(1000);
    EXPECT_THAT(Codes(), ElementsAre("paused"));
    EXPECT_TRUE(m_document["paused"]);
    EXPECT_TRUE(m_document["nextPass"].is_null());
    m_machine.NotifyPower(PBT_APMRESUMEAUTOMATIC);
    m_machine.RunFor(1000);
    m_machine.PutFile(DataFolder(), {.isFolder = true, .readOnly = true});
    EXPECT_THAT(Codes(), ElementsAre("folder"));
    for (const Company& company : kCompanies) {
        m_machine.PutDword(Hive::kPerUser, L"Software\\Halvex\\AmporaSrv\\site\\" + std::to_wstring(company.siteNumber),
                           L"Enable", 0);
    }
    EXPECT_THAT(Codes(), ElementsAre("nothingWanted", "folder"));
    EXPECT_EQ(m_exitCode, 1);
}

TEST_F(Status, PassThatRunsIsTold)
{
    MakeAllWell();
    m_machine.OtherProcessAcquiresMutex(kUpdateMutexName);
    EXPECT_EQ(Run({L"status"}), 0);
    EXPECT_THAT(m_out, HasSubstr("updating is on, a pass is running\n"));
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_TRUE(m_document["passRunning"]);
    m_machine.OtherProcessReleasesMutex(kUpdateMutexName);
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_FALSE(m_document["passRunning"]);
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName)) << "looking has let go of it";
}

TEST_F(Status, MakesNothingThatAmporasrvWouldFind)
{
    EXPECT_EQ(Run({L"status"}), 1);
    EXPECT_EQ(m_machine.CallCount(Call::kCreateNamedMutex) + m_machine.CallCount(Call::kCreateNamedEvent), 0U);
    EXPECT_EQ(m_machine.NamedObjectCount(), 0U);
}

TEST_F(Status, WhatTheSystemDoesNotTellIsLeftOut)
{
    MakeAllWell();
    m_machine.FailEvery(Call::kFindProgramOfWindow, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run({L"status"}), 0);
    EXPECT_THAT(m_out, StartsWith("amporasrv runs\n"));
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_TRUE(m_document["processId"].is_null());
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Run({L"status"}), 1);
    EXPECT_EQ(m_err, "amporactl: the common application-data folder is unknown; name one with --folder\n");
}

TEST_F(Status, LooksIntoAnotherFolder)
{
    MakeAllWell();
    const CString folder = CString(L"C:") + platform::kPathSeparator + L"Copy";
    EXPECT_THAT(Codes({L"--folder", folder}), ElementsAre("noFolder", "missing"));
    for (const DWORD dataType : {kActualUsage, kPeakDemand}) {
        m_machine.PutFile(DataFileIn(folder, kTokyo, dataType),
                          {.bytes = FileOf(dataType, {FiveMinutes(7, 12, 0)}, kNow)});
    }
    EXPECT_THAT(Codes({L"--folder", folder}), IsEmpty());
    EXPECT_EQ(m_document["files"][1]["present"]["value"], 7);
}

TEST_F(Status, LinesFitIntoANarrowTerminal)
{
    m_machine.SetTerminal(40, false);
    EXPECT_EQ(Run({L"status", L"--offline"}), 1);
    EXPECT_THAT(m_out, AllOf(HasSubstr("- amporasrv is not running: start it\n  with 'amporactl start'\n"),
                             HasSubstr("- Tokyo actual usage and 1 more: no file\n  yet\n")));
    std::istringstream lines(m_out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 40U) << line;
    }
}

} // namespace
