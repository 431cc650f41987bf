#include "testing/store/StoreTest.h"

#include <limits>

namespace reportd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A store with one company's day.
class FigureStore : public StoreTest {
protected:
    // One figure of a file.
    std::size_t Append(Series series, LocalTime start, std::uint64_t value, LocalTime published, LocalTime observed)
    {
        return m_store->Append(kSite, kDate, {MakeFigure(series, start, value)}, published, observed);
    }

    std::size_t AppendHour(int hour, std::uint64_t value, LocalTime published, LocalTime observed)
    {
        return Append(Series::kEstimatedUsage, At(hour, 0), value, published, observed);
    }

    std::vector<std::uint64_t> Values(Series series, std::optional<LocalTime> asOf = {})
    {
        return ValuesOf(m_store->Read(kSite, series, kDate, asOf));
    }

    std::vector<std::uint64_t> Estimates(std::optional<LocalTime> asOf = {})
    {
        return Values(Series::kEstimatedUsage, asOf);
    }

    std::uint64_t Revision(std::chrono::year_month_day date = kDate) { return m_store->State(kSite, date).revision; }

    std::unique_ptr<CFigureStore> m_store = OpenStore();
};

TEST_F(FigureStore, KeepsEveryFigureOfEverySeries)
{
    std::map<Series, std::vector<ReportRecord>> records;
    std::vector<Figure> figures;
    for (const SeriesInfo& info : kAllSeries) {
        for (LocalTime start = kDay + hours(info.isPeak ? 17 : 0); start < kDay + days(1); start += info.length) {
            figures.push_back(MakeFigure(info.series, start, figures.size()));
            records[info.series].push_back(figures.back().record);
            if (info.isPeak) {
                break;
            }
        }
    }
    ASSERT_EQ(figures.size(), 3 * 288 + 3 * 24 + 2);
    EXPECT_EQ(m_store->Append(kSite, kDate, figures, At(23, 55), At(23, 57)), figures.size());
    m_store = OpenStore();
    for (const SeriesInfo& info : kAllSeries) {
        EXPECT_EQ(m_store->Read(kSite, info.series, kDate, {}), records[info.series]) << info.key;
        EXPECT_THAT(m_store->Read(kSite, info.series, kNextDate, {}), IsEmpty());
        EXPECT_THAT(m_store->Read(kSite + 1, info.series, kDate, {}), IsEmpty());
    }
}

TEST_F(FigureStore, KeepsAFigureOnlyWhenItDiffersFromTheLatest)
{
    EXPECT_EQ(AppendHour(13, 30000, At(9, 0), At(9, 2)), 1U);
    EXPECT_EQ(AppendHour(13, 30000, At(9, 5), At(9, 7)), 0U);
    EXPECT_EQ(AppendHour(13, 31000, At(9, 10), At(9, 12)), 1U);
    EXPECT_EQ(AppendHour(13, 30000, At(9, 15), At(9, 17)), 1U);
    EXPECT_THAT(Estimates(At(9, 12)), ElementsAre(31000));
    EXPECT_THAT(Estimates(), ElementsAre(30000));
}

TEST_F(FigureStore, KeepsZeroApartFromNothing)
{
    EXPECT_EQ(Append(Series::kSolar, At(3, 0), 0, At(3, 0), At(3, 2)), 1U);
    EXPECT_THAT(Values(Series::kSolar), ElementsAre(0));
    EXPECT_THAT(Values(Series::kInstantUsage), IsEmpty());
}

TEST_F(FigureStore, TellsWhatWasKnownAtAMoment)
{
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    AppendHour(14, 32000, At(9, 0), At(9, 2));
    AppendHour(13, 31000, At(12, 58), At(13, 0));
    EXPECT_THAT(Estimates(At(9, 1, 59)), IsEmpty());
    EXPECT_THAT(Estimates(At(9, 2)), ElementsAre(30000, 32000));
    EXPECT_THAT(Estimates(At(12, 59, 59)), ElementsAre(30000, 32000));
    EXPECT_THAT(Estimates(At(13, 0)), ElementsAre(31000, 32000));
}

TEST_F(FigureStore, LetsAnOlderPublicationFillGapsOnly)
{
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    EXPECT_EQ(m_store->Append(kSite, kDate,
                              {MakeFigure(Series::kEstimatedUsage, At(13, 0), 29000),
                               MakeFigure(Series::kEstimatedUsage, At(14, 0), 28000)},
                              At(8, 0), At(18, 0)),
              1U);
    EXPECT_THAT(Estimates(), ElementsAre(30000, 28000));
    EXPECT_EQ(m_store->State(kSite, kDate).published, At(9, 0));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(9, 2));
}

// Symptom: a value that the newest file had confirmed, and that therefore kept its old stamp, was replaced by one of a
// file between the two.
TEST_F(FigureStore, DoesNotLetAnOlderPublicationReplaceAConfirmedValue)
{
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    AppendHour(13, 30000, At(10, 0), At(10, 2));
    EXPECT_EQ(AppendHour(13, 29000, At(9, 30), At(18, 0)), 0U);
    EXPECT_THAT(Estimates(), ElementsAre(30000));
}

TEST_F(FigureStore, LetsAPublicationReplaceWhatAnOlderOneHasFilledIn)
{
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    AppendHour(14, 28000, At(8, 0), At(18, 0));
    EXPECT_EQ(AppendHour(14, 28500, At(9, 0), At(18, 5)), 1U);
    EXPECT_THAT(Estimates(), ElementsAre(30000, 28500));
}

TEST_F(FigureStore, TakesTheLaterWordOfOneStamp)
{
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    EXPECT_EQ(AppendHour(13, 31000, At(9, 0), At(9, 7)), 1U);
    EXPECT_THAT(Estimates(At(9, 6)), ElementsAre(30000));
    EXPECT_THAT(Estimates(), ElementsAre(31000));
}

TEST_F(FigureStore, TakesTheLaterWordOfOneStampWhenTheClockHasJumpedBack)
{
    AppendHour(13, 30000, At(9, 0), At(9, 7));
    EXPECT_EQ(AppendHour(13, 31000, At(9, 0), At(9, 2)), 1U);
    EXPECT_EQ(AppendHour(13, 31000, At(9, 0), At(9, 3)), 0U);
    EXPECT_THAT(Estimates(), ElementsAre(31000));
}

TEST_F(FigureStore, LosesNoFigureWhenTheClockJumpsBack)
{
    AppendHour(13, 30000, At(9, 0), At(21, 0)); // the clock was twelve hours ahead
    EXPECT_EQ(AppendHour(13, 31000, At(9, 5), At(9, 7)), 1U);
    EXPECT_EQ(AppendHour(14, 32000, At(9, 10), At(9, 12)), 1U);
    EXPECT_THAT(Estimates(), ElementsAre(31000, 32000));
    EXPECT_THAT(Estimates(At(9, 12)), ElementsAre(31000, 32000));
    EXPECT_THAT(Estimates(At(21, 0)), ElementsAre(31000, 32000));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(9, 12));
}

TEST_F(FigureStore, KeepsTwoPublicationsOfOneSecondApart)
{
    // The same interval and second: a newer file, then an older one with a value that the newer one lacks.
    Append(Series::kInstantUsage, At(9, 0), 100, At(9, 5), At(12, 0));
    Append(Series::kInstantUsage, At(9, 0), 200, At(9, 10), At(18, 0));
    Append(Series::kSolar, At(9, 0), 7, At(9, 0), At(18, 0));
    Append(Series::kSolar, At(9, 0), 8, At(9, 10), At(18, 0));
    EXPECT_THAT(Values(Series::kInstantUsage), ElementsAre(200));
    EXPECT_THAT(Values(Series::kInstantUsage, At(17, 0)), ElementsAre(100));
    EXPECT_THAT(Values(Series::kSolar), ElementsAre(8));
}

TEST_F(FigureStore, CountsTheLastOfTwoFiguresForOneInterval)
{
    const Figure first = MakeFigure(Series::kActualUsage, At(9, 0), 100);
    const Figure second = MakeFigure(Series::kActualUsage, At(9, 0), 200);
    EXPECT_EQ(m_store->Append(kSite, kDate, {first, second}, At(10, 5), At(10, 7)), 1U);
    EXPECT_THAT(Values(Series::kActualUsage), ElementsAre(200));
}

TEST_F(FigureStore, MovesAPeakToItsNewHour)
{
    Append(Series::kPeakDemand, At(17, 0), 40000, At(9, 0), At(9, 2));
    EXPECT_EQ(Append(Series::kPeakDemand, At(18, 0), 40000, At(9, 30), At(9, 32)), 1U);
    EXPECT_EQ(Append(Series::kPeakDemand, At(18, 0), 40000, At(9, 35), At(9, 37)), 0U);
    Append(Series::kPeakSupply, At(17, 30), 45000, At(9, 35), At(9, 37));
    EXPECT_THAT(m_store->Read(kSite, Series::kPeakDemand, kDate, {}),
                ElementsAre(ReportRecord{At(18, 0), At(19, 0), 40000}));
    EXPECT_THAT(m_store->Read(kSite, Series::kPeakDemand, kDate, At(9, 31)),
                ElementsAre(ReportRecord{At(17, 0), At(18, 0), 40000}));
    EXPECT_THAT(m_store->Read(kSite, Series::kPeakSupply, kDate, {}),
                ElementsAre(ReportRecord{At(17, 30), At(18, 30), 45000}));
}

TEST_F(FigureStore, RefusesAFigureAtNoIntervalAndKeepsNothingOfItsFile)
{
    const Figure good = MakeFigure(Series::kInstantUsage, At(9, 0), 100);
    Figure tooLong = MakeFigure(Series::kInstantUsage, At(9, 5), 100);
    tooLong.record.end += minutes(5);
    for (const Figure& bad :
         {MakeFigure(Series::kInstantUsage, At(9, 1), 100), MakeFigure(Series::kActualUsage, At(9, 30), 100),
          MakeFigure(Series::kPeakDemand, At(9, 0, 1), 100), tooLong,
          MakeFigure(Series::kActualUsage, At(9, 0), std::uint64_t{1} << 63U)}) {
        EXPECT_THROW(m_store->Append(kSite, kDate, {good, bad}, At(9, 5), At(9, 7)), std::invalid_argument);
    }
    EXPECT_THAT(Values(Series::kInstantUsage), IsEmpty());
    EXPECT_EQ(m_store->State(kSite, kDate).published, std::nullopt);
    constexpr auto kGreatest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    Append(Series::kInstantUsage, At(9, 0), kGreatest, At(9, 5), At(9, 7));
    EXPECT_THAT(Values(Series::kInstantUsage), ElementsAre(kGreatest));
}

TEST_F(FigureStore, ChangesTheRevisionWithTheFiguresOfTheDayAlone)
{
    EXPECT_EQ(Revision(), 0U);
    m_store->Append(kSite, kDate, {}, At(0, 5), At(0, 7));
    EXPECT_EQ(Revision(), 0U);
    EXPECT_EQ(m_store->State(kSite, kDate).published, At(0, 5));
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    const std::uint64_t first = Revision();
    EXPECT_NE(first, 0U);
    AppendHour(13, 30000, At(9, 5), At(9, 7));
    m_store->NoteCurrent(kSite, kDate, At(9, 12));
    m_store->Append(kSite, kNextDate, {MakeFigure(Series::kSolar, At(24, 0), 1)}, At(25, 0), At(25, 2));
    m_store->Append(kSite + 2, kDate, {MakeFigure(Series::kSolar, At(9, 0), 1)}, At(9, 5), At(9, 7));
    EXPECT_EQ(Revision(), first);
    AppendHour(13, 31000, At(9, 15), At(9, 17));
    EXPECT_NE(Revision(), first);
}

TEST_F(FigureStore, TellsWhenTheNewestFileWasPublishedAndLastSeen)
{
    EXPECT_EQ(m_store->State(kSite, kDate).observed, std::nullopt);
    m_store->NoteCurrent(kSite, kDate, At(8, 0));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, std::nullopt);
    AppendHour(13, 30000, At(9, 0), At(9, 2));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(9, 2));
    m_store->NoteCurrent(kSite, kDate, At(9, 7));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(9, 7));
    AppendHour(13, 30000, At(9, 5), At(9, 12));
    EXPECT_EQ(m_store->State(kSite, kDate).published, At(9, 5));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(9, 12));
}

TEST_F(FigureStore, NotesTomorrowsPeaksAsLongAsTodaysFileIsCurrent)
{
    AppendHour(13, 30000, At(17, 0), At(17, 2));
    Append(Series::kPeakDemand, At(24 + 9, 0), 40000, At(17, 30), At(17, 32));
    EXPECT_EQ(m_store->State(kSite, kNextDate).published, At(17, 30));
    EXPECT_EQ(m_store->State(kSite, kDate).published, At(17, 30));
    m_store->NoteCurrent(kSite, kDate, At(17, 37));
    EXPECT_EQ(m_store->State(kSite, kNextDate).observed, At(17, 37));
    // The day has begun: what yesterday's file is does not matter any more.
    m_store->Append(kSite, kNextDate, {}, At(24, 30), At(24, 32));
    m_store->NoteCurrent(kSite, kDate, At(25, 0));
    EXPECT_EQ(m_store->State(kSite, kNextDate).observed, At(24, 32));
    EXPECT_EQ(m_store->State(kSite, kDate).observed, At(25, 0));
}

TEST_F(FigureStore, LeavesTheLastWordOnADayToTheFileOfThatDay)
{
    m_store->Append(kSite, kNextDate, {MakeFigure(Series::kPeakDemand, At(24 + 9, 0), 41000)}, At(24, 30), At(24, 32));
    // The closed day's file is published once more, with the peak that was expected the evening before.
    EXPECT_EQ(Append(Series::kPeakDemand, At(24 + 9, 0), 40000, At(25, 10), At(25, 12)), 0U);
    EXPECT_EQ(Append(Series::kPeakSupply, At(24 + 9, 0), 45000, At(25, 10), At(25, 12)), 1U);
    EXPECT_THAT(ValuesOf(m_store->Read(kSite, Series::kPeakDemand, kNextDate, {})), ElementsAre(41000));
    EXPECT_THAT(ValuesOf(m_store->Read(kSite, Series::kPeakSupply, kNextDate, {})), ElementsAre(45000));
    EXPECT_EQ(m_store->State(kSite, kNextDate).published, At(24, 30));
}

TEST_F(FigureStore, FindsTheNewestInterval)
{
    EXPECT_EQ(m_store->Newest(kSite, Series::kInstantUsage), std::nullopt);
    m_store->Append(kSite, kDate,
                    {MakeFigure(Series::kInstantUsage, At(9, 5), 1), MakeFigure(Series::kInstantUsage, At(9, 0), 1),
                     MakeFigure(Series::kPeakDemand, At(24 + 18, 0), 1)},
                    At(9, 5), At(9, 7));
    EXPECT_EQ(m_store->Newest(kSite, Series::kInstantUsage), At(9, 5));
    EXPECT_EQ(m_store->Newest(kSite, Series::kPeakDemand), At(24 + 18, 0));
    EXPECT_EQ(m_store->Newest(kSite, Series::kWind), std::nullopt);
    EXPECT_EQ(m_store->Newest(kSite + 2, Series::kInstantUsage), std::nullopt);
    Append(Series::kPeakDemand, At(24 + 9, 0), 1, At(9, 10), At(9, 12));
    EXPECT_EQ(m_store->Newest(kSite, Series::kPeakDemand), At(24 + 9, 0));
}

TEST_F(FigureStore, RemembersThePollersState)
{
    EXPECT_EQ(m_store->LoadPollState(kSite), PollState{});
    PollState state{.nextPoll = At(9, 5),
                    .lastAttempt = At(9, 0),
                    .lastSuccess = At(8, 0),
                    .published = At(7, 0),
                    .failures = 3,
                    .etag = std::string("\"\0\xFF\"", 4),
                    .lastModified = "Mon, 20 Apr 2026 00:00:00 GMT",
                    .url = "http://127.0.0.1/a",
                    .layout = "a,b",
                    .lastFailure = "html"};
    m_store->SavePollState(kSite, state);
    m_store->SavePollState(kSite + 2, {.failures = 9});
    m_store = OpenStore();
    EXPECT_EQ(m_store->LoadPollState(kSite), state);
    state = {.failures = std::numeric_limits<unsigned>::max(), .url = "http://127.0.0.1/b"};
    m_store->SavePollState(kSite, state);
    EXPECT_EQ(m_store->LoadPollState(kSite), state);
}

// A store with figures of all tables on each of the days around kDate.
class TrimmedStore : public FigureStore {
protected:
    static constexpr int kDays = 21;

    void SetUp() override
    {
        for (int number = 0; number < kDays; ++number) {
            const LocalTime start = kDay + days(number - 10);
            for (const int site : {kSite, kSite + 2}) {
                m_store->Append(site, std::chrono::year_month_day(std::chrono::floor<days>(start)),
                                {MakeFigure(Series::kSolar, start, 1), MakeFigure(Series::kSupply, start, 2),
                                 MakeFigure(Series::kPeakSupply, start, 3)},
                                start + hours(1), start + hours(2));
            }
        }
    }

    // The days that have a value of each of the three series.
    int DaysOf(int site)
    {
        int count = 0;
        for (int number = 0; number < kDays; ++number) {
            const std::chrono::year_month_day date{kDay + days(number - 10)};
            const std::size_t records = m_store->Read(site, Series::kSolar, date, {}).size() +
                                        m_store->Read(site, Series::kSupply, date, {}).size() +
                                        m_store->Read(site, Series::kPeakSupply, date, {}).size();
            EXPECT_THAT(records, testing::AnyOf(0, 3));
            count += records == 3 ? 1 : 0;
        }
        return count;
    }
};

TEST_F(TrimmedStore, HasTheKeptDaysOnly)
{
    m_store->SavePollState(kSite, {.failures = 1});
    m_store->Trim(kDate);
    EXPECT_EQ(DaysOf(kSite), 11);
    EXPECT_EQ(DaysOf(kSite + 2), 11);
    EXPECT_EQ(Revision(std::chrono::year_month_day(kDay - days(1))), 0U);
    EXPECT_NE(Revision(), 0U);
    EXPECT_EQ(m_store->LoadPollState(kSite).failures, 1U);
    m_store->Trim(kDate);
    EXPECT_EQ(DaysOf(kSite), 11);
    m_store->Trim(std::chrono::year_month_day(kDay + days(11)));
    EXPECT_EQ(DaysOf(kSite), 0);
    EXPECT_EQ(m_store->Newest(kSite, Series::kSolar), std::nullopt);
}

TEST_F(TrimmedStore, GivesADayThatIsStoredAgainAnotherRevision)
{
    const std::uint64_t before = Revision();
    m_store->Trim(kNextDate);
    Append(Series::kSolar, At(0, 0), 1, At(1, 0), At(2, 0));
    EXPECT_NE(Revision(), before);
}

} // namespace
} // namespace reportd
