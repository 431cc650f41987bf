#include "platform/Settings.h"

#include "platform/contract/ContractTest.h"

using namespace platform;

namespace contract {
namespace {

class SettingsContract : public ContractTest {};

const CString kKey = L"Software\\Halvex\\AmporaSrv";

SettingsValue Dword(DWORD number)
{
    return {REG_DWORD,
            {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8), static_cast<BYTE>(number >> 16),
             static_cast<BYTE>(number >> 24)}};
}

// UTF-16LE with its terminating zero. Only for characters of one unit.
SettingsValue Text(const CString& text)
{
    SettingsValue value{REG_SZ, {}};
    for (const wchar_t character : text + L'\0') {
        value.data.push_back(static_cast<BYTE>(character));
        value.data.push_back(static_cast<BYTE>(character >> 8));
    }
    return value;
}

void ExpectStored(Hive hive, const CString& keyPath, const wchar_t* valueName, const SettingsValue& expected)
{
    SettingsValue value;
    ASSERT_TRUE(QuerySettingsValue(hive, keyPath, valueName, &value));
    EXPECT_EQ(value.type, expected.type);
    EXPECT_EQ(value.data, expected.data);
}

void ExpectMissing(Hive hive, const CString& keyPath, const wchar_t* valueName)
{
    SettingsValue value{REG_DWORD, {1, 2, 3, 4}};
    EXPECT_FALSE(QuerySettingsValue(hive, keyPath, valueName, &value));
    EXPECT_EQ(value.type, REG_NONE);
    EXPECT_TRUE(value.data.empty());
}

TEST_F(SettingsContract, AMissingKeyGivesFalseAndEmptiesTheValue)
{
    ExpectMissing(Hive::kPerUser, kKey, L"LogLevel");
    ExpectMissing(Hive::kMachine, kKey, L"LogLevel");
}

TEST_F(SettingsContract, AMissingValueGivesFalseAndEmptiesTheValue)
{
    PutSetting(Hive::kPerUser, kKey, L"Enable", Dword(1));
    ExpectMissing(Hive::kPerUser, kKey, L"LogLevel");
}

TEST_F(SettingsContract, AValueIsThatOfItsOwnHive)
{
    PutSetting(Hive::kPerUser, kKey, L"LogLevel", Dword(1));
    PutSetting(Hive::kMachine, kKey, L"LogLevel", Dword(2));
    PutSetting(Hive::kMachine, kKey, L"Enable", Dword(3));
    ExpectStored(Hive::kPerUser, kKey, L"LogLevel", Dword(1));
    ExpectStored(Hive::kMachine, kKey, L"LogLevel", Dword(2));
    ExpectMissing(Hive::kPerUser, kKey, L"Enable");
}

TEST_F(SettingsContract, AValueIsThatOfItsOwnKey)
{
    PutSetting(Hive::kMachine, kKey, L"Enable", Dword(1));
    PutSetting(Hive::kMachine, kKey + L"\\site\\3", L"Enable", Dword(0));
    ExpectStored(Hive::kMachine, kKey, L"Enable", Dword(1));
    ExpectStored(Hive::kMachine, kKey + L"\\site\\3", L"Enable", Dword(0));
    ExpectMissing(Hive::kMachine, kKey + L"\\site\\2", L"Enable");
    ExpectMissing(Hive::kMachine, kKey + L"\\site", L"Enable");
}

TEST_F(SettingsContract, NumbersComeBackLittleEndian)
{
    for (const DWORD number : {0U, 1U, 0x12345678U, 0xFFFFFFF1U}) {
        PutSetting(Hive::kPerUser, kKey, L"IntervalMin", Dword(number));
        ExpectStored(Hive::kPerUser, kKey, L"IntervalMin", Dword(number));
    }
}

TEST_F(SettingsContract, EveryTypeComesBackAsItLiesInTheStore)
{
    const SettingsValue values[] = {
        {REG_NONE, {1, 2, 3, 4}},
        {REG_NONE, {}},
        {REG_SZ, {}},
        {REG_SZ, {'7', 0}},               // four bytes with its terminator, but not terminated
        {REG_SZ, {'7', 0, 0}},            // odd length
        {REG_SZ, {'1', 0, 0, 0, '2', 0}}, // text behind the terminator
        {REG_BINARY, {}},
        {REG_BINARY, {0xFF, 0, 1, 2, 3}},
        {REG_DWORD, {1, 2}},             // a number too short
        {REG_DWORD, {1, 2, 3, 4, 5, 6}}, // and too long
        {REG_MULTI_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
        {REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const SettingsValue& value : values) {
        SCOPED_TRACE(testing::Message() << "type " << value.type << ", " << value.data.size() << " bytes");
        PutSetting(Hive::kMachine, kKey, L"Enable", value);
        ExpectStored(Hive::kMachine, kKey, L"Enable", value);
    }
}

TEST_F(SettingsContract, TextComesBackAsUtf16)
{
    for (const CString& text :
         {CString(), CString(L"127.0.0.1:8470"), CString(L"a \"quoted\" \\ text"), CString(L"\u6771\u4EAC \u00E9")}) {
        PutSetting(Hive::kPerUser, kKey, L"ApiHost", Text(text));
        ExpectStored(Hive::kPerUser, kKey, L"ApiHost", Text(text));
    }
}

TEST_F(SettingsContract, ALongValueComesBackWhole)
{
    SettingsValue value{REG_BINARY, {}};
    for (int i = 0; i < 50000; ++i) {
        value.data.push_back(static_cast<BYTE>(i * 7));
    }
    PutSetting(Hive::kPerUser, kKey, L"ApiHost", value);
    ExpectStored(Hive::kPerUser, kKey, L"ApiHost", value);
}

TEST_F(SettingsContract, KeyAndValueNamesCompareWithoutCase)
{
    PutSetting(Hive::kPerUser, kKey, L"LogLevel", Dword(27));
    ExpectStored(Hive::kPerUser, L"SOFTWARE\\halvex\\AMPORASRV", L"loglevel", Dword(27));
    ExpectStored(Hive::kPerUser, L"software\\HALVEX\\amporasrv", L"LOGLEVEL", Dword(27));
}

TEST_F(SettingsContract, AChangeIsSeenByTheNextCall)
{
    PutSetting(Hive::kMachine, kKey, L"Interval", Dword(30));
    ExpectStored(Hive::kMachine, kKey, L"Interval", Dword(30));
    PutSetting(Hive::kMachine, kKey, L"Interval", Dword(60));
    ExpectStored(Hive::kMachine, kKey, L"Interval", Dword(60));
    RemoveSetting(Hive::kMachine, kKey, L"Interval");
    ExpectMissing(Hive::kMachine, kKey, L"Interval");
    PutSetting(Hive::kMachine, kKey, L"Interval", Text(L"60"));
    ExpectStored(Hive::kMachine, kKey, L"Interval", Text(L"60"));
}

TEST_F(SettingsContract, AnyThreadMayAsk)
{
    PutSetting(Hive::kMachine, kKey, L"Enable", Dword(1));
    CRunningThread([] { ExpectStored(Hive::kMachine, kKey, L"Enable", Dword(1)); }).Join();
}

TEST_F(SettingsContract, TextOfSettingEndsAtTheFirstZero)
{
    EXPECT_EQ(TextOfSetting(Text(L"127.0.0.1:8470")), L"127.0.0.1:8470");
    EXPECT_EQ(TextOfSetting(Text(L"\u6771\u4EAC")), L"\u6771\u4EAC");
    EXPECT_EQ(TextOfSetting({REG_SZ, {'1', 0, 0, 0, '2', 0, 0, 0}}), L"1");
    EXPECT_EQ(TextOfSetting({REG_SZ, {0, 0}}), L"");
    EXPECT_EQ(TextOfSetting({REG_SZ, {}}), L"");
}

TEST_F(SettingsContract, TextOfSettingNeedsNoTerminator)
{
    EXPECT_EQ(TextOfSetting({REG_SZ, {'1', 0, '2', 0}}), L"12");
}

TEST_F(SettingsContract, TextOfSettingDropsAnOddLastByte)
{
    EXPECT_EQ(TextOfSetting({REG_SZ, {'1', 0, '2', 0, '3'}}), L"12");
    EXPECT_EQ(TextOfSetting({REG_SZ, {'1'}}), L"");
}

} // namespace
} // namespace contract
