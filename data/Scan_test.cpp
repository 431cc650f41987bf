#include "data/Scan.h"

#include "platform/Text.h"
#include "testing/CalendarText.h"

#include <gtest/gtest.h>

namespace {

using testing_support::CalendarText;

constexpr DWORD kBefore = 4711; // what a field that is not reached keeps

// What a scan of text must assign and leave in the field.
template <class Field>
void ExpectScan(int (*scan)(std::wstring_view, Field&), const std::wstring& text, int assigned, Field expected)
{
    Field value = kBefore;
    EXPECT_EQ(scan(text, value), assigned) << platform::EncodeUtf8(text);
    EXPECT_EQ(value, expected) << platform::EncodeUtf8(text);
}

// The fields after a scan that starts from all zero, and how many were assigned.
std::string DateTime(std::wstring_view text)
{
    SYSTEMTIME time{};
    const int assigned = ScanDateTime(text, time);
    return std::to_string(assigned) + ": " + CalendarText(time);
}

TEST(ScanUnsigned, ReadsDecimalNumbers)
{
    ExpectScan<DWORD>(ScanUnsigned, L"0", 1, 0);
    ExpectScan<DWORD>(ScanUnsigned, L"300", 1, 300);
    ExpectScan<DWORD>(ScanUnsigned, L"0000300", 1, 300);
    ExpectScan<DWORD>(ScanUnsigned, L"4294967295", 1, 4294967295);
}

TEST(ScanUnsigned, SkipsWhiteSpaceBeforeTheNumber)
{
    ExpectScan<DWORD>(ScanUnsigned, L" \t\n\v\f\r300", 1, 300);
    ExpectScan<DWORD>(ScanUnsigned, L"\u00A0300", 0, kBefore);
    ExpectScan<DWORD>(ScanUnsigned, L"\u3000300", 0, kBefore);
}

TEST(ScanUnsigned, WhatFollowsIsNotLookedAt)
{
    ExpectScan<DWORD>(ScanUnsigned, L"300 ", 1, 300);
    ExpectScan<DWORD>(ScanUnsigned, L"300abc", 1, 300);
    ExpectScan<DWORD>(ScanUnsigned, L"3.9", 1, 3);
    ExpectScan<DWORD>(ScanUnsigned, L"3,000", 1, 3);
    ExpectScan<DWORD>(ScanUnsigned, L"0x10", 1, 0);
    ExpectScan<DWORD>(ScanUnsigned, L"1e3", 1, 1);
}

TEST(ScanUnsigned, TextThatIsNoNumberLeavesTheFieldAlone)
{
    for (const wchar_t* text : {L"", L" ", L"abc", L"-", L"+", L"--1", L"+-1", L"- 1", L".5", L"\uFF13\uFF10"}) {
        ExpectScan<DWORD>(ScanUnsigned, text, 0, kBefore);
    }
}

TEST(ScanUnsigned, ASignIsAccepted)
{
    ExpectScan<DWORD>(ScanUnsigned, L"+5", 1, 5);
    ExpectScan<DWORD>(ScanUnsigned, L"-1", 1, 4294967295);
    ExpectScan<DWORD>(ScanUnsigned, L"-300", 1, 4294966996);
    ExpectScan<DWORD>(ScanUnsigned, L"-0", 1, 0);
}

TEST(ScanUnsigned, NumbersBeyondTheFieldWrap)
{
    ExpectScan<DWORD>(ScanUnsigned, L"4294967296", 1, 0);
    ExpectScan<DWORD>(ScanUnsigned, L"4294967301", 1, 5);
    ExpectScan<DWORD>(ScanUnsigned, L"18446744073709551621", 1, 5);
}

TEST(ScanUnsigned, DigitsWithoutEndAreRead)
{
    ExpectScan<DWORD>(ScanUnsigned, std::wstring(1'000'000, L'0') + L"7", 1, 7);
}

TEST(ScanUnsigned64, ReadsTheWholeRange)
{
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"0", 1, 0);
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"4294967296", 1, 4294967296);
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"18446744073709551615", 1, 18446744073709551615U);
}

TEST(ScanUnsigned64, WrapsAndNegatesModuloTheField)
{
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"18446744073709551616", 1, 0);
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"-1", 1, 18446744073709551615U);
}

TEST(ScanUnsigned64, TextThatIsNoNumberLeavesTheFieldAlone)
{
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"abc", 0, kBefore);
    ExpectScan<ULONGLONG>(ScanUnsigned64, L"", 0, kBefore);
}

TEST(ScanDateTime, ReadsTheSixFields) { EXPECT_EQ(DateTime(L"2012-07-02T13:04:05"), "6: 2012-07-02(0) 13:04:05.000"); }

TEST(ScanDateTime, AnythingAfterTheSecondsIsIgnored)
{
    EXPECT_EQ(DateTime(L"2012-07-02T13:04:05Z"), "6: 2012-07-02(0) 13:04:05.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13:04:05+09:00"), "6: 2012-07-02(0) 13:04:05.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13:04:05.999"), "6: 2012-07-02(0) 13:04:05.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13:04:059"), "6: 2012-07-02(0) 13:04:05.000");
}

TEST(ScanDateTime, StopsAtTheFirstFailureAndKeepsTheFieldsBefore)
{
    EXPECT_EQ(DateTime(L""), "0: 0000-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"noon"), "0: 0000-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012"), "1: 2012-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-"), "1: 2012-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07"), "2: 2012-07-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02"), "3: 2012-07-02(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13"), "4: 2012-07-02(0) 13:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13:04"), "5: 2012-07-02(0) 13:04:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02T13:04:"), "5: 2012-07-02(0) 13:04:00.000");
    EXPECT_EQ(DateTime(L"2012-xx-02T13:04:05"), "1: 2012-00-00(0) 00:00:00.000");
}

TEST(ScanDateTime, LiteralsMustMatchExactly)
{
    EXPECT_EQ(DateTime(L"2012/07/02T13:04:05"), "1: 2012-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02 13:04:05"), "3: 2012-07-02(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-07-02t13:04:05"), "3: 2012-07-02(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012 -07-02T13:04:05"), "1: 2012-00-00(0) 00:00:00.000");
}

TEST(ScanDateTime, FieldsMayBeShorterThanTheirWidth)
{
    EXPECT_EQ(DateTime(L"12-7-2T3:4:5"), "6: 0012-07-02(0) 03:04:05.000");
}

TEST(ScanDateTime, FieldsEndAtTheirWidth)
{
    EXPECT_EQ(DateTime(L"20120-07-02T13:04:05"), "1: 2012-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012-007-02T13:04:05"), "2: 2012-00-00(0) 00:00:00.000");
}

TEST(ScanDateTime, WhiteSpaceBeforeANumberIsSkippedOutsideItsWidth)
{
    EXPECT_EQ(DateTime(L"  2012- 07-\t02T 13: 04: 05"), "6: 2012-07-02(0) 13:04:05.000");
}

TEST(ScanDateTime, ASignCountsTowardTheWidthAndWraps)
{
    EXPECT_EQ(DateTime(L"+201-07-02T13:04:05"), "6: 0201-07-02(0) 13:04:05.000");
    EXPECT_EQ(DateTime(L"+2012-07"), "1: 0201-00-00(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012--7-02"), "3: 2012-65529-02(0) 00:00:00.000");
    EXPECT_EQ(DateTime(L"2012--07-02"), "2: 2012-00-00(0) 00:00:00.000");
}

TEST(ScanDateTime, FieldsThatAreNotReachedKeepTheirValues)
{
    SYSTEMTIME time{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(ScanDateTime(L"2012-07", time), 2);
    EXPECT_EQ(CalendarText(time), "2012-07-04(3) 05:06:07.008");
}

} // namespace
