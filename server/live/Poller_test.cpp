#include "server/live/Poller.h"

#include "testing/published/PollRig.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace reportd {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing_support::CPollRig;
using testing_support::CsvOptions;
using testing_support::Damage;
using testing_support::Difference;
using testing_support::FieldOf;
using testing_support::FigureTable;
using testing_support::HttpExchange;
using testing_support::kPolledDay;
using testing_support::Layout;
using testing_support::PolledAt;
using testing_support::Publication;
using testing_support::TableOf;
using testing_support::TrueFigures;
using testing_support::WireFault;

const year_month_day kTomorrow{local_days{kPolledDay} + days{1}};
const year_month_day kYesterday{local_days{kPolledDay} - days{1}};

// The figures of one day among those that a publication says.
FigureTable Published(Layout layout, const Publication& publication, year_month_day date)
{
    FigureTable table = TableOf(TrueFigures(layout, publication.date, publication.published, publication.revision));
    std::erase_if(
        table, [date](const auto& entry) { return std::chrono::floor<days>(entry.first.second) != local_days{date}; });
    return table;
}

// One company, polled since 11:58.
class OneCompany : public testing::Test {
protected:
    explicit OneCompany(Layout layout = Layout::kTokyoD1, LocalTime begin = PolledAt(11, 58))
        : m_layout(layout), m_site(testing_support::SiteNumberOf(layout)), m_rig(begin, {layout})
    {
    }

    // What the company said of a day when it was polled last.
    FigureTable Said(year_month_day date = kPolledDay)
    {
        return Published(m_layout, m_rig.Server().At(m_site, date, m_rig.LastPoll()).value(), date);
    }
    FigureTable Kept(year_month_day date = kPolledDay) { return m_rig.Figures(m_site, date); }

    std::string PathOfLast() const { return m_rig.Server().ExchangesOf(m_site).back().target; }

    // One good poll, then a bad one, which is to leave the figures alone and be counted under this key; then, with
    // nothing wrong any more, a good one again.
    void ExpectFailure(const std::string& key, const std::function<void()>& spoil)
    {
        m_rig.RunOnePoll();
        const FigureTable before = Kept();
        ASSERT_EQ(Difference(before, Said()), "");
        spoil();
        m_rig.RunOnePoll();
        EXPECT_EQ(Difference(Kept(), before), "");
        EXPECT_EQ(m_rig.Statistics().Of(m_site).failures, (std::map<std::string, std::uint64_t>{{key, 1}}));
        EXPECT_THAT(m_rig.Log(), ElementsAre(AllOf(HasSubstr(": poll failed (" + key + "): "), Not(HasSubstr("\n")))));
        m_rig.Server().SetFault(m_site, WireFault::kNone);
        m_rig.Server().SetDamage(m_site, {});
        m_rig.RunOnePoll();
        EXPECT_EQ(Difference(Kept(), Said()), "");
        EXPECT_NE(Difference(Kept(), before), "");
        EXPECT_THAT(m_rig.Log(), ElementsAre(HasSubstr(key), HasSubstr(": works again after 1 failed poll")));
    }
    void ExpectFault(WireFault fault, const std::string& key)
    {
        ExpectFailure(key, [&] { m_rig.Server().SetFault(m_site, fault); });
    }
    void ExpectDamage(const CsvOptions& options, const std::string& key)
    {
        ExpectFailure(key, [&] { m_rig.Server().SetDamage(m_site, options); });
    }
    // The same for a file that is understood in spite of its change.
    void ExpectUnderstood(Damage damage)
    {
        m_rig.RunOnePoll();
        m_rig.Server().SetDamage(m_site, {.damage = damage});
        m_rig.RunOnePoll();
        EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
        EXPECT_EQ(Difference(Kept(), Said()), "");
    }

    const Layout m_layout;
    const int m_site;
    CPollRig m_rig;
};

// --- Bad answers -----------------------------------------------------------------------------------------------------

using PollerBadAnswer = OneCompany;

TEST_F(PollerBadAnswer, Down) { ExpectFault(WireFault::kDown, "broken"); }
TEST_F(PollerBadAnswer, Silent) { ExpectFault(WireFault::kStalled, "timeout"); }
TEST_F(PollerBadAnswer, SilentInTheMiddle) { ExpectFault(WireFault::kStalledBody, "timeout"); }
TEST_F(PollerBadAnswer, Slow) { ExpectFault(WireFault::kSlow, "timeout"); }
TEST_F(PollerBadAnswer, ShorterThanSaid) { ExpectFault(WireFault::kShort, "broken"); }
TEST_F(PollerBadAnswer, Reset) { ExpectFault(WireFault::kReset, "broken"); }
TEST_F(PollerBadAnswer, NotHttp) { ExpectFault(WireFault::kNotHttp, "broken"); }
TEST_F(PollerBadAnswer, Forbidden) { ExpectFault(WireFault::kForbidden, "http_forbidden"); }
TEST_F(PollerBadAnswer, MissingByDay) { ExpectFault(WireFault::kMissing, "http_not_found"); }
TEST_F(PollerBadAnswer, ServerError) { ExpectFault(WireFault::kServerError, "http_server"); }
TEST_F(PollerBadAnswer, RedirectToItself) { ExpectFault(WireFault::kRedirectLoop, "redirect"); }
TEST_F(PollerBadAnswer, RedirectToAnotherProtocol) { ExpectFault(WireFault::kRedirectElsewhere, "redirect"); }
TEST_F(PollerBadAnswer, Endless) { ExpectFault(WireFault::kEndless, "too_big"); }
TEST_F(PollerBadAnswer, GzipBomb) { ExpectFault(WireFault::kGzipBomb, "too_big"); }
TEST_F(PollerBadAnswer, BadGzip) { ExpectFault(WireFault::kBadGzip, "broken"); }

TEST_F(PollerBadAnswer, NotModifiedToAnUnconditionalRequest)
{
    m_rig.Server().SetValidators(false);
    ExpectFault(WireFault::kUnchanged, "http_other");
}

TEST_F(PollerBadAnswer, TooManyRequestsIsObeyed)
{
    ExpectFault(WireFault::kTooMany, "http_too_many");
    const std::vector<LocalTime> polls = m_rig.Polls().at(m_site);
    ASSERT_THAT(polls, SizeIs(3));
    EXPECT_GE(polls[2] - polls[1], seconds(1200));
    EXPECT_LT(polls[2] - polls[1], seconds(1200) + minutes(5));
}

TEST_F(PollerBadAnswer, NobodyListens)
{
    m_rig.RunOnePoll();
    const FigureTable before = Kept();
    const testing_support::CClosedPort port;
    m_rig.Settings().companies.at(m_site).todayUrl = "http://127.0.0.1:" + std::to_string(port.Port()) + "/%Y%m%d";
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Failures(m_site, "connect"), 1U);
    EXPECT_EQ(Difference(Kept(), before), "");
}

// --- Bad files -------------------------------------------------------------------------------------------------------

using PollerBadFile = OneCompany;

TEST_F(PollerBadFile, Html) { ExpectDamage({.damage = Damage::kHtml}, "html"); }
TEST_F(PollerBadFile, Empty) { ExpectDamage({.damage = Damage::kEmpty}, "empty"); }
TEST_F(PollerBadFile, Truncated) { ExpectDamage({.damage = Damage::kTruncated, .cutAt = 5000}, "truncated"); }
TEST_F(PollerBadFile, OfAnotherDay) { ExpectDamage({.damage = Damage::kOtherDay}, "other_day"); }
TEST_F(PollerBadFile, Frozen) { ExpectDamage({.damage = Damage::kFrozen}, "frozen"); }
TEST_F(PollerBadFile, StampInTheFuture) { ExpectDamage({.damage = Damage::kFutureStamp}, "future_stamp"); }
TEST_F(PollerBadFile, Negative) { ExpectDamage({.damage = Damage::kNegative}, "implausible_value"); }
TEST_F(PollerBadFile, Absurd) { ExpectDamage({.damage = Damage::kAbsurd}, "implausible_value"); }
TEST_F(PollerBadFile, NotANumber) { ExpectDamage({.damage = Damage::kNotANumber}, "implausible_value"); }
TEST_F(PollerBadFile, MalformedTime) { ExpectDamage({.damage = Damage::kMalformedTime}, "malformed_time"); }
TEST_F(PollerBadFile, UnknownLayout) { ExpectDamage({.damage = Damage::kUnknownLayout}, "unknown_layout"); }
TEST_F(PollerBadFile, Utf8IsUnderstood) { ExpectUnderstood(Damage::kUtf8); }

TEST_F(PollerBadFile, SwappedColumnsAreUnderstoodAndCountAsALayoutChange)
{
    ExpectUnderstood(Damage::kSwappedColumns);
    EXPECT_EQ(m_rig.Statistics().Of(m_site).layoutChanges, 1U);
    EXPECT_THAT(m_rig.Log(), ElementsAre("tokyo: the file has another layout"));
}

TEST_F(PollerBadFile, ANewColumnIsUnderstoodAndNamedOnce)
{
    ExpectUnderstood(Damage::kNewColumn);
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Statistics().Of(m_site).layoutChanges, 1U);
    EXPECT_THAT(m_rig.Log(), ElementsAre(AllOf(StartsWith("tokyo: the file has another layout; headings that mean "
                                                          "nothing to us: "),
                                               HasSubstr("蓄電池"))));
    EXPECT_THAT(m_rig.RawNames(), ElementsAre("day-20261122.csv.gz", "layout-20261122-115800.csv.gz",
                                              MatchesRegex("layout-20261122-12[0-9]{4}.csv.gz")));
}

TEST_F(PollerBadFile, NothingThatASourceSendsGetsIntoAFileName)
{
    for (const Damage damage : {Damage::kHtml, Damage::kEmpty, Damage::kOtherDay, Damage::kFutureStamp,
                                Damage::kNegative, Damage::kMalformedTime, Damage::kUnknownLayout}) {
        m_rig.Server().SetDamage(m_site, {.damage = damage});
        m_rig.RunOnePoll();
    }
    EXPECT_THAT(m_rig.RawNames(), AllOf(SizeIs(7), Each(MatchesRegex("refused-2026112[0-9]-[0-9]{6}-[a-z_]+.csv.gz"))));
    EXPECT_THAT(Kept(), IsEmpty());
}

TEST_F(PollerBadFile, ARefusedFileIsKeptOncePerReason)
{
    m_rig.Server().SetDamage(m_site, {.damage = Damage::kHtml});
    m_rig.RunOnePoll();
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.RawNames(), std::vector<std::string>{"refused-20261122-115800-html.csv.gz"});
    EXPECT_EQ(m_rig.Failures(m_site, "html"), 2U);
}

// --- Failures that last ----------------------------------------------------------------------------------------------

TEST_F(OneCompany, AFailureIsToldOnceHoweverLongItLasts)
{
    m_rig.RunOnePoll();
    m_rig.Server().SetFault(m_site, WireFault::kForbidden);
    m_rig.RunTo(PolledAt(18, 0));
    EXPECT_EQ(m_rig.Failures(m_site, "http_forbidden"), 9U); // after 5, 5, 10, 20, 40, 60, 60, ... minutes
    m_rig.Server().SetFault(m_site, WireFault::kServerError);
    m_rig.RunTo(PolledAt(20, 0));
    EXPECT_THAT(m_rig.Log(), ElementsAre(HasSubstr("http_forbidden"), HasSubstr("http_server")));
}

TEST_F(OneCompany, FiguresComeAgainAtTheOldPaceAfterAFailure)
{
    m_rig.RunOnePoll();
    m_rig.Server().SetFault(m_site, WireFault::kForbidden);
    m_rig.RunTo(PolledAt(13, 0));
    m_rig.Server().SetFault(m_site, WireFault::kNone);
    m_rig.RunOnePoll();
    const LocalTime good = m_rig.Now();
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Now() - good, minutes(5));
    EXPECT_EQ(Difference(Kept(), Said()), "");
}

TEST_F(OneCompany, RawFilesThatCannotBeKeptAreToldOnceAndFailNothing)
{
    std::ofstream(m_rig.Folder() / "raw") << "in the way";
    for (int i = 0; i < 4; ++i) {
        m_rig.RunOnePoll();
    }
    EXPECT_THAT(m_rig.Log(), ElementsAre(StartsWith("tokyo: ")));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
    EXPECT_EQ(Difference(Kept(), Said()), "");
}

TEST_F(OneCompany, AFreshAnswerIsNotAskedForAgain)
{
    m_rig.Server().SetHeaders({{"Cache-Control", "max-age=900"}});
    m_rig.RunOnePoll();
    m_rig.RunOnePoll();
    const std::vector<LocalTime> polls = m_rig.Polls().at(m_site);
    EXPECT_GE(polls[1] - polls[0], minutes(15));
    EXPECT_LT(polls[1] - polls[0], minutes(21));
}

TEST_F(OneCompany, AStoreThatCannotBeWrittenIsAFailureAndHeals)
{
    m_rig.RunOnePoll();
    const std::filesystem::path file = m_rig.Folder() / "figures.sqlite";
    const std::filesystem::path aside = m_rig.Folder() / "aside";
    std::filesystem::create_directory(aside);
    for (const char* suffix : {"", "-wal", "-shm"}) {
        if (std::filesystem::exists(file.string() + suffix)) {
            std::filesystem::rename(file.string() + suffix, aside / ("figures.sqlite" + std::string(suffix)));
        }
    }
    std::filesystem::create_directory(file);
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Failures(m_site, "store"), 1U);
    std::filesystem::remove(file);
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Failures(m_site, "store"), 1U);
    EXPECT_EQ(Difference(Kept(), Said()), "");
}

// --- What has not changed --------------------------------------------------------------------------------------------

// A company whose clock the test stops, so that its file does not change any more.
class StoppedCompany : public OneCompany {
protected:
    // Makes our machine's clock go on alone.
    void Pass(minutes time)
    {
        m_ahead += time;
        m_rig.SetClock(m_ahead);
    }

    seconds m_ahead{0};
};

TEST_F(StoppedCompany, AnUnchangedFileIsASuccess)
{
    m_rig.RunOnePoll();
    const FigureTable before = Kept();
    Pass(minutes(5));
    m_rig.RunOnePoll();
    EXPECT_NE(FieldOf(m_rig.Server().Exchanges().at(1), "If-None-Match"), "");
    EXPECT_NE(FieldOf(m_rig.Server().Exchanges().at(1), "If-Modified-Since"), "");
    EXPECT_EQ(Difference(Kept(), before), "");
    const CPollStatistics::Company counts = m_rig.Statistics().Of(m_site);
    EXPECT_EQ(counts.failures.size(), 0U);
    EXPECT_EQ(counts.lastSuccess, m_rig.Polls().at(m_site).back());
    EXPECT_EQ(counts.published, PolledAt(11, 55));
    EXPECT_EQ(m_rig.Store().State(m_site, kPolledDay).observed, m_rig.Polls().at(m_site).back());
}

TEST_F(StoppedCompany, TheSameBytesWithoutValidatorsAreASuccess)
{
    m_rig.Server().SetValidators(false);
    m_rig.RunOnePoll();
    const std::uint64_t revision = m_rig.Store().State(m_site, kPolledDay).revision;
    Pass(minutes(5));
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Server().Exchanges().size(), 2U);
    EXPECT_EQ(FieldOf(m_rig.Server().Exchanges().at(1), "If-None-Match"), "");
    EXPECT_EQ(m_rig.Store().State(m_site, kPolledDay).revision, revision);
    EXPECT_EQ(m_rig.Store().State(m_site, kPolledDay).observed, m_rig.Polls().at(m_site).back());
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
}

TEST_F(StoppedCompany, AFileThatIsNotRenewedIsFrozenEvenWhenTheServerSaysUnchanged)
{
    m_rig.RunOnePoll();
    Pass(hours(2));
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Failures(m_site, "frozen"), 1U);
    EXPECT_EQ(m_rig.Store().State(m_site, kPolledDay).observed, m_rig.Polls().at(m_site).front());
}

// --- Restarts and clocks ---------------------------------------------------------------------------------------------

TEST_F(OneCompany, ARestartPollsNoEarlierAndKeepsTheValidators)
{
    m_rig.RunOnePoll();
    m_rig.Restart();
    m_rig.RunOnePoll();
    const std::vector<LocalTime> polls = m_rig.Polls().at(m_site);
    EXPECT_GE(polls.at(1) - polls.at(0), minutes(5));
    EXPECT_LE(polls.at(1) - polls.at(0), minutes(10));
    EXPECT_NE(FieldOf(m_rig.Server().Exchanges().at(1), "If-None-Match"), "");
    EXPECT_EQ(Difference(Kept(), Said()), "");
}

TEST_F(OneCompany, ARestartInTheMiddleOfARequestPollsNoEarlier)
{
    // Symptom: a program that was killed and started again and again asked each time.
    m_rig.Interrupt();
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
    EXPECT_THAT(m_rig.Log(), IsEmpty());
    const PollState kept = m_rig.Store().LoadPollState(m_site);
    EXPECT_EQ(kept.lastAttempt, m_rig.LastPoll());
    EXPECT_GE(kept.nextPoll, m_rig.LastPoll() + minutes(5));
}

TEST_F(OneCompany, AClockThatWasSetForwardRefusesFilesAndRecovers)
{
    m_rig.RunOnePoll();
    const FigureTable before = Kept();
    m_rig.SetClock(hours(9));
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Failures(m_site, "frozen"), 1U);
    EXPECT_EQ(Difference(Kept(), before), "");
    m_rig.SetClock(seconds(0));
    m_rig.RunOnePoll();
    EXPECT_EQ(Difference(Kept(), Said()), "");
    EXPECT_LE(m_rig.Now(), PolledAt(12, 15));
}

TEST_F(OneCompany, AClockThatWasSetBackDelaysAPollByTwoIntervalsAtMost)
{
    m_rig.SetClock(hours(9));
    m_rig.RunOnePoll(); // refused, and planned for nine hours later
    m_rig.SetClock(seconds(0));
    m_rig.RunOnePoll();
    EXPECT_LE(m_rig.Now(), PolledAt(11, 58) + minutes(10));
    EXPECT_EQ(Difference(Kept(), Said()), "");
}

// --- Midnight, at an address of each day -----------------------------------------------------------------------------

class DailyAddress : public OneCompany {
protected:
    DailyAddress() : OneCompany(Layout::kKyushu, PolledAt(23, 50)) {}

    // How often the file of a day was asked for.
    std::ptrdiff_t RequestsFor(const std::string& day) const
    {
        const auto exchanges = m_rig.Server().ExchangesOf(m_site);
        return std::count_if(exchanges.begin(), exchanges.end(),
                             [&](const auto& exchange) { return exchange.target.find(day) != std::string::npos; });
    }
    // The request that came after the last one for the file of a day.
    HttpExchange Behind(const std::string& day) const
    {
        auto exchanges = m_rig.Server().ExchangesOf(m_site);
        HttpExchange behind = exchanges.back();
        while (exchanges.back().target.find(day) == std::string::npos) {
            behind = exchanges.back();
            exchanges.pop_back();
        }
        return behind;
    }
};

TEST_F(DailyAddress, AFileOfTheNewDayMayBeMissingForAWhile)
{
    m_rig.Server().SetNewDay(minutes(105));
    m_rig.RunTo(PolledAt(24, 0));
    m_rig.Server().SetHeaders({{"Cache-Control", "max-age=3600"}}); // of an error page
    m_rig.RunTo(PolledAt(25, 44, 59));
    EXPECT_THAT(PathOfLast(), HasSubstr("20261123"));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
    EXPECT_EQ(m_rig.Statistics().Of(m_site).attempts, 2U + 21U); // at the old pace
    EXPECT_THAT(m_rig.Log(), IsEmpty());
}

TEST_F(DailyAddress, AFileOfTheNewDayThatIsMissingForLongerIsAFailure)
{
    m_rig.Server().SetNewDay(minutes(110));
    m_rig.RunTo(PolledAt(25, 50));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures, (std::map<std::string, std::uint64_t>{{"http_not_found", 1}}));
    m_rig.RunTo(PolledAt(27, 0));
    EXPECT_EQ(Difference(Kept(kTomorrow), Said(kTomorrow)), "");
}

TEST_F(DailyAddress, TheClosedDaysFileIsFetchedOnceMore)
{
    m_rig.Server().Revise(m_site, kPolledDay, PolledAt(25, 20));
    m_rig.RunTo(PolledAt(25, 29));
    const FigureTable before = Kept();
    const auto requests = RequestsFor("20261122");
    m_rig.RunTo(PolledAt(30, 0));
    EXPECT_NE(Difference(Kept(), before), "");
    EXPECT_EQ(Difference(Kept(), Said()), "");
    EXPECT_EQ(RequestsFor("20261122") - requests, 1);
    // What belongs to today's file was kept meanwhile.
    EXPECT_THAT(Behind("20261122").target, HasSubstr("20261123"));
    EXPECT_NE(FieldOf(Behind("20261122"), "If-None-Match"), "");
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
}

TEST_F(DailyAddress, AClosedFileThatCannotBeHadIsTriedThreeTimes)
{
    m_rig.RunTo(PolledAt(25, 29));
    const auto requests = RequestsFor("20261122");
    m_rig.Server().Remove(m_site, kPolledDay);
    m_rig.RunTo(PolledAt(30, 0));
    EXPECT_EQ(RequestsFor("20261122") - requests, 3);
    EXPECT_EQ(m_rig.Failures(m_site, "http_not_found"), 3U);
    EXPECT_EQ(Difference(Kept(kTomorrow), Said(kTomorrow)), "");
}

TEST_F(DailyAddress, AClosedFileThatWasSeenTooEarlyIsFetchedOnceMore)
{
    m_rig.RunTo(PolledAt(25, 10));
    m_rig.Store().NoteCurrent(m_site, kPolledDay, PolledAt(25, 10)); // by an import, for example
    const auto requests = RequestsFor("20261122");
    m_rig.RunTo(PolledAt(26, 0));
    EXPECT_EQ(RequestsFor("20261122") - requests, 1);
}

TEST_F(DailyAddress, ValidatorsOfOneAddressAreNotSentToAnother)
{
    m_rig.RunTo(PolledAt(24, 5));
    const auto exchanges = m_rig.Server().ExchangesOf(m_site);
    EXPECT_THAT(exchanges.back().target, HasSubstr("20261123"));
    for (const char* name : {"If-None-Match", "If-Modified-Since"}) {
        EXPECT_EQ(FieldOf(exchanges.back(), name), "");
    }
}

TEST_F(DailyAddress, ANewStoreGetsTodaysFileFirstAndThenYesterdays)
{
    m_rig.RunOnePoll();
    EXPECT_THAT(PathOfLast(), HasSubstr("20261122"));
    m_rig.RunOnePoll();
    EXPECT_THAT(PathOfLast(), HasSubstr("20261121"));
    m_rig.RunOnePoll();
    EXPECT_THAT(PathOfLast(), HasSubstr("20261123"));
    EXPECT_EQ(Difference(Kept(kYesterday), Said(kYesterday)), "");
}

// --- Midnight, at one address for all days ---------------------------------------------------------------------------

class FixedAddress : public OneCompany {
protected:
    FixedAddress() : OneCompany(Layout::kTokyoD1, PolledAt(23, 50)) {}
};

TEST_F(FixedAddress, YesterdaysFileCountsForYesterdayAfterMidnight)
{
    m_rig.RunTo(PolledAt(24, 59, 59));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
    EXPECT_EQ(m_rig.Statistics().Of(m_site).published, PolledAt(24, 5));
    EXPECT_EQ(Difference(Kept(), Said()), "");
    EXPECT_TRUE(Kept().contains({Series::kInstantUsage, PolledAt(23, 55)}));
    EXPECT_THAT(Kept(kTomorrow), SizeIs(2)); // the peaks
}

TEST_F(FixedAddress, AnUnchangedFileOfYesterdayCountsForYesterday)
{
    m_rig.RunTo(PolledAt(24, 59, 59));
    EXPECT_EQ(m_rig.Store().State(m_site, kPolledDay).observed, m_rig.Polls().at(m_site).back());
    m_rig.Restart();
    m_rig.RunTo(PolledAt(25, 20));
    EXPECT_EQ(Difference(Kept(kTomorrow), Said(kTomorrow)), "");
}

TEST_F(FixedAddress, YesterdaysFileIsAFailureWhenTheNewOneIsDue)
{
    m_rig.Server().SetNewDay(minutes(110));
    m_rig.RunTo(PolledAt(25, 44, 59));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures.size(), 0U);
    m_rig.RunTo(PolledAt(25, 50));
    EXPECT_EQ(m_rig.Statistics().Of(m_site).failures, (std::map<std::string, std::uint64_t>{{"other_day", 1}}));
    m_rig.RunTo(PolledAt(27, 0));
    EXPECT_EQ(Difference(Kept(kTomorrow), Said(kTomorrow)), "");
}

// --- Settings --------------------------------------------------------------------------------------------------------

TEST(Poller, PollsNobodyWhenNobodyIsEnabled)
{
    CPollRig rig(PolledAt(12, 0), {});
    CFetcher fetcher;
    CRawFiles rawFiles(rig.Folder() / "raw");
    CPollStatistics statistics;
    CPoller poller(rig.Settings(), rig.Store(), fetcher, rawFiles, statistics, RandomJitter(), nullptr);
    EXPECT_EQ(poller.PollDue(PolledAt(12, 0)), LocalTime::max());
    EXPECT_THAT(rig.Server().Exchanges(), IsEmpty());
}

TEST_F(OneCompany, SendsItsAgentAndNothingOfThisMachine)
{
    m_rig.Settings().companies.at(m_site).agent = "Mozilla/5.0 (compatible; test)";
    m_rig.RunOnePoll();
    EXPECT_EQ(m_rig.Server().Exchanges().at(0).agent, "Mozilla/5.0 (compatible; test)");
    EXPECT_THAT(m_rig.Server().Exchanges().at(0).headers, SizeIs(4)); // Host, Accept, Accept-Encoding besides
}

TEST_F(OneCompany, DeletesDaysBeyondTheRetention)
{
    m_rig.Settings().retention = days(1);
    m_rig.RunOnePoll();
    EXPECT_EQ(Difference(Kept(), Said()), "");
    m_rig.RunTo(PolledAt(24 + 23, 59));
    EXPECT_FALSE(Kept().empty());
    m_rig.RunTo(PolledAt(48, 10));
    EXPECT_TRUE(Kept().empty());
    EXPECT_FALSE(Kept(kTomorrow).empty());
}

TEST(Poller, TheJitterStaysInItsLimit)
{
    const Jitter jitter = RandomJitter();
    std::set<seconds> drawn;
    for (int i = 0; i < 1000; ++i) {
        drawn.insert(jitter());
    }
    EXPECT_EQ(drawn.size(), 21U);
    EXPECT_EQ(*drawn.begin(), seconds(0));
    EXPECT_EQ(*drawn.rbegin(), seconds(20));
}

} // namespace
} // namespace reportd
