#include "platform/linux/RegFile.h"

#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <gmock/gmock.h>

namespace platform::linux {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr std::wstring_view kKey = L"HKEY_CURRENT_USER\\Software\\Test";
const std::string kHead = "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software\\Test]\n";

std::span<const BYTE> BytesOf(const std::string& text)
{
    return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

// The value, or one of type 0xFFFFFFFF when there is none.
SettingsValue Find(const std::string& file, std::wstring_view name, std::wstring_view key = kKey)
{
    SettingsValue value{1, {1}};
    if (FindRegValue(BytesOf(file), key, name, &value)) {
        return value;
    }
    EXPECT_EQ(value.type, REG_NONE);
    EXPECT_THAT(value.data, IsEmpty());
    return {0xFFFFFFFF, {}};
}

bool Has(const std::string& file, std::wstring_view name, std::wstring_view key = kKey)
{
    return Find(file, name, key).type != 0xFFFFFFFF;
}

// The one number of a value "N" whose line is given.
DWORD NumberIn(const std::string& lines, std::wstring_view name = L"N")
{
    const SettingsValue value = Find(kHead + lines, name);
    EXPECT_EQ(value.type, REG_DWORD) << lines;
    EXPECT_EQ(value.data.size(), 4U) << lines;
    DWORD number = 0;
    for (std::size_t i = value.data.size(); i > 0; --i) {
        number = number << 8 | value.data[i - 1];
    }
    return number;
}

CString TextIn(const std::string& line)
{
    const SettingsValue value = Find(kHead + line, L"T");
    EXPECT_EQ(value.type, REG_SZ) << line;
    return TextOfSetting(value);
}

std::string Utf16File(const std::string& utf8)
{
    const std::vector<BYTE> units = portable::EncodeUtf16(DecodeUtf8(utf8));
    return "\xFF\xFE" + std::string(units.begin(), units.end());
}

TEST(RegFile, NumbersAreHexadecimal)
{
    EXPECT_EQ(NumberIn("\"N\"=dword:0000001f\n"), 0x1FU);
    EXPECT_EQ(NumberIn("\"N\"=dword:FFFFFFF1\n"), 0xFFFFFFF1U);
    EXPECT_EQ(NumberIn("\"N\"=dword:7\n"), 7U);
    EXPECT_THAT(Find(kHead + "\"N\"=dword:12345678\n", L"N").data, ElementsAre(0x78, 0x56, 0x34, 0x12));
}

TEST(RegFile, TextBecomesUtf16WithItsTerminator)
{
    const SettingsValue value = Find(kHead + "\"T\"=\"a\xC3\xA9\"\n", L"T");
    EXPECT_EQ(value.type, REG_SZ);
    EXPECT_THAT(value.data, ElementsAre('a', 0, 0xE9, 0, 0, 0));
    EXPECT_THAT(Find(kHead + "\"T\"=\"\"\n", L"T").data, ElementsAre(0, 0));
    EXPECT_THAT(Find(kHead + "\"T\"=\"\xF0\x9F\x98\x80\"\n", L"T").data, ElementsAre(0x3D, 0xD8, 0x00, 0xDE, 0, 0));
}

TEST(RegFile, BackslashStandsBeforeQuotesAndBackslashes)
{
    EXPECT_EQ(TextIn(R"("T"="C:\\Data\\")"), L"C:\\Data\\");
    EXPECT_EQ(TextIn(R"("T"="say \"go\"")"), L"say \"go\"");
    EXPECT_EQ(TextIn(R"("T"="C:\temp")"), L"C:\\temp") << "before anything else it is itself";
    EXPECT_EQ(NumberIn("\"a\\\\b\\\"c\"=dword:5\n", L"a\\b\"c"), 5U);
}

TEST(RegFile, TextMayHoldWhatElseHasAMeaning)
{
    EXPECT_EQ(TextIn(R"("T"="a;b=[c]@-")"), L"a;b=[c]@-");
    EXPECT_EQ(NumberIn("\"a=b;[c]\"=dword:5\n", L"a=b;[c]"), 5U);
}

TEST(RegFile, BytesHaveTheTypeInParentheses)
{
    EXPECT_EQ(Find(kHead + "\"N\"=hex:01,ff,A0\n", L"N").type, REG_BINARY);
    EXPECT_THAT(Find(kHead + "\"N\"=hex:01,ff,A0\n", L"N").data, ElementsAre(1, 0xFF, 0xA0));
    EXPECT_THAT(Find(kHead + "\"N\"=hex: 01 ,\t02\n", L"N").data, ElementsAre(1, 2));
    for (const auto& [digits, type] : {std::pair{"0", 0U},
                                       {"2", 2U},
                                       {"4", 4U},
                                       {"7", 7U},
                                       {"b", 11U},
                                       {"B", 11U},
                                       {"100000a", 0x100000AU},
                                       {"ffffffff", 0xFFFFFFFFU}}) {
        SettingsValue value;
        ASSERT_TRUE(FindRegValue(BytesOf(kHead + "\"N\"=hex(" + digits + "):61,00,00,00\n"), kKey, L"N", &value));
        EXPECT_EQ(value.type, type);
        EXPECT_THAT(value.data, ElementsAre(0x61, 0, 0, 0));
    }
}

TEST(RegFile, ThereMayBeNoBytes)
{
    EXPECT_EQ(Find(kHead + "\"N\"=hex:\n", L"N").type, REG_BINARY);
    EXPECT_THAT(Find(kHead + "\"N\"=hex:\n", L"N").data, IsEmpty());
    EXPECT_EQ(Find(kHead + "\"N\"=hex(0):\n", L"N").type, REG_NONE);
}

TEST(RegFile, BytesGoOnAfterABackslash)
{
    EXPECT_THAT(Find(kHead + "\"N\"=hex:01,02,\\\n  03,\\\r\n\t04\n\"M\"=dword:1\n", L"N").data,
                ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(Find(kHead + "\"N\"=hex:01,02,\\\n  03\n\"M\"=dword:1\n", L"M").data, ElementsAre(1, 0, 0, 0));
    EXPECT_THAT(Find(kHead + "\"N\"=hex:\\\n  01\n", L"N").data, ElementsAre(1));
}

TEST(RegFile, UnfinishedBytesLeaveTheNextKeyAndValue)
{
    EXPECT_FALSE(Has(kHead + "\"N\"=hex:01,02,\\\n\"M\"=dword:1\n", L"N"));
    EXPECT_TRUE(Has(kHead + "\"N\"=hex:01,02,\\\n\"M\"=dword:1\n", L"M"));
    EXPECT_FALSE(Has(kHead + "\"N\"=hex:01,02,\\\n[HKEY_CURRENT_USER\\Other]\n\"M\"=dword:1\n", L"M"));
    EXPECT_FALSE(Has(kHead + "\"N\"=hex:01,02,\\", L"N"));
}

TEST(RegFile, TheValueWithoutANameIsTheAtSign)
{
    EXPECT_TRUE(Has(kHead + "@=dword:1\n", L""));
    EXPECT_FALSE(Has(kHead + "@=dword:1\n", L"@"));
    EXPECT_TRUE(Has(kHead + "\"@\"=dword:1\n", L"@"));
    EXPECT_FALSE(Has(kHead + "\"N\"=dword:1\n", L""));
}

TEST(RegFile, NamesCompareWithoutCase)
{
    EXPECT_EQ(NumberIn("\"loglevel\"=dword:5\n", L"LogLevel"), 5U);
    EXPECT_TRUE(Has("[hkey_current_user\\SOFTWARE\\tESt]\n\"N\"=dword:1\n", L"n"));
}

TEST(RegFile, OnlyTheKeyItselfCounts)
{
    for (const char* key : {"HKEY_CURRENT_USER\\Software", "HKEY_CURRENT_USER\\Software\\Test\\Sub",
                            "HKEY_CURRENT_USER\\Software\\Test2", "HKEY_CURRENT_USER\\Software\\Tes",
                            "HKEY_LOCAL_MACHINE\\Software\\Test", "HKCU\\Software\\Test", "Software\\Test", ""}) {
        EXPECT_FALSE(Has("[" + std::string(key) + "]\n\"N\"=dword:1\n", L"N")) << key;
    }
    EXPECT_FALSE(Has("\"N\"=dword:1\n" + kHead, L"N")) << "before any key";
}

TEST(RegFile, AKeyMayHoldBrackets)
{
    EXPECT_TRUE(Has("[HKEY_CURRENT_USER\\a]b[c]\n\"N\"=dword:1\n", L"N", L"HKEY_CURRENT_USER\\a]b[c"));
    EXPECT_TRUE(Has("[HKEY_CURRENT_USER\\a] ; or [b]\n\"N\"=dword:1\n", L"N", L"HKEY_CURRENT_USER\\a"));
}

TEST(RegFile, LaterLinesCountMore)
{
    EXPECT_EQ(NumberIn("\"N\"=dword:1\n\"n\"=dword:2\n"), 2U);
    EXPECT_EQ(NumberIn("\"N\"=dword:1\n[HKEY_CURRENT_USER]\n[HKEY_CURRENT_USER\\software\\test]\n\"N\"=dword:3\n"), 3U);
    EXPECT_EQ(TextIn("\"T\"=dword:1\n\"T\"=\"x\"\n"), L"x");
}

TEST(RegFile, AMinusSignDeletesAValue)
{
    EXPECT_FALSE(Has(kHead + "\"N\"=dword:1\n\"N\"=-\n", L"N"));
    EXPECT_FALSE(Has(kHead + "@=dword:1\n@=-\n", L""));
    EXPECT_EQ(NumberIn("\"N\"=-\n\"N\"=dword:2\n"), 2U);
    EXPECT_EQ(NumberIn("\"N\"=dword:1\n\"M\"=-\n"), 1U);
    EXPECT_EQ(NumberIn("\"N\"=dword:1\n[HKEY_CURRENT_USER]\n\"N\"=-\n"), 1U) << "another key's";
}

TEST(RegFile, AMinusSignDeletesAKeyWithAllBelowIt)
{
    const std::string set = kHead + "\"N\"=dword:1\n";
    EXPECT_FALSE(Has(set + "[-HKEY_CURRENT_USER\\Software\\Test]\n", L"N"));
    EXPECT_FALSE(Has(set + "[-hkey_current_user\\SOFTWARE]\n", L"N"));
    EXPECT_TRUE(Has(set + "[-HKEY_CURRENT_USER\\Software\\Test\\Sub]\n", L"N"));
    EXPECT_TRUE(Has(set + "[-HKEY_CURRENT_USER\\Software\\Te]\n", L"N"));
    EXPECT_TRUE(Has(set + "[-HKEY_LOCAL_MACHINE\\Software\\Test]\n", L"N"));
    EXPECT_FALSE(Has(set + "[-HKEY_CURRENT_USER\\Software\\Test]\n\"N\"=dword:2\n", L"N")) << "below a deleted key";
    EXPECT_TRUE(Has("[-HKEY_CURRENT_USER\\Software\\Test]\n" + set, L"N"));
}

TEST(RegFile, LinesEndInLfOrCrlf)
{
    const std::string file = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Test]\r\n"
                             "\"N\"=dword:1\r\n\"T\"=\"x\"\r\n\r\n";
    EXPECT_TRUE(Has(file, L"N"));
    EXPECT_EQ(TextOfSetting(Find(file, L"T")), L"x");
    EXPECT_EQ(NumberIn("\"N\"=dword:1"), 1U) << "the last line needs no end";
}

TEST(RegFile, Utf8MayHaveAByteOrderMark)
{
    const std::string file = "\xEF\xBB\xBF[HKEY_CURRENT_USER\\Software\\Test]\n\"\xE6\x9D\xB1\"=\"\xE4\xBA\xAC\"\n";
    EXPECT_EQ(TextOfSetting(Find(file, L"\u6771")), L"\u4EAC");
    EXPECT_EQ(TextOfSetting(Find(file.substr(3), L"\u6771")), L"\u4EAC");
}

TEST(RegFile, Utf16HasAByteOrderMark)
{
    const std::string text = kHead + "\"\xE6\x9D\xB1\"=\"\xF0\x9F\x98\x80\"\r\n\"N\"=hex:01,\\\r\n  02\r\n";
    const std::string file = Utf16File(text);
    EXPECT_THAT(Find(file, L"\u6771").data, ElementsAre(0x3D, 0xD8, 0x00, 0xDE, 0, 0));
    EXPECT_THAT(Find(file, L"N").data, ElementsAre(1, 2));
    EXPECT_TRUE(Has(file + "x", L"N")) << "an odd last byte";
    EXPECT_FALSE(Has(file.substr(2), L"N")) << "without mark it is not taken for UTF-16";
}

TEST(RegFile, CommentsAndBlanksAreIgnored)
{
    EXPECT_EQ(NumberIn("; \"N\"=dword:9\n\n   \t\n\"N\"=dword:1\n;\"N\"=dword:8\n"), 1U);
    EXPECT_EQ(NumberIn("  \"N\" = dword:1 ; nine\n"), 1U);
    EXPECT_EQ(TextIn("\"T\"=\"x\" ; y\n"), L"x");
    EXPECT_THAT(Find(kHead + "\"N\"=hex:01,02 ; and so on \\\n\"M\"=dword:1\n", L"N").data, ElementsAre(1, 2));
}

TEST(RegFile, TheFirstLineMayBeMissing)
{
    EXPECT_TRUE(Has("[HKEY_CURRENT_USER\\Software\\Test]\n\"N\"=dword:1\n", L"N"));
}

constexpr const char* kMalformedValues[] = {
    "\"N\"",
    "\"N\"=",
    "\"N\"dword:1",
    "\"N=dword:1",
    "N=dword:1",
    "N\"=dword:1",
    "\"N\"=1",
    "\"N\"=dword",
    "\"N\"=dword:",
    "\"N\"=dword:x",
    "\"N\"=dword:000000001",
    "\"N\"=dword:1 2",
    "\"N\"=dword:1x",
    "\"N\"=dword:-1",
    "\"N\"=\"",
    "\"N\"=\"x",
    "\"N\"=\"x\\\"",
    "\"N\"=\"x\"y",
    "\"N\"=hex",
    "\"N\"=hex:1,",
    "\"N\"=hex:,1",
    "\"N\"=hex:123",
    "\"N\"=hex:1 2",
    "\"N\"=hex:g",
    "\"N\"=hex(:01",
    "\"N\"=hex():01",
    "\"N\"=hex(x):01",
    "\"N\"=hex(1:01",
    "\"N\"=hex(123456789):01",
    "\"N\"=hex(1)01",
    "\"N\"=-x",
    "\"N\"=-dword:1",
    "@",
    "=dword:1",
    "\\",
    "\"",
    "[",
    "]",
    "\"N\"=dword:1]",
};

TEST(RegFile, MalformedValuesAreIgnored)
{
    for (const char* line : kMalformedValues) {
        const std::string file = kHead + line + "\n\"M\"=dword:7\n";
        EXPECT_FALSE(Has(file, L"N")) << line;
        EXPECT_FALSE(Has(file, L"")) << line;
        if (line[0] != '[') {
            EXPECT_TRUE(Has(file, L"M")) << "the line after " << line;
        }
    }
    EXPECT_EQ(NumberIn("\"N\"=dword:1\n\"N\"=dword:xyz\n"), 1U) << "what was set before stays";
}

TEST(RegFile, ValuesBelowAMalformedKeyBelongToNoKey)
{
    EXPECT_FALSE(Has(kHead + "[HKEY_CURRENT_USER\\Software\\Other\n\"N\"=dword:1\n", L"N"));
    EXPECT_FALSE(Has("[HKEY_CURRENT_USER\\Software\\Test] x\n\"N\"=dword:1\n", L"N"));
    EXPECT_FALSE(Has("[]\n\"N\"=dword:1\n", L"N"));
    EXPECT_TRUE(Has(kHead + "\"N\"=dword:1\n[-]\n", L"N"));
}

TEST(RegFile, AnythingMayBeRead)
{
    EXPECT_FALSE(Has("", L"N"));
    EXPECT_FALSE(Has("\xFF\xFE", L"N"));
    EXPECT_FALSE(Has("\xFF\xFE[", L"N"));
    EXPECT_FALSE(Has("\xEF\xBB\xBF", L"N"));
    std::string bytes;
    for (int i = 0; i < 4096; ++i) {
        bytes.push_back(static_cast<char>(i * 37 + i / 256));
    }
    EXPECT_FALSE(Has(bytes, L"N"));
    EXPECT_TRUE(Has(bytes + "\n" + kHead + "\"N\"=dword:1\n", L"N"));
    EXPECT_TRUE(Has(kHead + std::string("\"X\"=\"\0\"\n", 8) + "\"N\"=dword:1\n", L"N"));
}

TEST(RegFile, ALargeFileIsReadToItsEnd)
{
    std::string file = "Windows Registry Editor Version 5.00\n";
    for (int i = 0; i < 20000; ++i) {
        file +=
            "\n[HKEY_CURRENT_USER\\Software\\Key" + std::to_string(i) + "]\n\"N\"=dword:9\n\"B\"=hex:01,02,\\\n  03\n";
    }
    file += "\n[HKEY_CURRENT_USER\\Software\\Test]\n\"N\"=hex:" + std::string(30000, '1');
    EXPECT_FALSE(Has(file, L"N"));
    EXPECT_TRUE(Has(file + "\n\"N\"=dword:1\n", L"N"));
}

} // namespace
} // namespace platform::linux
