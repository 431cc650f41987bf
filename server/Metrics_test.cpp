#include "server/Metrics.h"

#include "testing/Answering.h"
#include "testing/MetricsCheck.h"
#include "testing/ScriptedSource.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using namespace catalogue;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing_support::CMetricsCheck;

constexpr LocalTime kNoon = std::chrono::local_days{2026y / 11 / 22} + 12h; // 1795316400 in Unix time

TEST(MetricsCheckItself, FindsWhatBreaksTheRules)
{
    const std::string head = "# HELP a_total x\n# TYPE a_total counter\n";
    EXPECT_EQ(CMetricsCheck().Check(head + "a_total 1\na_total{b=\"c\"} 2\n"), "");
    for (const std::string text :
         {"a_total 1", "a_total 1\na_total 2\n", "b 1\n", "a_total -1\n", "a_total{b=c} 1\n", "a_total{b=\"\\\"} 1\n",
          "a_total 1 x\n", "# TYPE b gauge\n", "# HELP a_total y\n", "\n"}) {
        EXPECT_NE(CMetricsCheck().Check(head + text), "") << text;
    }
    EXPECT_NE(CMetricsCheck().Check("# HELP a x\n# TYPE a counter\na 1\n"), "");
}

class Metrics : public testing::Test {
protected:
    Metrics()
    {
        m_source.Add(kTokyo, Series::kInstantUsage, 2026y / 11 / 22, {kNoon, kNoon + 5min, 30000});
        m_statistics.CountAttempt(kKansai);
        m_statistics.CountAttempt(kKansai);
        m_statistics.CountFailure(kKansai, "frozen");
        m_statistics.NoteSuccess(kKansai, kNoon + 60s, kNoon);
        m_statistics.CountLayoutChange(kChubu);
    }

    testing_support::CScriptedSource m_source;
    CPollStatistics m_statistics;
};

TEST_F(Metrics, TellWhatPollingBroughtAndHowFarTheRecordsReach)
{
    const std::string text = MetricsDocument(m_source, &m_statistics);
    for (const std::string line :
         {"ampora_build_info{version=\"" AMPORA_VERSION "\"} 1", "ampora_poll_attempts_total{company=\"kansai\"} 2",
          "ampora_poll_attempts_total{company=\"tokyo\"} 0",
          "ampora_poll_failures_total{company=\"kansai\",reason=\"frozen\"} 1",
          "ampora_last_success_timestamp_seconds{company=\"kansai\"} 1795316460",
          "ampora_published_timestamp_seconds{company=\"kansai\"} 1795316400",
          "ampora_layout_changes_total{company=\"chubu\"} 1",
          "ampora_newest_record_timestamp_seconds{company=\"tokyo\",kind=\"instant_usage\"} "
          "1795316400"}) {
        EXPECT_THAT(text, HasSubstr("\n" + line + "\n"));
    }
}

TEST_F(Metrics, LeaveOutWhatIsNotKnown)
{
    const std::string text = MetricsDocument(m_source, &m_statistics);
    for (const std::string start : {"ampora_last_success_timestamp_seconds{company=\"tokyo\"}",
                                    "ampora_published_timestamp_seconds{company=\"tokyo\"}",
                                    "ampora_newest_record_timestamp_seconds{company=\"kansai\"",
                                    "ampora_poll_failures_total{company=\"tokyo\""}) {
        EXPECT_THAT(text, Not(HasSubstr(start)));
    }
}

TEST_F(Metrics, ObeyTheRulesOfTheFormat)
{
    EXPECT_EQ(CMetricsCheck().Check(MetricsDocument(m_source, &m_statistics)), "");
    EXPECT_EQ(CMetricsCheck().Check(MetricsDocument(m_source, nullptr)), "");
}

TEST_F(Metrics, WithoutPollingThereAreNoCountsOfIt)
{
    EXPECT_THAT(MetricsDocument(m_source, nullptr),
                AllOf(Not(HasSubstr("poll")), Not(HasSubstr("success")), HasSubstr("ampora_build_info")));
}

TEST_F(Metrics, AreAnsweredAsTheyAreNow)
{
    CAnswers answers(m_source, &m_statistics, {});
    const WebAnswer before = testing_support::Get(answers, "/metrics", kNoon);
    EXPECT_EQ(before.status, 200U);
    EXPECT_EQ(before.contentType, "text/plain; version=0.0.4; charset=utf-8");
    m_statistics.CountAttempt(kKansai);
    EXPECT_THAT(testing_support::BodyOf(testing_support::Get(answers, "/metrics", kNoon)),
                HasSubstr("ampora_poll_attempts_total{company=\"kansai\"} 3\n"));
}

} // namespace
} // namespace reportd
