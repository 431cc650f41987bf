#include "testing/ControlTest.h"

#include <nlohmann/json.hpp>

namespace {

using namespace catalogue;
using namespace testing_support;

using platform::sim::Call;
using testing::HasSubstr;
using testing::StartsWith;

class Show : public CControlTest {};

constexpr SYSTEMTIME kWriteTime{2012, 7, 1, 2, 13, 30, 5, 500};

// The table.

TEST_F(Show, ShowsAFile)
{
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(3999, 12, 50), FiveMinutes(4000, 13, 0)}));
    EXPECT_EQ(Run({L"show"}), 0);
    EXPECT_EQ(
        m_out,
        "COMPANY  KIND           RECORDS  FIRST PERIOD              LAST PERIOD               NEWEST VALUE  WRITTEN\n"
        "Tokyo    instant usage        2  2012-07-02 12:50 - 12:55  2012-07-02 13:00 - 13:05          4000  "
        "2012-07-02 13:30:05\n");
    EXPECT_EQ(m_err, "");
}

TEST_F(Show, ShowsCompaniesAndKindsInTheirOrder)
{
    for (const int siteNumber : {kTohoku, kTokyo, kChubu, kKansai, kKyushu}) {
        for (const DWORD dataType : {kInstantUsage, kActualUsage, kEstimatedUsage, kPeakSupply, kPeakDemand}) {
            Put(siteNumber, dataType, FileOf(dataType, {}));
        }
    }
    EXPECT_EQ(Run({L"show"}), 0);
    std::istringstream lines(m_out);
    std::string line;
    std::getline(lines, line);
    for (const std::string company : {"Tokyo", "Tohoku", "Chubu", "Kansai", "Kyushu"}) {
        for (const std::string kind :
             {"instant usage", "actual usage", "estimated usage", "peak supply", "peak demand"}) {
            ASSERT_TRUE(std::getline(lines, line));
            std::string start = company;
            start.resize(9, ' ');
            start += kind;
            EXPECT_THAT(line, StartsWith(start + "  "));
        }
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(Show, ShowsAFileWithoutRecords)
{
    Put(kChubu, kPeakDemand, FileOf(kPeakDemand, {}));
    EXPECT_EQ(Run({L"show"}), 0);
    EXPECT_EQ(m_out, "COMPANY  KIND         RECORDS  FIRST PERIOD  LAST PERIOD  NEWEST VALUE  WRITTEN\n"
                     "Chubu    peak demand        0  -             -                       -  2012-07-02 13:30:05\n");
}

TEST_F(Show, RowShowsPeriodsValueAndTimeOfAFile)
{
    const SYSTEMTIME elevenPm{2012, 7, 1, 2, 23, 0, 0, 0};
    const SYSTEMTIME midnight{2012, 7, 2, 3, 0, 0, 0, 0};
    const struct {
        Records records;
        SYSTEMTIME writeTime;
        const char* row;
    } files[] = {
        // The file's order need not be that of time.
        {{FiveMinutes(2, 13, 0), FiveMinutes(3, 14, 0), FiveMinutes(1, 12, 0)},
         kWriteTime,
         "3  2012-07-02 12:00 - 12:05  2012-07-02 14:00 - 14:05             3  "},
        // Both days of a period over midnight.
        {{{1, elevenPm, midnight}}, kWriteTime, "1  2012-07-02 23:00 - 2012-07-03 00:00  "},
        {{{7, {}, elevenPm}, FiveMinutes(8, 13, 0)},
         SYSTEMTIME{},
         "2  unknown - 2012-07-02 23:00  2012-07-02 13:00 - 13:05             8  unknown\n"},
        {{FiveMinutes(0xFFFFFFFFFFFFFFFF, 0, 0)}, kWriteTime, "  18446744073709551615  "},
    };
    for (const auto& file : files) {
        Put(kKansai, kActualUsage, FileOf(kActualUsage, file.records, file.writeTime));
        EXPECT_EQ(Run({L"show"}), 0);
        EXPECT_THAT(m_out, HasSubstr(file.row));
    }
}

TEST_F(Show, IgnoresFilesOfOtherNames)
{
    Put(kTokyo, kPeakSupply, FileOf(kPeakSupply, {}));
    m_machine.PutFile(DataFolder() + platform::kPathSeparator + L"osaka_00000001.dat", {.bytes = {1}});
    m_machine.PutFile(DataFileIn(DataFolder(), kTokyo, 32), {.bytes = {1}});
    EXPECT_EQ(Run({L"show"}), 0);
    EXPECT_EQ(m_err, "");
}

// Records of one company.

constexpr Record kExtreme = {0xFFFFFFFFFFFFFFFF, {}, {2012, 7, 1, 2, 23, 0, 0, 0}};

TEST_F(Show, ShowsTheRecordsOfACompany)
{
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(4000, 13, 0), FiveMinutes(0, 12, 50)}));
    Put(kTokyo, kActualUsage, FileOf(kActualUsage, {}));
    Put(kTokyo, kPeakDemand, FileOf(kPeakDemand, {kExtreme}));
    Put(kTohoku, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(1, 13, 0)}));
    EXPECT_EQ(Run({L"show", L"tokyo"}), 0);
    EXPECT_EQ(m_out, "KIND     PERIOD                                     VALUE\n"
                     "instant  2012-07-02 13:00 - 13:05                    4000\n"
                     "instant  2012-07-02 12:50 - 12:55                       0\n"
                     "demand   unknown - 2012-07-02 23:00  18446744073709551615\n");
    EXPECT_EQ(Run({L"show", L"tokyo", L"demand"}), 0);
    EXPECT_EQ(m_out, "KIND    PERIOD                                     VALUE\n"
                     "demand  unknown - 2012-07-02 23:00  18446744073709551615\n");
    EXPECT_EQ(Run({L"show", L"tokyo", L"actual"}), 0);
    EXPECT_EQ(m_out, "KIND  PERIOD  VALUE\n");
    EXPECT_EQ(Run({L"show", L"tokyo", L"supply"}), 1);
    EXPECT_EQ(m_err, "amporactl: no data files in " + platform::EncodeUtf8(DataFolder()) + "\n");
}

TEST_F(Show, FoldsItsTableToTheTerminal)
{
    m_machine.SetTerminal(40, false);
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(4000, 13, 0)}));
    EXPECT_EQ(Run({L"show"}), 0);
    EXPECT_EQ(m_out, "COMPANY  KIND           RECORDS\n"
                     "    FIRST PERIOD\n"
                     "    LAST PERIOD\n"
                     "    NEWEST VALUE  WRITTEN\n"
                     "Tokyo    instant usage        1\n"
                     "    2012-07-02 13:00 - 13:05\n"
                     "    2012-07-02 13:00 - 13:05\n"
                     "            4000  2012-07-02 13:30:05\n");
}

// Other formats.

TEST_F(Show, WritesCsv)
{
    Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(4000, 13, 0), FiveMinutes(0, 12, 50)}));
    Put(kChubu, kPeakDemand, FileOf(kPeakDemand, {kExtreme}, {}));
    Put(kKyushu, kPeakDemand, FileOf(kPeakDemand, {}));
    EXPECT_EQ(Run({L"show", L"--format", L"csv"}), 0);
    EXPECT_EQ(m_out, "company,kind,records,first_start,first_end,last_start,last_end,newest_value,written\r\n"
                     "tokyo,instant,2,2012-07-02T12:50:00,2012-07-02T12:55:00,2012-07-02T13:00:00,"
                     "2012-07-02T13:05:00,4000,2012-07-02T13:30:05\r\n"
                     "chubu,demand,1,,2012-07-02T23:00:00,,2012-07-02T23:00:00,18446744073709551615,\r\n"
                     "kyushu,demand,0,,,,,,2012-07-02T13:30:05\r\n");
    EXPECT_EQ(Run({L"show", L"tokyo", L"--format=csv"}), 0);
    EXPECT_EQ(m_out, "company,kind,start,end,value\r\n"
                     "tokyo,instant,2012-07-02T13:00:00,2012-07-02T13:05:00,4000\r\n"
                     "tokyo,instant,2012-07-02T12:50:00,2012-07-02T12:55:00,0\r\n");
    EXPECT_EQ(Run({L"show", L"chubu", L"demand", L"--format=csv"}), 0);
    EXPECT_EQ(m_out, "company,kind,start,end,value\r\nchubu,demand,,2012-07-02T23:00:00,18446744073709551615\r\n");
}

TEST_F(Show, WritesJson)
{
    Put(kTokyo, kActualUsage, {1, 2, 3});
    Put(kTokyo, kEstimatedUsage, FileOf(kEstimatedUsage, {}, {}));
    Put(kTokyo, kPeakDemand, FileOf(kPeakDemand, {kExtreme}));
    const auto path = [](DWORD dataType) { return platform::EncodeUtf8(DataFileIn(DataFolder(), kTokyo, dataType)); };
    const nlohmann::json record = {
        {"start", nullptr}, {"end", "2012-07-02T23:00:00"}, {"value", 18446744073709551615U}};
    nlohmann::json expected = {{"schema", "amporactl.show"},
                               {"schemaVersion", 1},
                               {"folder", platform::EncodeUtf8(DataFolder())},
                               {"files",
                                {{{"company", "tokyo"},
                                  {"kind", "actual"},
                                  {"path", path(kActualUsage)},
                                  {"fault", "it has 3 bytes, less than a header (32 bytes)"}},
                                 {{"company", "tokyo"},
                                  {"kind", "estimated"},
                                  {"path", path(kEstimatedUsage)},
                                  {"fault", nullptr},
                                  {"written", nullptr},
                                  {"recordCount", 0},
                                  {"first", nullptr},
                                  {"last", nullptr}},
                                 {{"company", "tokyo"},
                                  {"kind", "demand"},
                                  {"path", path(kPeakDemand)},
                                  {"fault", nullptr},
                                  {"written", "2012-07-02T13:30:05"},
                                  {"recordCount", 1},
                                  {"first", record},
                                  {"last", record}}}}};
    EXPECT_EQ(Run({L"show", L"--json"}), 1);
    EXPECT_EQ(nlohmann::json::parse(m_out), expected);
    EXPECT_EQ(m_err, Complaint(kTokyo, kActualUsage, "it has 3 bytes, less than a header (32 bytes)"));
    EXPECT_THAT(m_out, HasSubstr("\"value\": 18446744073709551615\n"));
    expected["files"][1]["records"] = nlohmann::json::array();
    expected["files"][2]["records"] = {record};
    EXPECT_EQ(Run({L"show", L"tokyo", L"--format", L"json"}), 1);
    EXPECT_EQ(nlohmann::json::parse(m_out), expected);
}

TEST_F(Show, NoDataFilesIsAFailureInEveryFormat)
{
    for (const wchar_t* const format : {L"table", L"csv", L"json"}) {
        EXPECT_EQ(Run({L"show", L"tokyo", L"--format", format}), 1);
        EXPECT_EQ(m_out, "");
        EXPECT_EQ(m_err, "amporactl: no data files in " + platform::EncodeUtf8(DataFolder()) + "\n");
    }
}

// Folders.

TEST_F(Show, NoDataFilesIsAFailureThatNamesTheFolder)
{
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, "amporactl: no data files in " + platform::EncodeUtf8(DataFolder()) + "\n");
}

TEST_F(Show, LooksIntoAnotherFolder)
{
    const CString folder = CString(L"C:") + platform::kPathSeparator + L"\x96FB\x529B";
    m_machine.PutFile(DataFileIn(folder, kTokyo, kPeakSupply), {.bytes = FileOf(kPeakSupply, {})});
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(Run({L"show", L"--folder", folder}), 0);
    EXPECT_THAT(m_out, HasSubstr("Tokyo    peak supply"));
    EXPECT_EQ(Run({L"show", L"--folder=" + folder}), 0);
    m_machine.RemoveFile(folder);
    EXPECT_EQ(Run({L"show", L"--folder", folder}), 1);
    EXPECT_THAT(m_err, testing::EndsWith("\xE9\x9B\xBB\xE5\x8A\x9B\n"));
}

TEST_F(Show, UnknownCommonFolderIsAFailure)
{
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(m_err, "amporactl: the common application-data folder is unknown; name one with --folder\n");
}

// Faulty files: one line each; the others are still shown.

TEST_F(Show, FaultyFilesAreNamedWithTheirReason)
{
    std::vector<BYTE> torn = FileOf(kActualUsage, {FiveMinutes(1, 12, 0), FiveMinutes(2, 13, 0)});
    torn.resize(100);
    std::vector<BYTE> foreign = FileOf(kEstimatedUsage, {});
    foreign[2] = 2;
    Put(kTokyo, kInstantUsage, {1, 2, 3});
    Put(kTokyo, kActualUsage, torn);
    Put(kTohoku, kEstimatedUsage, foreign);
    Put(kKansai, kPeakSupply, FileOf(kPeakDemand, {}));
    Put(kKyushu, kPeakDemand, FileOf(kPeakDemand, {FiveMinutes(5, 14, 0)}));
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(m_err, Complaint(kTokyo, kInstantUsage, "it has 3 bytes, less than a header (32 bytes)") +
                         Complaint(kTokyo, kActualUsage, "it has 100 bytes, but its record count of 2 makes 112") +
                         Complaint(kTohoku, kEstimatedUsage, "its format version is 0x00020000, not 0x00010000") +
                         Complaint(kKansai, kPeakSupply, "it holds data type 16, not 8"));
    EXPECT_EQ(
        m_out,
        "COMPANY  KIND         RECORDS  FIRST PERIOD              LAST PERIOD               NEWEST VALUE  WRITTEN\n"
        "Kyushu   peak demand        1  2012-07-02 14:00 - 14:05  2012-07-02 14:00 - 14:05             5  "
        "2012-07-02 13:30:05\n");
}

TEST_F(Show, FaultyFileAloneGivesNoTable)
{
    Put(kTokyo, kInstantUsage, {});
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, Complaint(kTokyo, kInstantUsage, "it has 0 bytes, less than a header (32 bytes)"));
}

TEST_F(Show, FileThatIsBeingWrittenIsNamed)
{
    m_machine.PutFile(DataFolder(), {.isFolder = true});
    const platform::SecurityDescriptorPtr security = platform::InitializeDescriptor();
    const platform::OutputFilePtr writer =
        platform::OpenForReplace(DataFileIn(DataFolder(), kChubu, kActualUsage), security.get());
    ASSERT_TRUE(writer);
    EXPECT_EQ(Run({L"show"}), 1);
    EXPECT_EQ(m_err, Complaint(kChubu, kActualUsage, "it is being written by another program"));
}

} // namespace
