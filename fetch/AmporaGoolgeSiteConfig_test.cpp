#include "fetch/AmporaGoolgeSiteConfig.h"

#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "platform/Files.h"
#include "platform/LastError.h"
#include "testing/FailingMemory.h"
#include "testing/GoldenDataFile.h"
#include "testing/MachineTest.h"
#include "testing/Reports.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>
#include <memory>

namespace {

using platform::sim::Call;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::kGoldenDataFile;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr SYSTEMTIME kDay{2012, 7, 4, 5, 23, 59, 58, 999};
constexpr SYSTEMTIME kWriteTime{2012, 7, 1, 2, 13, 30, 15, 500};

// A site without a company; its own operations do nothing.
class CPlainSite : public CAmporaGoolgeSiteConfig {
public:
    using CAmporaGoolgeSiteConfig::GetURL;
    using CAmporaGoolgeSiteConfig::OutData;
    CString GetURL(DWORD, SYSTEMTIME) override { return {}; }
    void OutData(DWORD, const CAmporaDataCollection*, SYSTEMTIME) override {}
};

CString Wide(const std::string& text) { return platform::DecodeUtf8(text); }

TraceLine Message(const char* level, const std::string& function, const std::string& message)
{
    return {level, "CAmporaGoolgeSiteConfig::" + function, message};
}

class AmporaGoolgeSiteConfig : public testing_support::CMachineTest {
protected:
    AmporaGoolgeSiteConfig() { m_machine.ClearDebugLines(); }

    std::unique_ptr<CAmporaDataCollection> Analyze(const CString& body, DWORD status)
    {
        platform::SetLastErrorCode(ERROR_SUCCESS);
        return m_site->AnalyzeData(catalogue::kActualUsage, body, status);
    }

    std::unique_ptr<CAmporaGoolgeSiteConfig> m_site = std::make_unique<CPlainSite>();
};

// The table of virtual operations.

TEST(AmporaSiteConfigSlots, FollowTheirOrder)
{
    EXPECT_EQ(testing_support::SlotOf(&CAmporaSiteConfig::GetURL), 1);
    EXPECT_EQ(testing_support::SlotOf(&CAmporaSiteConfig::AnalyzeData), 2);
    EXPECT_EQ(testing_support::SlotOf(&CAmporaSiteConfig::OutData), 3);
}

TEST(AmporaGoolgeSiteConfigSlots, FollowTheirOrder)
{
    using Site = CAmporaGoolgeSiteConfig;
    EXPECT_EQ(testing_support::SlotOf(&Site::AnalyzeData), 2);
    EXPECT_EQ(testing_support::SlotOf<Site>(static_cast<CString (Site::*)(CString, DWORD, SYSTEMTIME)>(&Site::GetURL)),
              4);
    EXPECT_EQ(
        testing_support::SlotOf<Site>(
            static_cast<void (Site::*)(CString, DWORD, const CAmporaDataCollection*, SYSTEMTIME)>(&Site::OutData)),
        5);
    EXPECT_EQ(testing_support::SlotOf(&Site::GetSaveFolderPath), -1);
}

// Life.

TEST_F(AmporaGoolgeSiteConfig, ConstructorMakesTheAnalyzerInsideItsScope)
{
    const CPlainSite site;
    std::vector<TraceLine> lines = TraceLines();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[0], (TraceLine{"TRA", "CAmporaSiteConfig::CAmporaSiteConfig", "Enter"}));
    EXPECT_EQ(lines[1], (TraceLine{"TRA", "CAmporaSiteConfig::CAmporaSiteConfig", "Leave"}));
    EXPECT_EQ(lines[2], Message("TRA", "CAmporaGoolgeSiteConfig", "Enter"));
    EXPECT_EQ(lines.back(), Message("TRA", "CAmporaGoolgeSiteConfig", "Leave"));
    EXPECT_THAT(lines, Contains(TraceLine{"TRA", "CGSXMLAnalyzer::CGSXMLAnalyzer", "Enter"}).Times(1));
    EXPECT_THAT(lines, Contains(TraceLine{"TRA", "CXMLParser::Initialize", "Enter"}).Times(1));
    EXPECT_TRUE(testing_support::TraceScopesBalance(lines));
}

TEST_F(AmporaGoolgeSiteConfig, DestructorDeletesTheAnalyzerInsideItsScope)
{
    m_site.reset();
    std::vector<TraceLine> lines = TraceLines();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines.front(), Message("TRA", "~CAmporaGoolgeSiteConfig", "Enter"));
    const auto finalized = std::find(lines.begin(), lines.end(), TraceLine{"TRA", "CXMLParser::Finalize", "Enter"});
    const auto deleted =
        std::find(lines.begin(), lines.end(), TraceLine{"TRA", "CGSXMLAnalyzer::~CGSXMLAnalyzer", "Enter"});
    ASSERT_NE(finalized, lines.end());
    ASSERT_NE(deleted, lines.end());
    EXPECT_LT(finalized, deleted);
    const std::size_t count = lines.size();
    EXPECT_EQ(lines[count - 3], Message("TRA", "~CAmporaGoolgeSiteConfig", "Leave"));
    EXPECT_EQ(lines[count - 2], (TraceLine{"TRA", "CAmporaSiteConfig::~CAmporaSiteConfig", "Enter"}));
    EXPECT_EQ(lines[count - 1], (TraceLine{"TRA", "CAmporaSiteConfig::~CAmporaSiteConfig", "Leave"}));
    EXPECT_TRUE(testing_support::TraceScopesBalance(lines));
}

// The URL builder.

TEST_F(AmporaGoolgeSiteConfig, UrlNamesCategoryCompanyKindAndDay)
{
    const CString host = L"http://127.0.0.1:8470";
    const CString query = L"?date=2012-07-05&output=xml";
    EXPECT_EQ(m_site->GetURL(L"K", 1, kDay), host + L"/usage/K/instant" + query);
    EXPECT_EQ(m_site->GetURL(L"K", 2, kDay), host + L"/usage/K/actual" + query);
    EXPECT_EQ(m_site->GetURL(L"K", 4, kDay), host + L"/usage/K/estimated" + query);
    EXPECT_EQ(m_site->GetURL(L"K", 8, kDay), host + L"/peak/K/supply" + query);
    EXPECT_EQ(m_site->GetURL(L"kansai", 16, kDay), host + L"/peak/kansai/demand" + query);
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaGoolgeSiteConfig, UrlPadsYearMonthAndDay)
{
    EXPECT_EQ(m_site->GetURL(L"K", 1, {987, 1, 0, 2, 0, 0, 0, 0}),
              L"http://127.0.0.1:8470/usage/K/instant?date=0987-01-02&output=xml");
    EXPECT_EQ(m_site->GetURL(L"K", 1, {30827, 12, 0, 31, 0, 0, 0, 0}),
              L"http://127.0.0.1:8470/usage/K/instant?date=30827-12-31&output=xml");
}

TEST_F(AmporaGoolgeSiteConfig, UrlNamesTheHostOfTheSettings)
{
    m_machine.PutText(platform::Hive::kPerUser, L"Software\\Halvex\\AmporaSrv", L"ApiHost", L"api.example:81");
    EXPECT_EQ(m_site->GetURL(L"K", 8, kDay), L"http://api.example:81/peak/K/supply?date=2012-07-05&output=xml");
}

TEST_F(AmporaGoolgeSiteConfig, UrlIsEmptyForAnUnknownDataTypeWithoutAMessage)
{
    for (const DWORD dataType : {0U, 3U, 5U, 24U, 31U, 32U, 0x80000000U}) {
        EXPECT_EQ(m_site->GetURL(L"K", dataType, kDay), L"") << dataType;
    }
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_EQ(TraceLines().front(), Message("TRA", "GetURL", "Enter"));
    EXPECT_EQ(TraceLines().back(), Message("TRA", "GetURL", "Leave"));
}

// Analysis.

TEST_F(AmporaGoolgeSiteConfig, ReportBecomesRecords)
{
    const auto collection =
        Analyze(Wide(testing_support::UsageReport(2, {{}, {.datetime = "2012-07-02T13:05:00"}})), 200);
    ASSERT_TRUE(collection);
    EXPECT_EQ(collection->Records().size(), 2U);
    EXPECT_EQ(collection->Records().front().ullValue, 4000U);
    EXPECT_EQ(platform::GetLastErrorCode(), ERROR_SUCCESS);
}

TEST_F(AmporaGoolgeSiteConfig, StatusOfAReportDoesNotMatter)
{
    EXPECT_TRUE(Analyze(Wide(testing_support::UsageReport(2, {{}})), 503));
    EXPECT_TRUE(Analyze(Wide(testing_support::UsageReport(2, {{}})), 0));
}

TEST_F(AmporaGoolgeSiteConfig, TextThatIsNoReportGivesNull)
{
    EXPECT_FALSE(Analyze(L"<html/>", 200));
    EXPECT_EQ(TraceMessages().back(), (TraceLine{"ERR", "CGSXMLAnalyzer::AnalyzeData", "Tag name invalid"}));
}

TEST_F(AmporaGoolgeSiteConfig, ExceptionOfTheAnalyzerIsTraced)
{
    // A start before the epoch cannot be converted.
    EXPECT_FALSE(Analyze(Wide(testing_support::UsageReport(2, {{.datetime = "1950-01-01T00:00:00"}})), 200));
    EXPECT_EQ(TraceMessages().back(), Message("ERR", "AnalyzeData", "Analyze Exception!"));
    EXPECT_EQ(TraceLines().back(), Message("TRA", "AnalyzeData", "Leave"));
}

TEST_F(AmporaGoolgeSiteConfig, RunningOutOfMemoryInTheAnalyzerIsTraced)
{
    const CString report = Wide(testing_support::UsageReport(2, {{}}));
    unsigned exceptions = 0;
    bool hasFailed = true;
    for (unsigned nth = 1; hasFailed; ++nth) {
        ASSERT_LT(nth, 10'000U);
        CString copy = report;
        m_machine.ClearDebugLines();
        {
            const testing_support::CFailingMemory failing(nth);
            const bool isAnalyzed = m_site->AnalyzeData(catalogue::kActualUsage, std::move(copy), 200) != nullptr;
            hasFailed = failing.HasFailed();
            ASSERT_TRUE(isAnalyzed || hasFailed);
        }
        const std::vector<TraceLine> messages = TraceMessages();
        if (!messages.empty() && messages.back() == Message("ERR", "AnalyzeData", "Analyze Exception!")) {
            ++exceptions;
        }
    }
    EXPECT_GT(exceptions, 0U);
}

TEST_F(AmporaGoolgeSiteConfig, GoesOnAfterAnException)
{
    EXPECT_FALSE(Analyze(Wide(testing_support::UsageReport(2, {{.datetime = "1950-01-01T00:00:00"}})), 200));
    EXPECT_TRUE(Analyze(Wide(testing_support::UsageReport(2, {{}})), 200));
}

TEST_F(AmporaGoolgeSiteConfig, EmptyBodyIsAFailure)
{
    for (const DWORD status : {0U, 200U, 204U, 404U, 500U, 502U, 504U}) {
        m_machine.ClearDebugLines();
        EXPECT_FALSE(Analyze(L"", status)) << status;
        EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "AnalyzeData", "Data is Empty")));
        EXPECT_EQ(platform::GetLastErrorCode(), ERROR_SUCCESS);
    }
}

TEST_F(AmporaGoolgeSiteConfig, EmptyBodyWithStatus503IsAnEmptyListAndLastError14)
{
    const auto collection = Analyze(L"", 503);
    ASSERT_TRUE(collection);
    EXPECT_TRUE(collection->Records().empty());
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("TRA", "AnalyzeData", "No Data")));
    EXPECT_EQ(platform::GetLastErrorCode(), 14U);
}

TEST_F(AmporaGoolgeSiteConfig, ListThatCannotBeAllocatedIsTraced)
{
    // Trace lines allocate, too: each allocation fails once, the list's among them.
    int nullResults = 0;
    bool hasFailed = true;
    for (unsigned nth = 1; hasFailed && nth < 1000; ++nth) {
        m_machine.ClearDebugLines();
        platform::SetLastErrorCode(ERROR_SUCCESS);
        std::unique_ptr<CAmporaDataCollection> collection;
        {
            const testing_support::CFailingMemory failing(nth);
            collection = m_site->AnalyzeData(catalogue::kActualUsage, CString(), 503);
            hasFailed = failing.HasFailed();
        }
        EXPECT_EQ(platform::GetLastErrorCode(), 14U);
        if (!collection) {
            ++nullResults;
            EXPECT_THAT(TraceMessages(),
                        ElementsAre(Message("TRA", "AnalyzeData", "No Data"),
                                    Message("ERR", "AnalyzeData", "CAmporaDataCollection Allocate Fail!")));
        }
    }
    EXPECT_FALSE(hasFailed);
    EXPECT_EQ(nullResults, 1);
}

// The save folder.

TEST_F(AmporaGoolgeSiteConfig, SaveFolderIsCreatedForEverybody)
{
    EXPECT_EQ(m_site->GetSaveFolderPath(), DataFolder());
    const platform::sim::SimFile* const folder = m_machine.FindFile(DataFolder());
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->isFolder);
    EXPECT_TRUE(folder->nullDacl);
    const std::string path = platform::EncodeUtf8(DataFolder());
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "GetSaveFolderPath", "Enter"),
                                          Message("TRA", "GetSaveFolderPath", "Save Folder Created(" + path + ")"),
                                          Message("TRA", "GetSaveFolderPath", "Leave")));
}

TEST_F(AmporaGoolgeSiteConfig, SaveFolderThatExistsIsLeftAlone)
{
    m_machine.PutFile(DataFolder(), {.isFolder = true});
    EXPECT_EQ(m_site->GetSaveFolderPath(), DataFolder());
    EXPECT_FALSE(m_machine.FindFile(DataFolder())->nullDacl);
    EXPECT_EQ(m_machine.CallCount(Call::kMakeFolder), 0U);
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaGoolgeSiteConfig, FileInPlaceOfTheSaveFolderCountsAsTheFolder)
{
    m_machine.PutFile(DataFolder(), {.bytes = {1, 2, 3}});
    EXPECT_EQ(m_site->GetSaveFolderPath(), DataFolder());
    EXPECT_EQ(m_machine.CallCount(Call::kMakeFolder), 0U);
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_F(AmporaGoolgeSiteConfig, FailureBeforeTheSaveFolderIsCreatedGivesNone)
{
    const std::pair<Call, const char*> failures[] = {
        {Call::kGetCommonAppDataFolder, "Get Common App Folder Fail."},
        {Call::kInitializeDescriptor, "InitializeSecurityDescriptor Fail."},
        {Call::kSetNullDacl, "SetSecurityDescriptorDacl Fail."},
    };
    for (const auto& [call, message] : failures) {
        m_machine.ClearDebugLines();
        m_machine.FailCall(call, 1, ERROR_ACCESS_DENIED);
        EXPECT_EQ(m_site->GetSaveFolderPath(), L"");
        EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "GetSaveFolderPath", message)));
        EXPECT_FALSE(m_machine.FindFile(DataFolder()));
    }
}

TEST_F(AmporaGoolgeSiteConfig, SaveFolderThatCannotBeCreatedIsStillNamed)
{
    m_machine.FailCall(Call::kMakeFolder, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(m_site->GetSaveFolderPath(), DataFolder());
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("WAR", "GetSaveFolderPath", "Save Folder Create Fail")));
}

// The file writer.

constexpr SYSTEMTIME kEleven{2012, 7, 1, 2, 11, 0, 0, 0};
constexpr SYSTEMTIME kTwelve{2012, 7, 1, 2, 12, 0, 0, 0};
constexpr SYSTEMTIME kThirteen{2012, 7, 1, 2, 13, 0, 0, 0};

class OutData : public AmporaGoolgeSiteConfig {
protected:
    OutData()
    {
        m_machine.PutFile(DataFolder(), {.isFolder = true});
        // Not in the order of time: the file keeps that of the list.
        m_collection.AddAmporaData(kTwelve, kThirteen, 0x0123456789ABCDEF);
        m_collection.AddAmporaData(kEleven, SYSTEMTIME{}, 4000);
        m_machine.ClearDebugLines();
    }

    void Write() { m_site->OutData(m_path, catalogue::kActualUsage, &m_collection, kWriteTime); }

    std::vector<BYTE> Content() const { return m_machine.FindFile(m_path)->bytes; }

    // This message and no other, and the old content.
    void ExpectUntouched(const char* message)
    {
        EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "OutData", message)));
        EXPECT_EQ(Content(), m_old);
    }

    CString m_path = DataFileIn(DataFolder(), catalogue::kTokyo, catalogue::kActualUsage);
    const std::vector<BYTE> m_old = std::vector<BYTE>(500, 0x55);
    CAmporaDataCollection m_collection;
};

TEST_F(OutData, WritesTheFileByteForByte)
{
    Write();
    EXPECT_EQ(Content(), kGoldenDataFile);
    EXPECT_TRUE(m_machine.FindFile(m_path)->nullDacl);
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "OutData", "Enter"), Message("TRA", "OutData", "Leave")));
}

TEST_F(OutData, WritesHeaderAndEachRecordInOneWriteOfItsOwn)
{
    Write();
    EXPECT_THAT(m_machine.FindFile(m_path)->writes, ElementsAre(32U, 40U, 40U));
}

TEST_F(OutData, EmptyListGivesAHeaderOnly)
{
    const CAmporaDataCollection empty;
    m_site->OutData(m_path, catalogue::kPeakDemand, &empty, kWriteTime);
    std::vector<BYTE> expected(kGoldenDataFile.begin(), kGoldenDataFile.begin() + 32);
    expected[4] = 16;
    expected[8] = 0;
    EXPECT_EQ(Content(), expected);
}

TEST_F(OutData, ReplacesWhatTheFileHeld)
{
    m_machine.PutFile(m_path, {.bytes = m_old});
    for (int pass = 0; pass < 2; ++pass) {
        Write();
        EXPECT_EQ(Content(), kGoldenDataFile);
    }
}

TEST_F(OutData, NullListTouchesNoFile)
{
    m_machine.PutFile(m_path, {.bytes = m_old});
    m_site->OutData(m_path, catalogue::kActualUsage, nullptr, kWriteTime);
    ExpectUntouched("Param is NULL");
    EXPECT_EQ(m_machine.CallCount(Call::kOpenForReplace), 0U);
}

TEST_F(OutData, WithoutADescriptorOrADaclTouchesNoFile)
{
    const std::pair<Call, const char*> failures[] = {
        {Call::kInitializeDescriptor, "InitializeSecurityDescriptor Fail."},
        {Call::kSetNullDacl, "SetSecurityDescriptorDacl Fail."},
    };
    m_machine.PutFile(m_path, {.bytes = m_old});
    for (const auto& [call, message] : failures) {
        m_machine.ClearDebugLines();
        m_machine.FailCall(call, 1, ERROR_ACCESS_DENIED);
        Write();
        ExpectUntouched(message);
    }
    EXPECT_EQ(m_machine.CallCount(Call::kOpenForReplace), 0U);
}

TEST_F(OutData, FileThatCannotBeOpenedStaysAsItWas)
{
    for (const platform::sim::SimFile& file : {platform::sim::SimFile{.bytes = m_old, .heldOpen = true},
                                               platform::sim::SimFile{.bytes = m_old, .readOnly = true}}) {
        m_machine.ClearDebugLines();
        m_machine.PutFile(m_path, file);
        Write();
        ExpectUntouched("Open Fail.");
    }
}

TEST_F(OutData, MissingFolderIsAFailedOpen)
{
    m_machine.RemoveFile(DataFolder());
    Write();
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "OutData", "Open Fail.")));
    EXPECT_FALSE(m_machine.FindFile(m_path));
}

TEST_F(OutData, FileInPlaceOfTheFolderIsAFailedOpen)
{
    m_machine.RemoveFile(DataFolder());
    m_machine.PutFile(DataFolder(), {.bytes = m_old});
    Write();
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "OutData", "Open Fail.")));
    EXPECT_EQ(m_machine.FindFile(DataFolder())->bytes, m_old);
}

// Failing writes leave as exceptions.

TEST_F(OutData, FailedWriteOfTheHeaderReachesTheCaller)
{
    m_machine.FailCall(Call::kWriteFileBytes, 1, ERROR_WRITE_FAULT);
    EXPECT_THROW(Write(), platform::CFileException);
    EXPECT_TRUE(Content().empty());
    EXPECT_THAT(TraceLines(), ElementsAre(Message("TRA", "OutData", "Enter"), Message("TRA", "OutData", "Leave")));
}

TEST_F(OutData, FailedWriteOfARecordReachesTheCaller)
{
    m_machine.FailCall(Call::kWriteFileBytes, 3, ERROR_WRITE_FAULT);
    EXPECT_THROW(Write(), platform::CFileException);
    EXPECT_EQ(Content(), std::vector<BYTE>(kGoldenDataFile.begin(), kGoldenDataFile.begin() + 72));
}

TEST_F(OutData, FullDiskCutsTheFileWhereItFillsUp)
{
    for (const std::size_t freeBytes : {0U, 20U, 32U, 50U, 72U, 111U}) {
        m_machine.SetFreeBytes(freeBytes);
        try {
            Write();
            ADD_FAILURE() << freeBytes;
        } catch (const platform::CFileException& exception) {
            EXPECT_EQ(exception.Code(), 112U);
        }
        EXPECT_EQ(Content(), std::vector<BYTE>(kGoldenDataFile.begin(), kGoldenDataFile.begin() + freeBytes));
    }
}

TEST_F(OutData, FileIsClosedAfterAFailedWrite)
{
    m_machine.FailCall(Call::kWriteFileBytes, 2, ERROR_WRITE_FAULT);
    EXPECT_THROW(Write(), platform::CFileException);
    std::vector<BYTE> bytes;
    EXPECT_EQ(platform::ReadWholeFile(m_path, 1000, &bytes), ERROR_SUCCESS);
    Write();
    EXPECT_EQ(Content(), kGoldenDataFile);
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

} // namespace
