#include "data/Scan.h"

#include "platform/Text.h"
#include "testing/CalendarText.h"

#include <gtest/gtest.h>

namespace {

using testing_support::CalendarText;

constexpr DWORD kBefore = 4711; // what a field that is not reached keeps

// A text, how many fields a scan of it must assign, and what the field must be then.
template <class Field>
struct NumberCase {
    std::wstring text = {};
    int assigned = 0;
    Field value = 0;
};

template <class Field>
void ExpectScans(int (*scan)(std::wstring_view, Field&), const std::vector<NumberCase<Field>>& cases)
{
    for (const NumberCase<Field>& one : cases) {
        Field value = kBefore;
        EXPECT_EQ(scan(one.text, value), one.assigned) << platform::EncodeUtf8(one.text);
        EXPECT_EQ(value, one.value) << platform::EncodeUtf8(one.text);
    }
}

TEST(ScanUnsigned, ReadsOneNumber)
{
    const std::vector<NumberCase<DWORD>> cases = {
        {L"0", 1, 0},
        {L"300", 1, 300},
        {L"0000300", 1, 300},
        {L"4294967295", 1, 4294967295},
        // White space before it is skipped,
        {L" \t\n\v\f\r300", 1, 300},
        // and what follows is not looked at.
        {L"300 ", 1, 300},
        {L"300abc", 1, 300},
        {L"3.9", 1, 3},
        {L"3,000", 1, 3},
        {L"0x10", 1, 0},
        {L"1e3", 1, 1},
        // A sign is accepted.
        {L"+5", 1, 5},
        {L"-1", 1, 4294967295},
        {L"-300", 1, 4294966996},
        {L"-0", 1, 0},
        // Numbers beyond the field wrap.
        {L"4294967296", 1, 0},
        {L"4294967301", 1, 5},
        {L"18446744073709551621", 1, 5},
        {std::wstring(1'000'000, L'0') + L"7", 1, 7},
    };
    ExpectScans(ScanUnsigned, cases);
}

TEST(ScanUnsigned, WhiteSpaceOfWideTextIsSkipped)
{
    // Symptom: a number after an ideographic space was read as 0.
    ExpectScans<DWORD>(ScanUnsigned, {{L"\u3000\u00A0\u2009\x85 300", 1, 300},
                                      {L"\u2028300", 1, 300},
                                      {L"\uFEFF300", 0, kBefore},
                                      {L"\u200B300", 0, kBefore}});
}

TEST(ScanUnsigned, TextThatIsNoNumberLeavesTheFieldAlone)
{
    for (const wchar_t* text : {L"", L" ", L"abc", L"-", L"+", L"--1", L"+-1", L"- 1", L".5", L"\uFF13\uFF10"}) {
        ExpectScans<DWORD>(ScanUnsigned, {{text, 0, kBefore}});
    }
}

TEST(ScanUnsigned64, ReadsOneNumber)
{
    const std::vector<NumberCase<ULONGLONG>> cases = {
        {L"0", 1, 0},
        {L"4294967296", 1, 4294967296},
        {L"18446744073709551615", 1, 18446744073709551615U},
        {L"18446744073709551616", 1, 0},
        {L"-1", 1, 18446744073709551615U},
        {L"abc", 0, kBefore},
        {L"", 0, kBefore},
    };
    ExpectScans(ScanUnsigned64, cases);
}

TEST(ScanDateTime, ReadsTheFieldsUpToTheFirstFailure)
{
    const std::pair<const wchar_t*, const char*> cases[] = {
        {L"2012-07-02T13:04:05", "6: 2012-07-02(0) 13:04:05.000"},
        // Anything after the seconds is ignored.
        {L"2012-07-02T13:04:05Z", "6: 2012-07-02(0) 13:04:05.000"},
        {L"2012-07-02T13:04:05+09:00", "6: 2012-07-02(0) 13:04:05.000"},
        {L"2012-07-02T13:04:05.999", "6: 2012-07-02(0) 13:04:05.000"},
        {L"2012-07-02T13:04:059", "6: 2012-07-02(0) 13:04:05.000"},
        // The text ends early.
        {L"", "0: 0000-00-00(0) 00:00:00.000"},
        {L"noon", "0: 0000-00-00(0) 00:00:00.000"},
        {L"2012", "1: 2012-00-00(0) 00:00:00.000"},
        {L"2012-", "1: 2012-00-00(0) 00:00:00.000"},
        {L"2012-07", "2: 2012-07-00(0) 00:00:00.000"},
        {L"2012-07-02", "3: 2012-07-02(0) 00:00:00.000"},
        {L"2012-07-02T13", "4: 2012-07-02(0) 13:00:00.000"},
        {L"2012-07-02T13:04", "5: 2012-07-02(0) 13:04:00.000"},
        {L"2012-07-02T13:04:", "5: 2012-07-02(0) 13:04:00.000"},
        {L"2012-xx-02T13:04:05", "1: 2012-00-00(0) 00:00:00.000"},
        // Literals must match exactly.
        {L"2012/07/02T13:04:05", "1: 2012-00-00(0) 00:00:00.000"},
        {L"2012-07-02 13:04:05", "3: 2012-07-02(0) 00:00:00.000"},
        {L"2012-07-02t13:04:05", "3: 2012-07-02(0) 00:00:00.000"},
        {L"2012 -07-02T13:04:05", "1: 2012-00-00(0) 00:00:00.000"},
        // Fields may be shorter than their width, but not longer.
        {L"12-7-2T3:4:5", "6: 0012-07-02(0) 03:04:05.000"},
        {L"20120-07-02T13:04:05", "1: 2012-00-00(0) 00:00:00.000"},
        {L"2012-007-02T13:04:05", "2: 2012-00-00(0) 00:00:00.000"},
        // White space before a number does not count toward its width; a sign does, and wraps.
        {L"  2012- 07-\t02T 13: 04: 05", "6: 2012-07-02(0) 13:04:05.000"},
        {L"+201-07-02T13:04:05", "6: 0201-07-02(0) 13:04:05.000"},
        {L"+2012-07", "1: 0201-00-00(0) 00:00:00.000"},
        {L"2012--7-02", "3: 2012-65529-02(0) 00:00:00.000"},
        {L"2012--07-02", "2: 2012-00-00(0) 00:00:00.000"},
    };
    for (const auto& [text, expected] : cases) {
        SYSTEMTIME time{};
        const int assigned = ScanDateTime(text, time);
        EXPECT_EQ(std::to_string(assigned) + ": " + CalendarText(time), expected) << platform::EncodeUtf8(text);
    }
}

TEST(ScanDateTime, FieldsThatAreNotReachedKeepTheirValues)
{
    SYSTEMTIME time{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(ScanDateTime(L"2012-07", time), 2);
    EXPECT_EQ(CalendarText(time), "2012-07-04(3) 05:06:07.008");
}

} // namespace
