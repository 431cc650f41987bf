#include "config/ConfigUtil.h"

#include "testing/MachineTest.h"

namespace {

using platform::Hive;
using platform::SettingsValue;
using platform::sim::Call;

constexpr wchar_t kMain[] = L"Software\\Halvex\\AmporaSrv";
constexpr wchar_t kTokyo[] = L"Software\\Halvex\\AmporaSrv\\site\\3";

class ConfigUtil : public testing_support::CMachineTest {
protected:
    void PutBytes(Hive hive, const CString& key, const CString& name, DWORD type, std::vector<BYTE> data)
    {
        m_machine.PutSetting(hive, key, name, SettingsValue{type, std::move(data)});
    }
};

struct ThreeNumbers {
    LONG first = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    bool operator==(const ThreeNumbers&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const ThreeNumbers& numbers)
{
    return stream << numbers.first << ", " << numbers.minimum << ", " << numbers.maximum;
}

ThreeNumbers Interval()
{
    ThreeNumbers numbers;
    CConfigUtil::GetIntervalSetting(numbers.first, numbers.minimum, numbers.maximum);
    return numbers;
}

ThreeNumbers FixedClock()
{
    ThreeNumbers numbers;
    CConfigUtil::GetFixedClockSetting(numbers.first, numbers.minimum, numbers.maximum);
    return numbers;
}

static_assert(std::has_virtual_destructor_v<CConfigUtil>);

TEST_F(ConfigUtil, WithoutAnyKeyEveryDefaultApplies)
{
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 0U);
    EXPECT_FALSE(CConfigUtil::IsUpdateEnable());
    for (const int site : {2, 3, 5, 6, 9}) {
        EXPECT_TRUE(CConfigUtil::IsSiteEnable(site)) << site;
        EXPECT_EQ(CConfigUtil::GetSupportDataType(site, 26), 26U) << site;
    }
    EXPECT_EQ(Interval(), (ThreeNumbers{30, -15, 15}));
    EXPECT_EQ(FixedClock(), (ThreeNumbers{9, 0, 30}));
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"127.0.0.1:8470");
}

TEST_F(ConfigUtil, EveryValueIsReadFromTheMachineHive)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 27);
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 1);
    m_machine.PutDword(Hive::kMachine, kMain, L"Interval", 60);
    m_machine.PutDword(Hive::kMachine, kMain, L"IntervalMin", static_cast<DWORD>(-5));
    m_machine.PutDword(Hive::kMachine, kMain, L"IntervalMax", 5);
    m_machine.PutDword(Hive::kMachine, kMain, L"FixedClock", 22);
    m_machine.PutDword(Hive::kMachine, kMain, L"FixedClockMin", 10);
    m_machine.PutDword(Hive::kMachine, kMain, L"FixedClockMax", 20);
    m_machine.PutDword(Hive::kMachine, kTokyo, L"Enable", 0);
    m_machine.PutDword(Hive::kMachine, kTokyo, L"SupportDataType", 3);
    m_machine.PutText(Hive::kMachine, kMain, L"ApiHost", L"api.example:80");

    EXPECT_EQ(CConfigUtil::GetLogLevel(), 27U);
    EXPECT_TRUE(CConfigUtil::IsUpdateEnable());
    EXPECT_EQ(Interval(), (ThreeNumbers{60, -5, 5}));
    EXPECT_EQ(FixedClock(), (ThreeNumbers{22, 10, 20}));
    EXPECT_FALSE(CConfigUtil::IsSiteEnable(3));
    EXPECT_EQ(CConfigUtil::GetSupportDataType(3, 31), 3U);
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"api.example:80");
    EXPECT_TRUE(m_machine.DebugLines().empty());
}

TEST_F(ConfigUtil, PerUserEnableIsIgnored)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"Enable", 1);
    EXPECT_FALSE(CConfigUtil::IsUpdateEnable());
    EXPECT_EQ(m_machine.CallCount(Call::kQuerySettingsValue), 1U); // the per-user hive is not even asked
}

TEST_F(ConfigUtil, PerUserEnableCannotSwitchUpdatesOff)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"Enable", 0);
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 7);
    EXPECT_TRUE(CConfigUtil::IsUpdateEnable());
}

TEST_F(ConfigUtil, PerUserLogLevelWinsEvenWhenItIsZero)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"LogLevel", 0);
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 27);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 0U);
}

TEST_F(ConfigUtil, ALogLevelOfAnotherTypeIsSkipped)
{
    m_machine.PutText(Hive::kPerUser, kMain, L"LogLevel", L"27");
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 3);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 3U);
}

TEST_F(ConfigUtil, EveryOtherTypeCountsAsAbsent)
{
    const std::vector<BYTE> four = {1, 0, 0, 0};
    const std::vector<BYTE> eight = {1, 0, 0, 0, 0, 0, 0, 0};
    const std::vector<BYTE> shortText = {'7', 0, 0, 0}; // as long as a number
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 3);
    for (const auto& [type, data] :
         {std::pair{REG_NONE, four}, std::pair{REG_SZ, shortText}, std::pair{REG_BINARY, four},
          std::pair{REG_MULTI_SZ, shortText}, std::pair{REG_QWORD, eight}, std::pair{REG_QWORD, four}}) {
        PutBytes(Hive::kPerUser, kMain, L"LogLevel", type, data);
        EXPECT_EQ(CConfigUtil::GetLogLevel(), 3U) << "type " << type;
    }
    EXPECT_TRUE(m_machine.DebugLines().empty());
}

TEST_F(ConfigUtil, ANumberOfAnotherLengthCountsAsAbsent)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 3);
    for (const std::size_t length : {0U, 1U, 2U, 3U, 5U, 8U}) {
        PutBytes(Hive::kPerUser, kMain, L"LogLevel", REG_DWORD, std::vector<BYTE>(length, 1));
        EXPECT_EQ(CConfigUtil::GetLogLevel(), 3U) << "length " << length;
    }
}

TEST_F(ConfigUtil, AllThirtyTwoBitsOfTheMaskArrive)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"LogLevel", 0xFEDCBA98);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 0xFEDCBA98U);
}

TEST_F(ConfigUtil, PerUserSiteEnableWins)
{
    m_machine.PutDword(Hive::kMachine, kTokyo, L"Enable", 0);
    EXPECT_FALSE(CConfigUtil::IsSiteEnable(3));
    m_machine.PutDword(Hive::kPerUser, kTokyo, L"Enable", 1);
    EXPECT_TRUE(CConfigUtil::IsSiteEnable(3));
}

TEST_F(ConfigUtil, AnyNonZeroSiteEnableIsOn)
{
    m_machine.PutDword(Hive::kPerUser, kTokyo, L"Enable", 0x80000000);
    EXPECT_TRUE(CConfigUtil::IsSiteEnable(3));
}

TEST_F(ConfigUtil, SitesAreReadFromTheirOwnKeys)
{
    for (const int site : {2, 3, 5, 6, 9}) {
        m_machine.PutDword(Hive::kMachine, std::wstring(kMain) + L"\\site\\" + std::to_wstring(site),
                           L"SupportDataType", static_cast<DWORD>(site));
    }
    for (const int site : {2, 3, 5, 6, 9}) {
        EXPECT_EQ(CConfigUtil::GetSupportDataType(site, 31), static_cast<DWORD>(site));
    }
    EXPECT_EQ(CConfigUtil::GetSupportDataType(4, 31), 31U);
}

TEST_F(ConfigUtil, TheMainKeyDoesNotSwitchSites)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 0);
    EXPECT_TRUE(CConfigUtil::IsSiteEnable(3));
}

TEST_F(ConfigUtil, ASupportMaskOfZeroIsNotTheDefault)
{
    m_machine.PutDword(Hive::kPerUser, kTokyo, L"SupportDataType", 0);
    EXPECT_EQ(CConfigUtil::GetSupportDataType(3, 31), 0U);
}

TEST_F(ConfigUtil, IntervalBoundsComeAsStoredEvenWhenReversed)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"IntervalMin", 20);
    m_machine.PutDword(Hive::kMachine, kMain, L"IntervalMax", static_cast<DWORD>(-20));
    EXPECT_EQ(Interval(), (ThreeNumbers{30, 20, -20}));
}

TEST_F(ConfigUtil, IntervalValuesMayComeFromDifferentHives)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"Interval", 10);
    m_machine.PutDword(Hive::kMachine, kMain, L"Interval", 60);
    m_machine.PutDword(Hive::kMachine, kMain, L"IntervalMin", 1);
    EXPECT_EQ(Interval(), (ThreeNumbers{10, 1, 15}));
}

TEST_F(ConfigUtil, FixedClockValuesMayComeFromDifferentHives)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"FixedClock", 25); // not checked
    m_machine.PutDword(Hive::kPerUser, kMain, L"FixedClockMax", 45);
    m_machine.PutText(Hive::kPerUser, kMain, L"FixedClockMin", L"5");
    EXPECT_EQ(FixedClock(), (ThreeNumbers{25, 0, 45}));
}

TEST_F(ConfigUtil, AnUnreadablePerUserHiveIsSkipped)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"LogLevel", 1);
    m_machine.PutDword(Hive::kMachine, kMain, L"LogLevel", 2);
    m_machine.FailCall(Call::kQuerySettingsValue, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 2U);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 1U); // the fault is over
}

TEST_F(ConfigUtil, AnUnreadableStoreGivesTheDefaults)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 1);
    m_machine.PutDword(Hive::kMachine, kTokyo, L"Enable", 0);
    m_machine.PutDword(Hive::kMachine, kTokyo, L"SupportDataType", 1);
    for (const wchar_t* name : {L"LogLevel", L"Interval", L"IntervalMin", L"IntervalMax", L"FixedClock",
                                L"FixedClockMin", L"FixedClockMax"}) {
        m_machine.PutDword(Hive::kMachine, kMain, name, 1);
    }
    m_machine.FailEvery(Call::kQuerySettingsValue, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(CConfigUtil::IsUpdateEnable());
    EXPECT_TRUE(CConfigUtil::IsSiteEnable(3));
    EXPECT_EQ(CConfigUtil::GetSupportDataType(3, 31), 31U);
    EXPECT_EQ(CConfigUtil::GetLogLevel(), 0U);
    EXPECT_EQ(Interval(), (ThreeNumbers{30, -15, 15}));
    EXPECT_EQ(FixedClock(), (ThreeNumbers{9, 0, 30}));
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"127.0.0.1:8470");
}

TEST_F(ConfigUtil, EveryCallReadsAnew)
{
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 1);
    EXPECT_TRUE(CConfigUtil::IsUpdateEnable());
    m_machine.PutDword(Hive::kMachine, kMain, L"Enable", 0);
    EXPECT_FALSE(CConfigUtil::IsUpdateEnable());
    m_machine.RemoveSetting(Hive::kMachine, kMain, L"Enable");
    EXPECT_FALSE(CConfigUtil::IsUpdateEnable());
}

TEST_F(ConfigUtil, PerUserApiHostWins)
{
    m_machine.PutText(Hive::kMachine, kMain, L"ApiHost", L"machine.example");
    m_machine.PutText(Hive::kPerUser, kMain, L"ApiHost", L"user.example:8080");
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"user.example:8080");
}

TEST_F(ConfigUtil, AnEmptyApiHostCountsAsNotSet)
{
    m_machine.PutText(Hive::kPerUser, kMain, L"ApiHost", L"");
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"127.0.0.1:8470");
    m_machine.PutText(Hive::kMachine, kMain, L"ApiHost", L"machine.example");
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"machine.example");
}

TEST_F(ConfigUtil, AnApiHostOfAnotherTypeCountsAsNotSet)
{
    m_machine.PutText(Hive::kMachine, kMain, L"ApiHost", L"machine.example");
    m_machine.PutDword(Hive::kPerUser, kMain, L"ApiHost", 8470);
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"machine.example");
    m_machine.PutText(Hive::kPerUser, kMain, L"ApiHost", L"user.example");
    m_machine.PutDword(Hive::kMachine, kMain, L"ApiHost", 8470);
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"user.example");
    m_machine.PutDword(Hive::kPerUser, kMain, L"ApiHost", 8470);
    PutBytes(Hive::kMachine, kMain, L"ApiHost", REG_MULTI_SZ, {'a', 0, 0, 0});
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"127.0.0.1:8470");
}

TEST_F(ConfigUtil, AnApiHostWithoutTerminatorOrOfOddLengthIsRead)
{
    PutBytes(Hive::kPerUser, kMain, L"ApiHost", REG_SZ, {'a', 0, 'b', 0});
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"ab");
    PutBytes(Hive::kPerUser, kMain, L"ApiHost", REG_SZ, {'a', 0, 'b', 0, 'c'});
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"ab");
    PutBytes(Hive::kPerUser, kMain, L"ApiHost", REG_SZ, {'a', 0, 0, 0, 'b', 0});
    EXPECT_EQ(CConfigUtil::GetApiHost(), L"a");
}

TEST_F(ConfigUtil, NothingIsLogged)
{
    m_machine.FailEvery(Call::kQuerySettingsValue, ERROR_ACCESS_DENIED);
    CConfigUtil::GetLogLevel();
    CConfigUtil::IsUpdateEnable();
    CConfigUtil::IsSiteEnable(3);
    CConfigUtil::GetSupportDataType(3, 31);
    Interval();
    FixedClock();
    CConfigUtil::GetApiHost();
    EXPECT_TRUE(m_machine.DebugLines().empty());
}

} // namespace
