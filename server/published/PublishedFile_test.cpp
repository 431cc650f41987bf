#include "server/published/PublishedFile.h"

#include "testing/published/Generator.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using namespace testing_support;
using std::chrono::local_days;
using std::chrono::minutes;
using std::chrono::year_month_day;

constexpr year_month_day kDay = 2026y / 4 / 20; // a Monday
constexpr LocalTime kMidnight{local_days{kDay}};

class Layouts : public testing::TestWithParam<Layout> {};

INSTANTIATE_TEST_SUITE_P(All, Layouts, testing::ValuesIn(kAllLayouts),
                         [](const auto& info) { return NameOf(info.param); });

// From the first minutes of a day to those of the next, and when the next day's are long known.
constexpr minutes kMoments[] = {5min, 70min, 543min, 787min, 1065min, 1439min, 1446min, 1500min};

TEST_P(Layouts, GiveTheFiguresKnownAtEachMoment)
{
    for (const minutes moment : kMoments) {
        const LocalTime published = kMidnight + moment;
        const PublishedFile file = ParsePublishedFile(PublishedCsv(GetParam(), kDay, published), {});
        EXPECT_EQ(file.date, kDay);
        EXPECT_EQ(file.published, published);
        EXPECT_EQ(file.figures, TrueFigures(GetParam(), kDay, published)) << moment.count();
    }
}

} // namespace
} // namespace reportd
