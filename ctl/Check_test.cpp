#include "testing/ControlTest.h"
#include "testing/MetricsCheck.h"
#include "testing/ScratchFolder.h"

#include <nlohmann/json.hpp>

namespace {

using namespace catalogue;
using namespace testing_support;

using platform::Hive;
using testing::HasSubstr;

// It is 13:00; without settings a file may be 90 minutes old.
constexpr SYSTEMTIME kFresh{2012, 7, 1, 2, 12, 48, 0, 0};
constexpr SYSTEMTIME kOld{2012, 7, 1, 2, 11, 29, 59, 0};

class Check : public CControlTest {
protected:
    Check() { Enable(1); }

    void Enable(DWORD value) { m_machine.PutDword(Hive::kMachine, kMainKey, L"Enable", value); }

    // Kyushu's three files, which are those of the settings' defaults.
    void PutKyushu(const SYSTEMTIME& writeTime)
    {
        for (const DWORD dataType : {kInstantUsage, kPeakSupply, kPeakDemand}) {
            Put(kKyushu, dataType, FileOf(dataType, {FiveMinutes(1, 12, 0)}, writeTime));
        }
    }

    static constexpr const wchar_t* kMainKey = L"Software\\Halvex\\AmporaSrv";
};

TEST_F(Check, PrintsOneLineWithTheExitCodeOfAMonitoringPlugin)
{
    const std::vector<CString> kyushu = {L"check", L"--company", L"kyushu"};
    const struct {
        const char* when;
        std::function<void()> prepare;
        int exitCode;
        const char* line;
    } cases[] = {
        {"missing", [] {}, 2,
         "AMPORA CRITICAL - 3 of 3 files missing or damaged: kyushu instant missing, kyushu supply missing, kyushu "
         "demand "
         "missing | age=U fresh=0;;;0;3 old=0;;;0;3 faulty=3;;;0;3\n"},
        {"fresh", [&] { PutKyushu(kFresh); }, 0,
         "AMPORA OK - 3 files fresh, oldest 12 min | age=720s;5400 fresh=3;;;0;3 old=0;;;0;3 faulty=0;;;0;3\n"},
        {"without records", [&] { Put(kKyushu, kPeakDemand, FileOf(kPeakDemand, {}, kFresh)); }, 0,
         "AMPORA OK - 3 files fresh, oldest 12 min | age=720s;5400 fresh=3;;;0;3 old=0;;;0;3 faulty=0;;;0;3\n"},
        {"old", [&] { Put(kKyushu, kInstantUsage, FileOf(kInstantUsage, {}, kOld)); }, 1,
         "AMPORA WARNING - 1 of 3 files old: kyushu instant old | age=5401s;5400 fresh=2;;;0;3 old=1;;;0;3 "
         "faulty=0;;;0;3\n"},
        {"damaged", [&] { Put(kKyushu, kPeakSupply, {1}); }, 2,
         "AMPORA CRITICAL - 1 of 3 files missing or damaged: kyushu supply faulty | age=5401s;5400 fresh=1;;;0;3 "
         "old=1;;;0;3 faulty=1;;;0;3\n"},
        {"kind off",
         [&] {
             m_machine.PutDword(Hive::kPerUser, L"Software\\Halvex\\AmporaSrv\\site\\9", L"SupportDataType",
                                kPeakDemand);
         },
         0, "AMPORA OK - 1 file fresh, oldest 12 min | age=720s;5400 fresh=1;;;0;1 old=0;;;0;1 faulty=0;;;0;1\n"},
        {"company off",
         [&] { m_machine.PutDword(Hive::kPerUser, L"Software\\Halvex\\AmporaSrv\\site\\9", L"Enable", 0); }, 3,
         "AMPORA UNKNOWN - the settings want none of these files\n"},
        {"updating off", [&] { Enable(0); }, 3, "AMPORA UNKNOWN - updating is switched off\n"},
        {"folder unknown",
         [&] { m_machine.FailEvery(platform::sim::Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND); }, 3,
         "AMPORA UNKNOWN - the common application-data folder is unknown; name one with --folder\n"},
    };
    for (const auto& test : cases) {
        test.prepare();
        EXPECT_EQ(Run(kyushu), test.exitCode) << test.when;
        EXPECT_EQ(m_out, test.line) << test.when;
        EXPECT_EQ(m_err, "") << test.when;
    }
}

TEST_F(Check, MaxAgeReplacesThatOfTheSettings)
{
    PutKyushu(kFresh);
    EXPECT_EQ(Run({L"check", L"--company=kyushu", L"--max-age", L"12"}), 0);
    EXPECT_EQ(Run({L"check", L"--company=kyushu", L"--max-age", L"11"}), 1);
    EXPECT_THAT(m_out, HasSubstr("| age=720s;660 "));
}

TEST_F(Check, NamesAFewFilesOfMany)
{
    EXPECT_EQ(Run({L"check"}), 2);
    EXPECT_THAT(m_out,
                HasSubstr("21 of 21 files missing or damaged: tokyo instant missing, tokyo actual missing, tokyo "
                          "estimated missing and 18 more | "));
}

TEST_F(Check, MisuseIsUnknown)
{
    for (const std::vector<CString>& arguments :
         std::vector<std::vector<CString>>{{L"check", L"tokyo"},
                                           {L"check", L"--company", L"tokio"},
                                           {L"check", L"--max-age=0"},
                                           {L"check", L"--max-age", L"x"},
                                           {L"check", L"--json", L"--prometheus"}}) {
        EXPECT_EQ(Run(arguments), 3) << testing::PrintToString(arguments.back());
        EXPECT_THAT(m_err, HasSubstr("amporactl check: "));
    }
}

TEST_F(Check, WritesJson)
{
    PutKyushu(kFresh);
    Put(kKyushu, kPeakSupply, {1});
    EXPECT_EQ(Run({L"check", L"--company", L"kyushu", L"--json"}), 2);
    const nlohmann::json document = nlohmann::json::parse(m_out);
    EXPECT_EQ(document["state"], "CRITICAL");
    EXPECT_EQ(document["updateEnabled"], true);
    EXPECT_EQ(document["maxAgeSeconds"], 5400);
    EXPECT_EQ(document["oldestSeconds"], 720);
    EXPECT_EQ(document["files"][0],
              nlohmann::json::parse(R"({"company": "kyushu", "kind": "instant", "freshness": "fresh", "ageSeconds": 720,
                                        "recordCount": 1, "fault": null})"));
    EXPECT_EQ(
        document["files"][1],
        nlohmann::json::parse(R"json({"company": "kyushu", "kind": "supply", "freshness": "faulty", "ageSeconds": null,
                                        "recordCount": 0, "fault": "it has 1 bytes, less than a header (32 bytes)"
})json"));
}

constexpr const char* kMetrics = R"(# HELP ampora_update_enabled Whether the settings switch updating on (1) or off (0).
# TYPE ampora_update_enabled gauge
ampora_update_enabled 1
# HELP ampora_data_file_max_age_seconds Greatest age of a fresh data file.
# TYPE ampora_data_file_max_age_seconds gauge
ampora_data_file_max_age_seconds 5400
# HELP ampora_data_file_age_seconds Time since the data file was written.
# TYPE ampora_data_file_age_seconds gauge
ampora_data_file_age_seconds{company="kyushu",kind="instant"} 5401
ampora_data_file_age_seconds{company="kyushu",kind="demand"} 720
# HELP ampora_data_file_fresh Whether the data file is fresh (1) or old, missing or damaged (0).
# TYPE ampora_data_file_fresh gauge
ampora_data_file_fresh{company="kyushu",kind="instant"} 0
ampora_data_file_fresh{company="kyushu",kind="supply"} 0
ampora_data_file_fresh{company="kyushu",kind="demand"} 1
# HELP ampora_data_file_sound Whether the data file is there and whole (1) or not (0).
# TYPE ampora_data_file_sound gauge
ampora_data_file_sound{company="kyushu",kind="instant"} 1
ampora_data_file_sound{company="kyushu",kind="supply"} 0
ampora_data_file_sound{company="kyushu",kind="demand"} 1
# HELP ampora_data_file_records Number of records in the data file.
# TYPE ampora_data_file_records gauge
ampora_data_file_records{company="kyushu",kind="instant"} 0
ampora_data_file_records{company="kyushu",kind="supply"} 0
ampora_data_file_records{company="kyushu",kind="demand"} 1
)";

TEST_F(Check, WritesMetrics)
{
    PutKyushu(kFresh);
    Put(kKyushu, kInstantUsage, FileOf(kInstantUsage, {}, kOld));
    Put(kKyushu, kPeakSupply, {1});
    EXPECT_EQ(Run({L"check", L"--company=kyushu", L"--prometheus"}), 2);
    EXPECT_EQ(m_out, kMetrics);
    EXPECT_EQ(CMetricsCheck().Check(m_out), "");
    const CScratchFolder scratch;
    const std::filesystem::path file = scratch.Write("ampora.prom", "before");
    EXPECT_EQ(Run({L"check", L"--company=kyushu", L"--prometheus", file.wstring()}), 2);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(FileBytes(file), kMetrics);
}

TEST_F(Check, MetricsThatCannotBeWrittenAreUnknown)
{
    const CScratchFolder scratch;
    const std::filesystem::path file = scratch.Path() / "none" / "ampora.prom";
    EXPECT_EQ(Run({L"check", L"--prometheus", file.wstring()}), 3);
    EXPECT_EQ(m_out, "AMPORA UNKNOWN - " + platform::EncodeUtf8(file.wstring()) + " cannot be written\n");
}

} // namespace
