#include "config/SettingsTable.h"

#include "testing/MachineTest.h"

#include <set>

namespace {

using namespace settings;

using platform::Hive;

class SettingsTable : public testing_support::CMachineTest {};

TEST_F(SettingsTable, EveryDefaultIsSensible)
{
    std::set<CString> names;
    for (const Setting& setting : kMainSettings) {
        EXPECT_TRUE(names.insert(setting.name).second) << "a name stands for one setting";
        EXPECT_LE(setting.minimum, setting.defaultNumber);
        EXPECT_GE(setting.maximum, setting.defaultNumber);
        EXPECT_EQ(setting.defaultText != nullptr, setting.type == Type::kText);
        EXPECT_FALSE(CString(setting.meaning).ends_with(L'.'));
    }
    EXPECT_EQ(names.size(), 9U);
}

TEST_F(SettingsTable, TellsWhereTheContentInForceComesFrom)
{
    EXPECT_EQ(FindContent(kMainKey, kInterval).content.number, 30);
    EXPECT_EQ(FindContent(kMainKey, kInterval).hive, std::nullopt);
    EXPECT_EQ(FindContent(SiteKey(5), kSupportDataType, 26).content.number, 26);
    m_machine.PutDword(Hive::kMachine, kMainKey, L"Interval", 60);
    EXPECT_EQ(FindContent(kMainKey, kInterval).content.number, 60);
    EXPECT_EQ(FindContent(kMainKey, kInterval).hive, Hive::kMachine);
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"Interval", static_cast<DWORD>(-5));
    EXPECT_EQ(FindContent(kMainKey, kInterval).content.number, -5);
    EXPECT_EQ(FindContent(kMainKey, kInterval).hive, Hive::kPerUser);
    m_machine.PutText(Hive::kPerUser, kMainKey, L"ApiHost", L"a.example");
    EXPECT_EQ(FindContent(kMainKey, kApiHost).content.text, L"a.example");
    EXPECT_EQ(FindContent(kMainKey, kApiHost).hive, Hive::kPerUser);
}

TEST_F(SettingsTable, AHiveTellsOnlyWhatCounts)
{
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"Enable", 1);
    EXPECT_EQ(StoredContent(Hive::kPerUser, kMainKey, kEnable), std::nullopt);
    m_machine.PutDword(Hive::kMachine, kMainKey, L"Enable", 0);
    EXPECT_THAT(StoredContent(Hive::kMachine, kMainKey, kEnable),
                testing::Optional(testing::Field(&Content::number, 0)));
    m_machine.PutDword(Hive::kPerUser, SiteKey(3), L"Enable", 0);
    EXPECT_THAT(StoredContent(Hive::kPerUser, SiteKey(3), kSiteEnable),
                testing::Optional(testing::Field(&Content::number, 0)));
    m_machine.PutText(Hive::kPerUser, kMainKey, L"LogLevel", L"3");
    EXPECT_EQ(StoredContent(Hive::kPerUser, kMainKey, kLogLevel), std::nullopt);
    m_machine.PutText(Hive::kPerUser, kMainKey, L"ApiHost", L"");
    EXPECT_EQ(StoredContent(Hive::kPerUser, kMainKey, kApiHost), std::nullopt);
}

} // namespace
