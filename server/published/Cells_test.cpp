#include "server/published/Cells.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace std::chrono_literals;

TEST(Cells, WholeNumbersHaveDigitsOnly)
{
    EXPECT_EQ(WholeNumber("0"), 0);
    EXPECT_EQ(WholeNumber("3602"), 3602);
    EXPECT_EQ(WholeNumber("0012"), 12);
    EXPECT_EQ(WholeNumber("-5"), -5);
    EXPECT_EQ(WholeNumber("999999999999"), 999999999999);
    for (const char* cell :
         {"", "-", "+5", "3,602", "3602.0", "36 02", "0x10", "1e3", "--5", "5-", "*", "9999999999999"}) {
        EXPECT_FALSE(WholeNumber(cell)) << cell;
    }
}

TEST(Cells, DatesAreDaysOfTheCalendar)
{
    EXPECT_EQ(DateOf("2026/4/20"), 2026y / 4 / 20);
    EXPECT_EQ(DateOf("2026/04/05"), 2026y / 4 / 5);
    EXPECT_EQ(DateOf("2028/2/29"), 2028y / 2 / 29);
    for (const char* cell : {"", "2026", "2026/4", "2026/2/29", "2026/4/31", "2026/13/1", "2026/0/1", "2026/1/0",
                             "26/4/20", "2026/4/20/1", "2026-4-20", "2026/004/20", "2026/4/", "4/20", "4月20日"}) {
        EXPECT_FALSE(DateOf(cell)) << cell;
    }
}

TEST(Cells, TimesAreMinutesOfADay)
{
    EXPECT_EQ(TimeOf("0:00"), 0min);
    EXPECT_EQ(TimeOf("09:05"), 545min);
    EXPECT_EQ(TimeOf("23:59"), 1439min);
    for (const char* cell : {"", "9", "9:5", "24:00", "23:60", "9:00:00", ":00", "9:", "-1:00", "9:005", "9.00"}) {
        EXPECT_FALSE(TimeOf(cell)) << cell;
    }
}

TEST(Cells, SlotsAreHoursOfADay)
{
    EXPECT_EQ(SlotOf("0:00~1:00"), 0h);
    EXPECT_EQ(SlotOf("09:00~10:00"), 9h);
    EXPECT_EQ(SlotOf("23:00~24:00"), 23h);
    EXPECT_EQ(SlotOf("23:00~0:00"), 23h);
    for (const char* cell :
         {"", "13:00", "13:00~", "~14:00", "13:00~13:00", "13:00~15:00", "13:30~14:30", "13:30~14:00", "13:00~14:30",
          "13:00-14:00", "14:00~13:00", "24:00~25:00", "22:00~24:00", "13:00~14:00~15:00"}) {
        EXPECT_FALSE(SlotOf(cell)) << cell;
    }
}

} // namespace
} // namespace reportd
