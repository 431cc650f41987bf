#include "data/AmporaDataCollection.h"

#include "data/CalendarTime.h"
#include "testing/CalendarText.h"
#include "testing/MachineTest.h"
#include "testing/Trace.h"

#include <gmock/gmock.h>

namespace {

using platform::sim::Call;
using testing::ElementsAre;
using testing_support::CalendarText;
using testing_support::CountTrace;
using testing_support::RecordText;
using testing_support::TraceLine;
using testing_support::TraceLines;
using testing_support::TraceMessages;

constexpr SYSTEMTIME kInvalid{2012, 13, 0, 1, 0, 0, 0, 0};
constexpr SYSTEMTIME kZero{};
constexpr SYSTEMTIME kDayStart{2012, 7, 0, 2, 0, 0, 0, 0};
constexpr SYSTEMTIME kDayEnd{2012, 7, 0, 2, 23, 59, 59, 0};

class AmporaDataCollection : public testing_support::CMachineTest {
protected:
    // The values of the records, in order.
    std::vector<ULONGLONG> Values() const
    {
        std::vector<ULONGLONG> values;
        for (const _AmporaOneData& record : m_list.Records()) {
            values.push_back(record.ullValue);
        }
        return values;
    }
    // The end that a duration gives.
    std::string EndOf(const SYSTEMTIME& start, LONG durationSeconds)
    {
        EXPECT_EQ(m_list.AddAmporaData(start, durationSeconds, 1), TRUE);
        return CalendarText(m_list.Records().back().stEnd);
    }

    CAmporaDataCollection m_list;
};

TraceLine Line(const char* function, const char* message)
{
    return {"TRA", std::string("CAmporaDataCollection::") + function, message};
}

const TraceLine kRemoved = Line("AdjustData", "Out of Range. Remove Item");

TEST_F(AmporaDataCollection, ConstructionAndDestructionAreTraced)
{
    m_machine.ClearDebugLines();
    {
        const CAmporaDataCollection list;
        EXPECT_TRUE(list.Records().empty());
    }
    EXPECT_THAT(TraceLines(),
                ElementsAre(Line("CAmporaDataCollection", "Enter"), Line("CAmporaDataCollection", "Leave"),
                            Line("~CAmporaDataCollection", "Enter"), Line("~CAmporaDataCollection", "Leave")));
}

TEST_F(AmporaDataCollection, DurationGivesTheEndWithDayOfWeek)
{
    EXPECT_EQ(m_list.AddAmporaData({2012, 7, 1, 2, 13, 0, 0, 0}, 1800, 4000), TRUE);
    ASSERT_EQ(m_list.Records().size(), 1U);
    EXPECT_EQ(RecordText(m_list.Records().front()), "4000 2012-07-02(1) 13:00:00.000 to 2012-07-02(1) 13:30:00.000");
}

TEST_F(AmporaDataCollection, DurationKeepsTheStartAsItIs)
{
    m_list.AddAmporaData({2012, 7, 6, 2, 13, 0, 0, 999}, 0, 1);
    EXPECT_EQ(RecordText(m_list.Records().front()), "1 2012-07-02(6) 13:00:00.999 to 2012-07-02(1) 13:00:00.000");
}

TEST_F(AmporaDataCollection, DurationIsAddedToTheStart)
{
    EXPECT_EQ(EndOf({2012, 12, 1, 31, 23, 55, 0, 0}, 600), "2013-01-01(2) 00:05:00.000");
    EXPECT_EQ(EndOf({2012, 2, 2, 28, 23, 59, 59, 0}, 1), "2012-02-29(3) 00:00:00.000");
    EXPECT_EQ(EndOf({2012, 7, 1, 2, 0, 0, 0, 0}, -60), "2012-07-01(0) 23:59:00.000");
    // All thirty-two bits count, with their sign.
    EXPECT_EQ(EndOf({2012, 7, 1, 2, 13, 0, 0, 0}, 0x7FFFFFFF), "2080-07-20(6) 16:14:07.000");
    EXPECT_EQ(EndOf({2012, 7, 1, 2, 13, 0, 0, 0}, static_cast<LONG>(0xFFFFFFFF)), "2012-07-02(1) 12:59:59.000");
    // A negative sum gives an end that is all zero.
    EXPECT_EQ(EndOf({1601, 1, 1, 1, 0, 0, 0, 0}, -1), "0000-00-00(0) 00:00:00.000");
    EXPECT_EQ(EndOf({1970, 1, 4, 1, 9, 0, 0, 0}, -1), "0000-00-00(0) 00:00:00.000");
}

TEST_F(AmporaDataCollection, AStartBefore1900CountsAs1970InUtc)
{
    EXPECT_EQ(EndOf({1601, 1, 1, 1, 0, 0, 0, 0}, 300), "1970-01-01(4) 09:05:00.000");
    EXPECT_EQ(EndOf({1899, 12, 0, 31, 23, 59, 59, 0}, 0), "1970-01-01(4) 09:00:00.000");
    EXPECT_EQ(EndOf(kZero, 0), "1970-01-01(4) 09:00:00.000");
    EXPECT_EQ(CalendarText(m_list.Records().front().stStart), "1601-01-01(1) 00:00:00.000");
}

TEST_F(AmporaDataCollection, AFailingConversionBackGivesAnAllZeroEnd)
{
    m_machine.FailCall(Call::kTimeToLocalCalendar, 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(EndOf({2012, 7, 1, 2, 13, 0, 0, 0}, 300), "0000-00-00(0) 00:00:00.000");
}

TEST_F(AmporaDataCollection, AStartFrom1900OnThatCannotBeConvertedThrows)
{
    for (const SYSTEMTIME& start : {SYSTEMTIME{1950, 1, 0, 1, 0, 0, 0, 0}, SYSTEMTIME{1900, 1, 1, 1, 0, 0, 0, 0},
                                    SYSTEMTIME{3001, 2, 0, 1, 0, 0, 0, 0}, kInvalid}) {
        EXPECT_THROW(m_list.AddAmporaData(start, 300, 1), COleException) << CalendarText(start);
    }
    EXPECT_TRUE(m_list.Records().empty());
    EXPECT_TRUE(testing_support::TraceScopesBalance(TraceLines()));
}

TEST_F(AmporaDataCollection, IntervalKeepsBothTimesAsTheyAre)
{
    EXPECT_EQ(m_list.AddAmporaData(kInvalid, {1950, 1, 5, 1, 25, 61, 62, 1000}, 18446744073709551615U), TRUE);
    EXPECT_EQ(RecordText(m_list.Records().front()),
              "18446744073709551615 2012-13-01(0) 00:00:00.000 to 1950-01-01(5) 25:61:62.1000");
}

TEST_F(AmporaDataCollection, RecordsKeepTheOrderInWhichTheyWereAdded)
{
    m_list.AddAmporaData(kDayEnd, kDayEnd, 3);
    m_list.AddAmporaData(kDayStart, kDayStart, 1);
    m_list.AddAmporaData(kDayStart, kDayStart, 1);
    EXPECT_THAT(Values(), ElementsAre(3, 1, 1));
}

TEST_F(AmporaDataCollection, AppendsAreTraced)
{
    m_machine.ClearDebugLines();
    m_list.AddAmporaData(kDayStart, 300, 1);
    m_list.AddAmporaData(kDayStart, kDayEnd, 1);
    m_list.AddAmporaData(&m_list);
    const TraceLine enter = Line("AddAmporaData", "Enter");
    const TraceLine leave = Line("AddAmporaData", "Leave");
    EXPECT_THAT(TraceLines(), ElementsAre(enter, leave, enter, leave, enter, leave));
}

TEST_F(AmporaDataCollection, MergingAppendsTheOtherListInOrder)
{
    m_list.AddAmporaData(kDayStart, kDayEnd, 1);
    m_list.AddAmporaData(kDayStart, kDayEnd, 2);
    CAmporaDataCollection other;
    for (const ULONGLONG value : {3, 4, 5}) {
        other.AddAmporaData(kDayStart, kDayEnd, value);
    }
    EXPECT_EQ(m_list.AddAmporaData(&other), TRUE);
    EXPECT_THAT(Values(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(other.Records().size(), 3U);
}

TEST_F(AmporaDataCollection, MergingAnEmptyListAddsNothing)
{
    const CAmporaDataCollection empty;
    m_list.AddAmporaData(kDayStart, kDayEnd, 1);
    EXPECT_EQ(m_list.AddAmporaData(&empty), TRUE);
    EXPECT_THAT(Values(), ElementsAre(1));
}

TEST_F(AmporaDataCollection, MergingAListIntoItselfDoublesIt)
{
    m_list.AddAmporaData(kDayStart, kDayEnd, 1);
    m_list.AddAmporaData(kDayStart, kDayEnd, 2);
    EXPECT_EQ(m_list.AddAmporaData(&m_list), TRUE);
    EXPECT_THAT(Values(), ElementsAre(1, 2, 1, 2));
}

TEST_F(AmporaDataCollection, MergingNullIsRefused)
{
    m_machine.ClearDebugLines();
    m_list.AddAmporaData(kDayStart, kDayEnd, 1);
    EXPECT_EQ(m_list.AddAmporaData(nullptr), FALSE);
    EXPECT_THAT(Values(), ElementsAre(1));
    EXPECT_THAT(TraceMessages(),
                ElementsAre(TraceLine{"ERR", "CAmporaDataCollection::AddAmporaData", "Invalid Parameter"}));
}

TEST_F(AmporaDataCollection, AdjustingAnEmptyListOnlyTracesItsScope)
{
    m_machine.ClearDebugLines();
    m_list.AdjustData(kDayStart, kDayEnd);
    EXPECT_THAT(TraceLines(), ElementsAre(Line("AdjustData", "Enter"), Line("AdjustData", "Leave")));
}

// Records, numbered from 1, and which of them are left when the list is adjusted to a period.
struct Adjustment {
    const char* name = "";
    std::vector<std::pair<SYSTEMTIME, SYSTEMTIME>> records = {};
    std::vector<ULONGLONG> left = {};
    SYSTEMTIME lower = kDayStart;
    SYSTEMTIME upper = kDayEnd;
};

std::ostream& operator<<(std::ostream& stream, const Adjustment& test) { return stream << test.name; }

constexpr SYSTEMTIME kNoon{2012, 7, 0, 2, 12, 0, 0, 0};
constexpr SYSTEMTIME kAfterNoon{2012, 7, 0, 2, 12, 5, 0, 0};
constexpr SYSTEMTIME kNextDay{2012, 7, 0, 3, 0, 0, 0, 0};
constexpr SYSTEMTIME kIntoNextDay{2012, 7, 0, 3, 0, 5, 0, 0};
constexpr SYSTEMTIME kDayBefore{2012, 7, 0, 1, 0, 0, 0, 0};
constexpr SYSTEMTIME kEarliest{1601, 1, 1, 1, 0, 0, 0, 0};

const Adjustment kAdjustments[] = {
    {"KeepsRecordsThatTouchThePeriod",
     {{{2012, 7, 0, 1, 23, 55, 0, 0}, kDayStart}, // ends exactly at the first moment
      {kNoon, kAfterNoon},
      {kDayEnd, kIntoNextDay},                    // begins exactly at the last moment
      {kDayBefore, {2012, 7, 0, 5, 0, 0, 0, 0}}}, // around the period
     {1, 2, 3, 4}},
    {"RemovesRecordsThatLieWhollyOutside",
     {{{2012, 7, 0, 1, 23, 0, 0, 0}, {2012, 7, 0, 1, 23, 59, 59, 999}}, // a millisecond too early
      {kDayStart, kDayEnd},
      {kNextDay, kIntoNextDay},                        // begins one second after the end
      {{2012, 7, 0, 2, 23, 59, 59, 1}, kIntoNextDay}}, // a millisecond too late
     {2}},
    {"DoesNotLookAtDaysOfWeek",
     {{{2012, 7, 6, 2, 0, 0, 0, 0}, {2012, 7, 99, 2, 0, 5, 0, 0}}},
     {1},
     {2012, 7, 3, 2, 0, 0, 0, 0},
     {2012, 7, 5, 2, 23, 59, 59, 0}},
    {"RemovesAnAllZeroEnd", {{kDayStart, kZero}}, {}},
    {"HasAnInvalidLowerBoundBelowEverything", {{kEarliest, kEarliest}, {kDayStart, kZero}}, {1, 2}, kInvalid},
    {"HasAnInvalidUpperBoundBelowEveryStart",
     {{kDayStart, kDayEnd}, {kEarliest, kDayEnd}}, // the second starts exactly there
     {2},
     kDayStart,
     kInvalid},
    {"TakesTheEndForAnInvalidStart",
     {{kInvalid, kNoon}, {kInvalid, kNextDay}}, // they end inside, and after the period
     {1}},
    {"RemovesWhatAReversedPeriodDoesNotCross",
     {{kNoon, kAfterNoon}, {kDayBefore, {2012, 7, 0, 4, 0, 0, 0, 0}}},
     {2},
     kDayEnd,
     kDayStart},
};

class AmporaDataCollectionAdjusting : public AmporaDataCollection, public testing::WithParamInterface<Adjustment> {};

INSTANTIATE_TEST_SUITE_P(It, AmporaDataCollectionAdjusting, testing::ValuesIn(kAdjustments),
                         [](const auto& test) { return test.param.name; });

TEST_P(AmporaDataCollectionAdjusting, LeavesTheRecordsOfThePeriod)
{
    for (const auto& [start, end] : GetParam().records) {
        m_list.AddAmporaData(start, end, m_list.Records().size() + 1);
    }
    m_machine.ClearDebugLines();
    m_list.AdjustData(GetParam().lower, GetParam().upper);
    EXPECT_EQ(Values(), GetParam().left);
    const std::size_t removed = GetParam().records.size() - GetParam().left.size();
    EXPECT_EQ(TraceMessages(), std::vector(removed, kRemoved));
    EXPECT_EQ(TraceLines().front(), Line("AdjustData", "Enter"));
    EXPECT_EQ(TraceLines().back(), Line("AdjustData", "Leave"));
}

TEST_F(AmporaDataCollection, AdjustingMayRemoveEverything)
{
    for (ULONGLONG value = 0; value < 25; ++value) {
        m_list.AddAmporaData({2012, 7, 0, 5, 0, 0, 0, 0}, {2012, 7, 0, 5, 0, 5, 0, 0}, value);
    }
    m_list.AdjustData(kDayStart, kDayEnd);
    EXPECT_EQ(m_list.Records().size(), 0U);
    EXPECT_EQ(CountTrace(kRemoved.level, kRemoved.function, kRemoved.message), 25);

    m_list.AddAmporaData(kDayStart, kDayEnd, 7); // and the list can be used again
    EXPECT_THAT(Values(), ElementsAre(7));
}

TEST_F(AmporaDataCollection, AdjustingWalksFromTheTailToTheHead)
{
    for (const ULONGLONG value : {1, 2, 3}) {
        m_list.AddAmporaData(kDayStart, kDayEnd, value);
    }
    // After both bounds, the end of the record that is looked at first fails to convert: it goes.
    m_machine.FailCall(Call::kCalendarToFileTime, 3, ERROR_INVALID_PARAMETER);
    m_list.AdjustData(kDayStart, kDayEnd);
    EXPECT_THAT(Values(), ElementsAre(1, 2));
}

} // namespace
