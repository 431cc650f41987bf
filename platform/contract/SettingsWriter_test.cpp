#include "platform/SettingsWriter.h"

#include "platform/contract/ContractTest.h"

using namespace platform;

namespace contract {
namespace {

const CString kKey = L"Software\\Halvex\\AmporaSrv";
const SettingsValue kOne{REG_DWORD, {1, 0, 0, 0}};

class SettingsWriterContract : public ContractTest {
protected:
    // There is a store, with something of somebody else's in it.
    void SetUp() override
    {
        ContractTest::SetUp();
        for (const Hive hive : {Hive::kPerUser, Hive::kMachine}) {
            PutSetting(hive, L"Software\\Other", L"Value", kOne);
        }
    }
};

void ExpectStored(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& expected)
{
    SettingsValue value;
    ASSERT_TRUE(QuerySettingsValue(hive, keyPath, valueName, &value));
    EXPECT_EQ(value.type, expected.type);
    EXPECT_EQ(value.data, expected.data);
}

bool IsThere(Hive hive, const CString& keyPath, const wchar_t* valueName)
{
    SettingsValue value;
    return QuerySettingsValue(hive, keyPath, valueName, &value) != FALSE;
}

TEST_F(SettingsWriterContract, WhatIsStoredIsFound)
{
    const SettingsValue values[] = {
        kOne,
        {REG_DWORD, {0xF1, 0xFF, 0xFF, 0xFF}},
        {REG_SZ, {'a', 0, '"', 0, '\\', 0, ';', 0, 0x71, 0x67, 0, 0}},
        {REG_SZ, {'a', 0, '\n', 0, 'b', 0, 0, 0}},
        {REG_BINARY, {}},
        {REG_BINARY, {1, 2, 3}},
        {REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const Hive hive : {Hive::kPerUser, Hive::kMachine}) {
        for (const SettingsValue& value : values) {
            SCOPED_TRACE(testing::Message() << "type " << value.type << ", " << value.data.size() << " bytes");
            EXPECT_TRUE(StoreSettingsValue(hive, kKey, L"Value", value));
            ExpectStored(hive, kKey, L"Value", value);
        }
        ExpectStored(hive, L"Software\\Other", L"Value", kOne);
    }
}

TEST_F(SettingsWriterContract, AKeyIsMadeWithThoseThatLeadToIt)
{
    EXPECT_TRUE(StoreSettingsValue(Hive::kPerUser, kKey + L"\\site\\3", L"Enable", kOne));
    ExpectStored(Hive::kPerUser, kKey + L"\\site\\3", L"Enable", kOne);
    EXPECT_FALSE(IsThere(Hive::kMachine, kKey + L"\\site\\3", L"Enable"));
    EXPECT_FALSE(IsThere(Hive::kPerUser, kKey, L"Enable"));
    EXPECT_FALSE(IsThere(Hive::kPerUser, kKey + L"\\site", L"Enable"));
}

TEST_F(SettingsWriterContract, NamesCompareWithoutCase)
{
    PutSetting(Hive::kPerUser, kKey, L"LogLevel", {REG_DWORD, {3, 0, 0, 0}});
    EXPECT_TRUE(StoreSettingsValue(Hive::kPerUser, L"SOFTWARE\\halvex\\AmporaSrv", L"LOGLEVEL", kOne));
    ExpectStored(Hive::kPerUser, kKey, L"LogLevel", kOne);
    EXPECT_TRUE(RemoveSettingsValue(Hive::kPerUser, kKey, L"loglevel"));
    EXPECT_FALSE(IsThere(Hive::kPerUser, kKey, L"LogLevel"));
}

TEST_F(SettingsWriterContract, WhatIsRemovedIsGoneAndTheRestStays)
{
    PutSetting(Hive::kMachine, kKey, L"LogLevel", kOne);
    PutSetting(Hive::kMachine, kKey, L"Interval", kOne);
    EXPECT_TRUE(RemoveSettingsValue(Hive::kMachine, kKey, L"LogLevel"));
    EXPECT_FALSE(IsThere(Hive::kMachine, kKey, L"LogLevel"));
    ExpectStored(Hive::kMachine, kKey, L"Interval", kOne);
    ExpectStored(Hive::kMachine, L"Software\\Other", L"Value", kOne);
}

TEST_F(SettingsWriterContract, WhatIsMissingCannotBeRemoved)
{
    EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [] { return RemoveSettingsValue(Hive::kPerUser, kKey, L"Value"); }));
    PutSetting(Hive::kPerUser, kKey, L"Other", kOne);
    EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [] { return RemoveSettingsValue(Hive::kPerUser, kKey, L"Value"); }));
    ExpectStored(Hive::kPerUser, kKey, L"Other", kOne);
}

TEST_F(SettingsWriterContract, ThePlaceOfAHiveHasAName)
{
    EXPECT_NE(SettingsPlace(Hive::kPerUser, kKey), L"");
    EXPECT_NE(SettingsPlace(Hive::kPerUser, kKey), SettingsPlace(Hive::kMachine, kKey));
}

} // namespace
} // namespace contract
