#include "engine/RandomRule.h"
#include "platform/sim/Machine.h"
#include "testing/fleet/Report.h"
#include "testing/fleet/Scenarios.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <sstream>

namespace fleet {
namespace {

using testing::AllOf;
using testing::Each;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::StartsWith;

constexpr std::uint32_t kMachines = 10'000;
constexpr double kRequestsOfAPass = 42;

class Fleet : public testing::Test {
protected:
    static Load Run(const char* scenario, std::uint64_t seed = 1)
    {
        return Simulate(DayOf(FindScenario(scenario), kMachines, seed));
    }
    // Of a part of the day.
    static std::vector<double> Part(const std::vector<double>& seconds, TimeMs from, TimeMs to)
    {
        return {seconds.begin() + from / kSecondMs, seconds.begin() + to / kSecondMs};
    }
    static double Sum(const std::vector<double>& seconds)
    {
        return std::accumulate(seconds.begin(), seconds.end(), 0.0);
    }

    platform::sim::CMachine m_machine;
};

TEST_F(Fleet, TheSameSeedGivesTheSameLoad)
{
    const Load first = Run("lunch");
    const Load second = Run("lunch");
    EXPECT_EQ(first.requests, second.requests);
    EXPECT_EQ(first.origin, second.origin);
    EXPECT_NE(first.requests, Run("lunch", 2).requests);
}

TEST_F(Fleet, APassIs42Requests)
{
    EXPECT_EQ(TargetsOfAPass().size(), kRequestsOfAPass);
    const Load load = Run("working-day");
    EXPECT_NEAR(Sum(load.requests), static_cast<double>(load.passes) * kRequestsOfAPass, 42.0 * 10);
}

TEST_F(Fleet, MachinesThatStayOnAskAtTheRateOfTheSettings)
{
    const Schedule schedule = DefaultSchedule();
    double minutes = 0;
    for (int draw = 0; draw < 32'768; ++draw) {
        minutes += schedule.interval + RandomMinutes(draw, schedule.intervalMin, schedule.intervalMax);
    }
    const double seconds = minutes / 32'768 * 60 + kRequestsOfAPass * kAnswerMs / kSecondMs;
    const Summary summary = Summarize(Run("all-day"));
    const double expected = kMachines * kRequestsOfAPass / seconds;
    EXPECT_NEAR(summary.mean, expected, expected / 100);
    EXPECT_LT(summary.peakMinute, summary.mean * 1.4);
}

TEST_F(Fleet, AResumeIsFollowedByAnIntervalAndNoPassAtOnce)
{
    const Load load = Run("lunch");
    const double busiest = Summarize(load).peakMinute;
    EXPECT_EQ(Sum(Part(load.requests, 12 * kHourMs + 25 * kMinuteMs, 12 * kHourMs + 35 * kMinuteMs)), 0);
    EXPECT_LT(Sum(Part(load.requests, 13 * kHourMs, 13 * kHourMs + kMinuteMs)) / 60, busiest / 4);
}

TEST_F(Fleet, MachinesStartedTogetherMakeTheirSecondPassTogetherToo)
{
    // The seed is the time in seconds, and close seeds give close first numbers.
    const Load load = Run("power-cut");
    const double all = kMachines * kRequestsOfAPass;
    const TimeMs cut = 14 * kHourMs;
    EXPECT_GE(Summarize(load).peakSecond, all / 11);
    EXPECT_GE(Sum(Part(load.requests, cut + 2 * kMinuteMs, cut + 3 * kMinuteMs)), all * 0.99);
    double busiest = 0;
    for (TimeMs from = cut + 10 * kMinuteMs; from < cut + kHourMs; from += 12 * kSecondMs) {
        busiest = std::max(busiest, Sum(Part(load.requests, from, from + 12 * kSecondMs)));
    }
    EXPECT_GT(busiest, all * 0.9);
}

TEST_F(Fleet, ADelayOfTheStartTakesThePeakAway)
{
    EXPECT_LT(Summarize(Run("delayed-start")).peakMinute * 10, Summarize(Run("power-cut")).peakMinute);
}

TEST_F(Fleet, TheCacheAsksForEachReportOnceAMinute)
{
    const Load load = Run("all-day");
    for (TimeMs from = 2 * kHourMs; from < 11 * kHourMs; from += kHourMs) {
        EXPECT_LE(Sum(Part(load.origin, from, from + kHourMs)), kRequestsOfAPass * 61);
        EXPECT_GE(Sum(Part(load.origin, from, from + kHourMs)), kRequestsOfAPass * 50);
    }
}

TEST_F(Fleet, EveryQuestionForWhatIsMissingReachesTheServer)
{
    const Load load = Run("all-day");
    const auto share = [&load](TimeMs from, TimeMs to) {
        return Sum(Part(load.origin, from, to)) / Sum(Part(load.requests, from, to));
    };
    EXPECT_NEAR(share(13 * kHourMs, 18 * kHourMs), 21.0 / 42, 0.01); // nothing of tomorrow
    EXPECT_NEAR(share(19 * kHourMs, 24 * kHourMs), 11.0 / 42, 0.01); // its peaks
    EXPECT_LT(Summarize(Run("kept-503")).originPeak, 43);
}

TEST_F(Fleet, AServerAtItsLimitLetsTheOthersWait)
{
    const Load load = Run("slow-server");
    EXPECT_THAT(load.requests, Each(Le(500.001)));
    EXPECT_THAT(load.origin, Each(Le(500.001)));
    EXPECT_THAT(Part(load.requests, 14 * kHourMs + 3 * kMinuteMs, 14 * kHourMs + 15 * kMinuteMs), Each(Ge(499)));
    EXPECT_NEAR(Sum(load.requests), static_cast<double>(load.passes) * kRequestsOfAPass, 42.0 * 500);
}

TEST_F(Fleet, ALimitRefusesWhatIsAboveIt)
{
    const Load load = Run("limit");
    std::vector<double> served(load.requests.size());
    std::transform(load.requests.begin(), load.requests.end(), load.refused.begin(), served.begin(), std::minus<>());
    EXPECT_THAT(served, Each(Le(2 * 500.001)));
    EXPECT_THAT(Part(load.refused, 2 * kHourMs, 14 * kHourMs), Each(0));
    EXPECT_GT(Sum(load.refused), kMachines * kRequestsOfAPass * 0.9);
}

TEST(FleetReport, SumsUpALoad)
{
    Load load;
    load.requests.resize(86'400);
    load.refused = load.origin = load.requests;
    load.requests[60] = 90;
    load.requests[61] = 30;
    load.requests[3'600] = 60;
    load.refused[60] = 30;
    load.origin[60] = 6;
    const Summary summary = Summarize(load);
    EXPECT_EQ(summary.requests, 180);
    EXPECT_EQ(summary.refused, 30);
    EXPECT_EQ(summary.mean, 180.0 / (60 * 60)); // 60 minutes, from 0:01 to 1:00
    EXPECT_EQ(summary.peakMinute, 2);
    EXPECT_EQ(summary.peakSecond, 90);
    EXPECT_EQ(TimeText(summary.peakTime), "00:01:00");
    EXPECT_EQ(summary.originMean, 6.0 / (60 * 60));
    EXPECT_EQ(summary.originPeak, 6);
    std::ostringstream csv;
    WriteCsv(csv, load);
    EXPECT_THAT(csv.str(), AllOf(StartsWith("time,requests_per_second,refused_per_second,origin_requests_per_second\n"
                                            "00:00,0.00,0.00,0.00\n00:01,2.00,0.50,0.10\n"),
                                 HasSubstr("\n01:00,1.00,0.00,0.00\n")));
    EXPECT_THAT(Picture(load), HasSubstr("        2.0 |#\n"));
    EXPECT_THAT(Picture(load), HasSubstr("        1.1 |#   #\n"));
}

TEST(FleetReport, WritesNumbersForPeople)
{
    EXPECT_EQ(NumberText(0), "0");
    EXPECT_EQ(NumberText(9.94), "9.9");
    EXPECT_EQ(NumberText(999.6), "1,000");
    EXPECT_EQ(NumberText(1'234'567.8), "1,234,568");
}

TEST(FleetScenarios, RefusesAnUnknownOne) { EXPECT_THROW(FindScenario("rain"), std::invalid_argument); }

} // namespace
} // namespace fleet
