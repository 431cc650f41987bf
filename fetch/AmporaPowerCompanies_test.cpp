#include "fetch/AmporaPowerCompanies.h"

#include "platform/Files.h"
#include "platform/Text.h"
#include "testing/MachineTest.h"
#include "testing/SlotOrder.h"
#include "testing/Trace.h"
#include "testing/World.h"

#include <gmock/gmock.h>
#include <map>

namespace {

using platform::Hive;
using platform::sim::Call;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::TestCompany;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr SYSTEMTIME kDay{2012, 7, 1, 2, 0, 0, 0, 0};
constexpr SYSTEMTIME kWriteTime{2012, 7, 1, 2, 13, 30, 15, 500};

using MakeSite = std::unique_ptr<CAmporaGoolgeSiteConfig> (*)();

template <class Company>
std::unique_ptr<CAmporaGoolgeSiteConfig> Make()
{
    return std::make_unique<Company>();
}

// The same company under a number that no company has.
template <const PowerCompany& Company>
constexpr catalogue::Company kUnknownEntry{4, Company.entry.key, Company.entry.name, Company.entry.defaultMask};
template <const PowerCompany& Company>
constexpr PowerCompany kWithoutFileKey{kUnknownEntry<Company>, Company.constructorName, Company.destructorName,
                                       Company.getUrlName, Company.outDataName};

struct CompanyCase {
    TestCompany company;
    MakeSite make;
    MakeSite makeWithoutFileKey;
};

void PrintTo(const CompanyCase& test, std::ostream* stream) { *stream << test.company.className; }

template <const PowerCompany& Company>
CompanyCase Case(const std::string& word)
{
    return {testing_support::CompanyOf(word), Make<CPowerCompany<Company>>,
            Make<CPowerCompany<kWithoutFileKey<Company>>>};
}

const CompanyCase kCompanies[] = {Case<kTokyoPowerCompany>("tokyo"), Case<kTohokuPowerCompany>("tohoku"),
                                  Case<kChubuPowerCompany>("chubu"), Case<kKansaiPowerCompany>("kansai"),
                                  Case<kKyushuPowerCompany>("kyushu")};

class CompanyTest : public testing_support::CMachineTest {
protected:
    CompanyTest() { m_collection.AddAmporaData(kDay, kWriteTime, 4000); }

    void PutSiteDword(int siteNumber, const CString& valueName, DWORD value, Hive hive = Hive::kMachine)
    {
        m_machine.PutDword(hive, L"Software\\Halvex\\AmporaSrv\\site\\" + std::to_wstring(siteNumber), valueName,
                           value);
    }

    // Content of all data files.
    std::map<CString, std::vector<BYTE>> Files() const
    {
        std::map<CString, std::vector<BYTE>> files;
        for (const CString& path : m_machine.FilePaths()) {
            files[path] = m_machine.FindFile(path)->bytes;
        }
        return files;
    }

    CAmporaDataCollection m_collection;
};

class EachPowerCompany : public CompanyTest, public testing::WithParamInterface<CompanyCase> {
protected:
    EachPowerCompany() { m_machine.ClearDebugLines(); }

    TraceLine Message(const char* level, const std::string& function, const std::string& message)
    {
        return {level, GetParam().company.className + ("::" + function), message};
    }

    static CString Key() { return platform::DecodeUtf8(GetParam().company.word); }

    // Whether the kinds of this mask, and no others, have a URL.
    void ExpectSupported(DWORD mask)
    {
        for (const DWORD dataType : testing_support::kDataTypes) {
            m_machine.ClearDebugLines();
            const bool isSupported = (mask & dataType) != 0;
            EXPECT_EQ(m_site->GetURL(dataType, kDay).empty(), !isSupported) << dataType;
            if (isSupported) {
                EXPECT_THAT(TraceMessages(), IsEmpty());
            } else {
                EXPECT_THAT(TraceMessages(), ElementsAre(Message("TRA", "GetURL", "Not Support Setting")));
            }
        }
    }

    CString ExpectedUrl(const CString& category, const CString& kind)
    {
        return L"http://127.0.0.1:8470/" + category + L"/" + Key() + L"/" + kind + L"?date=2012-07-02&output=xml";
    }

    std::unique_ptr<CAmporaGoolgeSiteConfig> m_site = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(Companies, EachPowerCompany, testing::ValuesIn(kCompanies),
                         [](const auto& info) { return info.param.company.className; });

TEST(PowerCompanySlots, FollowTheirOrder)
{
    using Company = CAmporaChubuPowerCompany;
    using testing_support::SlotOf;
    EXPECT_EQ(SlotOf<Company>(static_cast<CString (Company::*)(DWORD, SYSTEMTIME)>(&Company::GetURL)), 1);
    EXPECT_EQ(SlotOf<Company>(
                  static_cast<void (Company::*)(DWORD, const CAmporaDataCollection*, SYSTEMTIME)>(&Company::OutData)),
              3);
    static_assert(sizeof(Company) == sizeof(CAmporaGoolgeSiteConfig));
}

TEST_P(EachPowerCompany, TracesItsLife)
{
    m_site.reset();
    m_machine.ClearDebugLines();
    m_site = GetParam().make();
    std::vector<TraceLine> lines = TraceLines();
    ASSERT_GE(lines.size(), 2U);
    const std::string name = GetParam().company.className;
    EXPECT_EQ(lines[lines.size() - 2], Message("TRA", name, "Enter"));
    EXPECT_EQ(lines[lines.size() - 1], Message("TRA", name, "Leave"));
    m_machine.ClearDebugLines();
    m_site.reset();
    lines = TraceLines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], Message("TRA", "~" + name, "Enter"));
    EXPECT_EQ(lines[1], Message("TRA", "~" + name, "Leave"));
}

TEST_P(EachPowerCompany, GivesTheUrlOfEachKind)
{
    PutSiteDword(GetParam().company.site, L"SupportDataType", 31);
    EXPECT_EQ(m_site->GetURL(1, kDay), ExpectedUrl(L"usage", L"instant"));
    EXPECT_EQ(m_site->GetURL(2, kDay), ExpectedUrl(L"usage", L"actual"));
    EXPECT_EQ(m_site->GetURL(4, kDay), ExpectedUrl(L"usage", L"estimated"));
    EXPECT_EQ(m_site->GetURL(8, kDay), ExpectedUrl(L"peak", L"supply"));
    EXPECT_EQ(m_site->GetURL(16, kDay), ExpectedUrl(L"peak", L"demand"));
    EXPECT_THAT(TraceMessages(), IsEmpty());
    EXPECT_EQ(TraceLines().front(), Message("TRA", "GetURL", "Enter"));
    EXPECT_EQ(TraceLines().back(), Message("TRA", "GetURL", "Leave"));
}

TEST_P(EachPowerCompany, SupportsItsDefaultKindsUnlessTheSettingsSayOtherwise)
{
    ExpectSupported(GetParam().company.mask);
    for (const DWORD mask : {0U, 5U, 31U}) {
        PutSiteDword(GetParam().company.site, L"SupportDataType", mask);
        ExpectSupported(mask);
    }
}

TEST_P(EachPowerCompany, DisabledSiteIsNotAskedForItsMask)
{
    PutSiteDword(GetParam().company.site, L"Enable", 0, Hive::kPerUser);
    EXPECT_EQ(m_site->GetURL(8, kDay), L"");
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("TRA", "GetURL", "Not Update Setting")));
    // "Enable", found in the first hive, and nothing else.
    EXPECT_EQ(m_machine.CallCount(Call::kQuerySettingsValue), 1U);
}

TEST_P(EachPowerCompany, ReadsItsSettingsAnewAtEachCall)
{
    const CString url = m_site->GetURL(8, kDay);
    EXPECT_NE(url, L"");
    PutSiteDword(GetParam().company.site, L"Enable", 0);
    EXPECT_EQ(m_site->GetURL(8, kDay), L"");
    PutSiteDword(GetParam().company.site, L"Enable", 1);
    EXPECT_EQ(m_site->GetURL(8, kDay), url);
    PutSiteDword(GetParam().company.site, L"SupportDataType", 16);
    EXPECT_EQ(m_site->GetURL(8, kDay), L"");
}

TEST_P(EachPowerCompany, SettingsOfOtherSitesDoNotConcernIt)
{
    for (const CompanyCase& other : kCompanies) {
        if (other.company.site != GetParam().company.site) {
            PutSiteDword(other.company.site, L"Enable", 0);
        }
    }
    EXPECT_NE(m_site->GetURL(8, kDay), L"");
}

TEST_P(EachPowerCompany, CombinedDataTypesHaveNoUrl)
{
    EXPECT_EQ(m_site->GetURL(24, kDay), L"");
    EXPECT_THAT(TraceMessages(), IsEmpty());
}

TEST_P(EachPowerCompany, WritesItsOwnFiles)
{
    for (const DWORD dataType : testing_support::kDataTypes) {
        m_site->OutData(dataType, &m_collection, kWriteTime);
    }
    const CString stem = DataFolder() + platform::kPathSeparator + Key() + L"_000000";
    EXPECT_THAT(m_machine.FilePaths(),
                testing::UnorderedElementsAre(stem + L"01.dat", stem + L"02.dat", stem + L"04.dat", stem + L"08.dat",
                                              stem + L"10.dat"));
    const platform::sim::SimFile* const file = m_machine.FindFile(stem + L"10.dat");
    ASSERT_TRUE(file);
    ASSERT_EQ(file->bytes.size(), 72U);
    EXPECT_EQ(file->bytes[4], 16);
    EXPECT_TRUE(file->nullDacl);
    EXPECT_EQ(TraceLines().back(), Message("TRA", "OutData", "Leave"));
}

TEST_P(EachPowerCompany, UnknownSaveFolderWritesNothing)
{
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    m_site->OutData(8, &m_collection, kWriteTime);
    EXPECT_THAT(TraceMessages(), ElementsAre(TraceLine{"ERR", "CAmporaGoolgeSiteConfig::GetSaveFolderPath",
                                                       "Get Common App Folder Fail."},
                                             Message("ERR", "OutData", "Save Folder Path Get Fail.")));
    EXPECT_THAT(m_machine.FilePaths(), IsEmpty());
}

// The folder is looked up twice: to create it, and for the path.

TEST_P(EachPowerCompany, FolderThatIsUnknownTheSecondTimeLeavesTheFolderPartEmpty)
{
    m_machine.FailCall(Call::kGetCommonAppDataFolder, 2, ERROR_PATH_NOT_FOUND);
    m_site->OutData(8, &m_collection, kWriteTime);
    EXPECT_THAT(m_machine.FilePaths(), ElementsAre(CString(platform::kPathSeparator) + Key() + L"_00000008.dat"));
}

TEST_P(EachPowerCompany, WithoutAFileKeyWritesNothing)
{
    m_machine.PutFile(DataFolder(), {.isFolder = true});
    m_site = GetParam().makeWithoutFileKey();
    m_machine.ClearDebugLines();
    m_site->OutData(8, &m_collection, kWriteTime);
    EXPECT_THAT(TraceMessages(), ElementsAre(Message("ERR", "OutData", "Save File Path Get Fail.")));
    EXPECT_THAT(m_machine.FilePaths(), IsEmpty());
}

// One company's or kind's fault touches nobody else's file.

class FaultOfOneFile : public CompanyTest {
protected:
    // Writes all files of all companies; the write of Kansai's peak supply may throw.
    void WriteAll(SYSTEMTIME writeTime)
    {
        for (const CompanyCase& company : kCompanies) {
            const auto site = company.make();
            for (const DWORD dataType : testing_support::kDataTypes) {
                try {
                    site->OutData(dataType, &m_collection, writeTime);
                } catch (const platform::CFileException&) {
                    ++m_exceptions;
                    EXPECT_EQ(company.company.site, catalogue::kKansai);
                    EXPECT_EQ(dataType, catalogue::kPeakSupply);
                }
            }
        }
    }

    // Writes all, then again with an obstacle to one file, and compares.
    template <class PutObstacle>
    void ExpectOthersWritten(PutObstacle putObstacle)
    {
        WriteAll(kDay);
        const auto before = Files();
        putObstacle();
        WriteAll(kWriteTime);
        const auto after = Files();
        EXPECT_EQ(after.size(), 25U);
        int rewritten = 0;
        for (const auto& [path, bytes] : after) {
            rewritten += bytes.size() == 72 && bytes != before.at(path) ? 1 : 0;
        }
        EXPECT_EQ(rewritten, 24);
    }

    CString m_path = DataFileIn(DataFolder(), catalogue::kKansai, catalogue::kPeakSupply);
    int m_exceptions = 0;
};

TEST_F(FaultOfOneFile, FailedOpenLeavesTheOthersAlone)
{
    for (const platform::sim::SimFile& file :
         {platform::sim::SimFile{.heldOpen = true}, platform::sim::SimFile{.readOnly = true}}) {
        m_machine.ClearDebugLines();
        m_machine.RemoveFile(m_path);
        ExpectOthersWritten([&] { m_machine.PutFile(m_path, file); });
        EXPECT_EQ(m_exceptions, 0);
        EXPECT_EQ(testing_support::CountTrace("ERR", "CAmporaGoolgeSiteConfig::OutData", "Open Fail."), 1);
    }
}

TEST_F(FaultOfOneFile, FailedWriteLeavesTheOthersAlone)
{
    // Three companies with five files of two writes each, then three files of Kansai's.
    ExpectOthersWritten(
        [this] { m_machine.FailCall(Call::kWriteFileBytes, 3 * 5 * 2 + 3 * 2 + 2, ERROR_WRITE_FAULT); });
    EXPECT_EQ(m_exceptions, 1);
}

} // namespace
