// A whole day of all companies, every five minutes over HTTP, on a clock that the test moves.
#include "testing/published/PollRig.h"

#include <gmock/gmock.h>
#include <iostream>

namespace reportd {
namespace {

using testing_support::CPollRig;
using testing_support::FigureTable;
using testing_support::kPolledDay;
using testing_support::Layout;
using testing_support::PolledAt;
using testing_support::Publication;

const year_month_day kTomorrow{local_days{kPolledDay} + days{1}};
const std::vector<Layout> kNewLayouts = {Layout::kTokyoD1, Layout::kTohoku, Layout::kChubu, Layout::kKansai,
                                         Layout::kKyushu};
const std::vector<Layout> kOldLayouts = {Layout::kTokyoS1, Layout::kKansaiOld};

class PlayedDay : public testing::TestWithParam<std::vector<Layout>> {
protected:
    // What a company's file said of a day when it was polled last before a moment.
    FigureTable Said(Layout layout, year_month_day file, year_month_day date, LocalTime moment) const
    {
        const int site = testing_support::SiteNumberOf(layout);
        const Publication publication = m_rig.Server().At(site, file, LastPoll(site, moment)).value();
        EXPECT_EQ(publication.date, file);
        FigureTable table = testing_support::TableOf(
            testing_support::TrueFigures(layout, file, publication.published, publication.revision));
        std::erase_if(table, [date](const auto& entry) {
            return std::chrono::floor<days>(entry.first.second) != local_days{date};
        });
        return table;
    }
    LocalTime LastPoll(int site, LocalTime moment) const
    {
        LocalTime last = {};
        for (const LocalTime poll : m_rig.Polls().at(site)) {
            last = poll <= moment ? poll : last;
        }
        return last;
    }

    // Compares what is kept of a day, or was known at a moment, with this. How many figures were compared.
    std::size_t ExpectKept(Layout layout, year_month_day date, std::optional<LocalTime> asOf, const FigureTable& said)
    {
        const FigureTable kept = m_rig.Figures(testing_support::SiteNumberOf(layout), date, asOf);
        EXPECT_EQ(testing_support::Difference(kept, said), "") << testing_support::NameOf(layout);
        return kept.size();
    }

    void ExpectPace() const
    {
        for (const auto& [site, polls] : m_rig.Polls()) {
            EXPECT_GE(polls.size(), 288U + 24U) << site;
            for (std::size_t i = 1; i < polls.size(); ++i) {
                EXPECT_GE(polls[i] - polls[i - 1], minutes(5)) << site;
            }
        }
    }

    CPollRig m_rig{PolledAt(0, 0), GetParam()};
};

TEST_P(PlayedDay, TheStoreHasWhatWasPublished)
{
    constexpr LocalTime kRevised = PolledAt(25, 20);
    std::size_t count = 0;
    for (const Layout layout : GetParam()) {
        m_rig.Server().Revise(testing_support::SiteNumberOf(layout), kPolledDay, kRevised);
    }
    m_rig.RunTo(PolledAt(23, 59));
    for (const Layout layout : GetParam()) {
        count += ExpectKept(layout, kTomorrow, {}, Said(layout, kPolledDay, kTomorrow, m_rig.Now()));
    }
    EXPECT_EQ(count, 2 * GetParam().size()); // tomorrow's peaks
    m_rig.RunTo(PolledAt(26, 0));
    for (const Layout layout : GetParam()) {
        const int site = testing_support::SiteNumberOf(layout);
        // The closed day's file: the last before 01:00 where there is one address, else the one fetched after 01:30.
        const bool isFixed = site == catalogue::kTokyo || site == catalogue::kChubu;
        const LocalTime closed = isFixed ? PolledAt(24, 59) : m_rig.Now();
        count += ExpectKept(layout, kPolledDay, {}, Said(layout, kPolledDay, kPolledDay, closed));
        count += ExpectKept(layout, kPolledDay, PolledAt(13, 0), Said(layout, kPolledDay, kPolledDay, PolledAt(13, 0)));
        count += ExpectKept(layout, kTomorrow, {}, Said(layout, kTomorrow, kTomorrow, m_rig.Now()));
        EXPECT_TRUE(m_rig.Statistics().Of(site).failures.empty()) << site;
    }
    ExpectPace();
    std::cout << count << " figures compared, " << m_rig.Server().Exchanges().size() << " requests\n";
}

INSTANTIATE_TEST_SUITE_P(Companies, PlayedDay, testing::Values(kNewLayouts, kOldLayouts));

} // namespace
} // namespace reportd
