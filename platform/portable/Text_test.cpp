#include "platform/Text.h"

#include <climits>
#include <gtest/gtest.h>
#include <stdexcept>

namespace platform {
namespace {

constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";

// Decodes and shows the result with each replacement character as '?'.
std::string Decoded(std::string_view bytes)
{
    std::string shown;
    for (const wchar_t character : DecodeUtf8(bytes)) {
        shown.push_back(character == 0xFFFD ? '?' : static_cast<char>(character));
    }
    return shown;
}

TEST(FormatText, TextWithoutConversionsIsItself)
{
    EXPECT_EQ(FormatText(L"Load Exception"), L"Load Exception");
    EXPECT_EQ(FormatText(L""), L"");
}

TEST(FormatText, InsertsWideText)
{
    EXPECT_EQ(FormatText(L"[%s]", L"ERR"), L"[ERR]");
    EXPECT_EQ(FormatText(L"[%s]", std::wstring(L"power_report")), L"[power_report]");
    EXPECT_EQ(FormatText(L"[%s]", L""), L"[]");
    EXPECT_EQ(FormatText(L"%s%s", L"a", L"b"), L"ab");
    EXPECT_EQ(FormatText(L"%s", L"東京 \U0001F50C"), L"東京 \U0001F50C");
}

TEST(FormatText, InsertsNumbersOfBothSigns)
{
    EXPECT_EQ(FormatText(L"%d", 0), L"0");
    EXPECT_EQ(FormatText(L"%d", -15), L"-15");
    EXPECT_EQ(FormatText(L"%d", INT_MAX), L"2147483647");
    EXPECT_EQ(FormatText(L"%d", INT_MIN), L"-2147483648");
    EXPECT_EQ(FormatText(L"%d", LONG{-1}), L"-1");
}

TEST(FormatText, UnsignedAboveTheSignedRangePrintsNegativeAsInC)
{
    EXPECT_EQ(FormatText(L"%d", DWORD{0x7FFFFFFF}), L"2147483647");
    EXPECT_EQ(FormatText(L"%d", DWORD{0x80000000}), L"-2147483648");
    EXPECT_EQ(FormatText(L"%d", DWORD{0xFFFFFFFF}), L"-1");
}

TEST(FormatText, UnsignedConversionPrintsTheSameBitsWithoutSign)
{
    EXPECT_EQ(FormatText(L"%u", DWORD{0xFFFFFFFF}), L"4294967295");
    EXPECT_EQ(FormatText(L"%u", -1), L"4294967295");
    EXPECT_EQ(FormatText(L"%u", DWORD{31}), L"31");
}

TEST(FormatText, NumbersTakeTheirOwnWidth)
{
    EXPECT_EQ(FormatText(L"%u", ULONGLONG{18446744073709551615U}), L"18446744073709551615");
    EXPECT_EQ(FormatText(L"%d", LONGLONG{-9000000000}), L"-9000000000");
    EXPECT_EQ(FormatText(L"%d", WORD{65535}), L"65535");
    EXPECT_EQ(FormatText(L"%d", BYTE{255}), L"255");
    EXPECT_EQ(FormatText(L"%d", TRUE), L"1");
    EXPECT_EQ(FormatText(L"%d", true), L"1");
}

TEST(FormatText, PadsWithZerosToTheWidth)
{
    EXPECT_EQ(FormatText(L"%04d", 7), L"0007");
    EXPECT_EQ(FormatText(L"%04d", 2012), L"2012");
    EXPECT_EQ(FormatText(L"%04d", 30827), L"30827");
    EXPECT_EQ(FormatText(L"%02d", 5), L"05");
    EXPECT_EQ(FormatText(L"%02d", 59), L"59");
    EXPECT_EQ(FormatText(L"%03d", 0), L"000");
    EXPECT_EQ(FormatText(L"%03d", 42), L"042");
    EXPECT_EQ(FormatText(L"%04d", -7), L"-007");
}

TEST(FormatText, PrintsUpperCaseHexadecimalOfEightDigits)
{
    EXPECT_EQ(FormatText(L"(0x%08X)", E_FAIL), L"(0x80004005)");
    EXPECT_EQ(FormatText(L"(0x%08X)", S_FALSE), L"(0x00000001)");
    EXPECT_EQ(FormatText(L"%08X", DWORD{0xDEADBEEF}), L"DEADBEEF");
    EXPECT_EQ(FormatText(L"%08X", DWORD{16}), L"00000010");
}

TEST(FormatText, AFormatWithoutItsPercentSignStandsAsItIs)
{
    EXPECT_EQ(FormatText(L"XML Load fail.(0x08X)", E_FAIL), L"XML Load fail.(0x08X)");
}

TEST(FormatText, DoublePercentIsOnePercent) { EXPECT_EQ(FormatText(L"%d%%", 95), L"95%"); }

TEST(FormatText, PercentSignsOfArgumentsStayAsTheyAre)
{
    EXPECT_EQ(FormatText(L"%s|%s", L"100%", L"%s%d%n%%"), L"100%|%s%d%n%%");
    EXPECT_EQ(FormatText(L"%s", L"{} {0}"), L"{} {0}");
}

TEST(FormatText, BracesOfTheFormatStayAsTheyAre) { EXPECT_EQ(FormatText(L"{%d} {}", 1), L"{1} {}"); }

TEST(FormatText, ArgumentsBeyondTheFormatAreIgnored) { EXPECT_EQ(FormatText(L"%d", 1, 2, L"three"), L"1"); }

TEST(FormatText, MixesTextAndNumbersInOrder)
{
    EXPECT_EQ(FormatText(L"[%s] %04d/%02d/%02d %02d:%02d:%02d.%03d %d(%d) %s : %s\n", L"TRA", 2012, 7, 2, 13, 0, 5, 40,
                         DWORD{4711}, DWORD{0x80000001}, L"F", L"Enter"),
              L"[TRA] 2012/07/02 13:00:05.040 4711(-2147483647) F : Enter\n");
}

TEST(FormatText, LongTextsAreNeverCut)
{
    const std::wstring text(3'000'000, L'x');
    EXPECT_TRUE(FormatText(L"<%s>", text) == L"<" + text + L">");
    EXPECT_TRUE(FormatText(text) == text);
}

TEST(FormatText, ThrowsWhenAnArgumentIsMissing)
{
    EXPECT_THROW(FormatText(L"%s"), std::runtime_error);
    EXPECT_THROW(FormatText(L"%d %d", 1), std::runtime_error);
}

TEST(FormatText, ThrowsWhenANumberIsWantedAndATextGiven)
{
    EXPECT_THROW(FormatText(L"%d", L"text"), std::runtime_error);
    EXPECT_THROW(FormatText(L"%08X", L"text"), std::runtime_error);
}

TEST(FormatText, ThrowsWhenTheFormatEndsInsideAConversion) { EXPECT_THROW(FormatText(L"%", 1), std::runtime_error); }

TEST(DecodeUtf8, KeepsAsciiAndZeroBytes)
{
    EXPECT_EQ(DecodeUtf8("power"), L"power");
    EXPECT_EQ(DecodeUtf8(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
    EXPECT_EQ(DecodeUtf8(""), L"");
}

TEST(DecodeUtf8, DecodesEveryLengthAtItsLimits)
{
    EXPECT_EQ(DecodeUtf8("\x7F"), L"\x7F");
    EXPECT_EQ(DecodeUtf8("\xC2\x80"), L"\x80");
    EXPECT_EQ(DecodeUtf8("\xDF\xBF"), L"\x7FF");
    EXPECT_EQ(DecodeUtf8("\xE0\xA0\x80"), L"\x800");
    EXPECT_EQ(DecodeUtf8("\xED\x9F\xBF"), L"\xD7FF");
    EXPECT_EQ(DecodeUtf8("\xEE\x80\x80"), L"\xE000");
    EXPECT_EQ(DecodeUtf8("\xEF\xBF\xBF"), L"\xFFFF");
    EXPECT_EQ(DecodeUtf8("\xF0\x90\x80\x80"), L"\U00010000");
    EXPECT_EQ(DecodeUtf8("\xF4\x8F\xBF\xBF"), L"\U0010FFFF");
}

TEST(DecodeUtf8, AByteOrderMarkIsACharacter) { EXPECT_EQ(DecodeUtf8("\xEF\xBB\xBF<"), L"\xFEFF<"); }

// The sequences of the following four are those of the Unicode Standard, tables 3-8 to 3-11.
TEST(DecodeUtf8, OverlongFormsGiveOneReplacementAByte)
{
    EXPECT_EQ(Decoded("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"), "????????A");
}

TEST(DecodeUtf8, EncodedSurrogatesGiveOneReplacementAByte)
{
    EXPECT_EQ(Decoded("\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"), "????????A");
}

TEST(DecodeUtf8, OtherIllFormedBytesGiveOneReplacementEach)
{
    EXPECT_EQ(Decoded("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"), "?????A??B");
}

TEST(DecodeUtf8, ATruncatedSequenceGivesOneReplacement)
{
    EXPECT_EQ(Decoded("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"), "????A");
    EXPECT_EQ(Decoded("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"), "a???b?c??d");
}

TEST(DecodeUtf8, ASequenceCutByTheEndGivesOneReplacement)
{
    EXPECT_EQ(Decoded("a\xC3"), "a?");
    EXPECT_EQ(Decoded("a\xE6\x9D"), "a?");
    EXPECT_EQ(Decoded("a\xF0\x9F\x94"), "a?");
}

TEST(DecodeUtf8, LeadBytesAboveFourGiveReplacements) { EXPECT_EQ(Decoded("\xF5\xF8\xFC\xFE\xFF"), "?????"); }

TEST(EncodeUtf8, KeepsAsciiAndZeroCharacters)
{
    EXPECT_EQ(EncodeUtf8(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(EncodeUtf8(L""), "");
}

TEST(EncodeUtf8, LoneSurrogatesBecomeReplacements)
{
    const auto high = static_cast<wchar_t>(0xD83D);
    const auto low = static_cast<wchar_t>(0xDD0C);
    for (const unsigned surrogate : {0xD800, 0xDBFF, 0xDC00, 0xDFFF}) {
        EXPECT_EQ(EncodeUtf8(std::wstring{static_cast<wchar_t>(surrogate)}), kReplacementUtf8);
    }
    EXPECT_EQ(EncodeUtf8(std::wstring{high, L'a'}), std::string(kReplacementUtf8) + "a");
    EXPECT_EQ(EncodeUtf8(std::wstring{low, high}), std::string(kReplacementUtf8) + kReplacementUtf8);
}

TEST(EncodeUtf8, ASurrogatePairIsOneCharacterWhereWideTextIsUtf16)
{
    const std::wstring pair{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDD0C)};
    const std::string two = std::string(kReplacementUtf8) + kReplacementUtf8;
    EXPECT_EQ(EncodeUtf8(pair), sizeof(wchar_t) == 2 ? "\xF0\x9F\x94\x8C" : two);
}

#if WCHAR_MAX > 0xFFFF
TEST(EncodeUtf8, ValuesThatAreNoCharacterBecomeReplacements)
{
    EXPECT_EQ(EncodeUtf8(std::wstring{static_cast<wchar_t>(0x110000)}), kReplacementUtf8);
    EXPECT_EQ(EncodeUtf8(std::wstring{static_cast<wchar_t>(0xFFFFFFFF)}), kReplacementUtf8);
}
#endif

TEST(Utf8, OtherCharactersMayStandAnywhereInLongAscii)
{
    for (std::size_t position = 0; position < 40; ++position) {
        const std::string before(position, 'a');
        const std::string after(40 - position, 'b');
        const CString text = CString(position, L'a') + L'\x3042' + CString(40 - position, L'b');
        EXPECT_EQ(EncodeUtf8(text), before + "\xE3\x81\x82" + after);
        EXPECT_EQ(DecodeUtf8(before + "\xE3\x81\x82" + after), text);
        EXPECT_EQ(DecodeUtf8(before + "\xFF" + after).at(position), 0xFFFD);
    }
}

TEST(Utf8, EveryCharacterSurvivesTheRoundTrip)
{
    std::wstring text;
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (character >= 0xD800 && character <= 0xDFFF) {
            continue;
        }
        if (sizeof(wchar_t) == 2 && character > 0xFFFF) {
            text.push_back(static_cast<wchar_t>(0xD7C0 + (character >> 10)));
            text.push_back(static_cast<wchar_t>(0xDC00 + (character & 0x3FF)));
        } else {
            text.push_back(static_cast<wchar_t>(character));
        }
    }
    const std::string bytes = EncodeUtf8(text);
    EXPECT_EQ(bytes.size(), 0x80U + 2U * 0x780 + 3U * (0xF800 - 0x800) + 4U * 0x100000);
    EXPECT_TRUE(DecodeUtf8(bytes) == text);
}

} // namespace
} // namespace platform
