#include "server/live/PollThread.h"

#include "testing/process/Process.h"
#include "testing/published/PollRig.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

using catalogue::kKyushu;
using testing_support::CPollRig;
using testing_support::Layout;
using testing_support::PolledAt;
using testing_support::WaitUntil;
using testing_support::WireFault;

constexpr seconds kLimit{20};

// A poller and its thread, on a clock of the test's own that goes with the real one.
class PollThread : public testing::Test {
protected:
    void Start()
    {
        m_poller = std::make_unique<CPoller>(
            m_rig.Settings(), m_rig.Store(), m_fetcher, m_rawFiles, m_statistics, [] { return seconds(0); },
            [](const std::string&) {});
        const auto begin = std::chrono::steady_clock::now();
        m_thread = std::make_unique<CPollThread>(
            *m_poller, m_fetcher, [](const std::string&) {},
            [begin] {
                return PolledAt(12, 3) + std::chrono::floor<seconds>(std::chrono::steady_clock::now() - begin);
            });
    }
    // Ends the thread. How long that took.
    std::chrono::steady_clock::duration End()
    {
        const auto before = std::chrono::steady_clock::now();
        m_thread.reset();
        return std::chrono::steady_clock::now() - before;
    }
    std::size_t RequestCount() { return m_rig.Server().Exchanges().size(); }

    CPollRig m_rig{PolledAt(12, 3), {Layout::kTokyoD1, Layout::kKyushu}};
    CFetcher m_fetcher;
    CRawFiles m_rawFiles{m_rig.Folder() / "raw"};
    CPollStatistics m_statistics;
    std::unique_ptr<CPoller> m_poller;
    std::unique_ptr<CPollThread> m_thread;
};

TEST_F(PollThread, PollsEveryCompanyThatIsDueAndThenSleeps)
{
    Start();
    ASSERT_TRUE(WaitUntil([this] { return m_statistics.Of(kKyushu).lastSuccess.has_value(); }, kLimit));
    EXPECT_LT(End(), seconds(1));
    EXPECT_EQ(RequestCount(), 2U);
}

TEST_F(PollThread, EndsDuringARequestThatHangs)
{
    m_rig.Server().SetFault(catalogue::kTokyo, WireFault::kStalled);
    Start();
    ASSERT_TRUE(WaitUntil([this] { return RequestCount() == 1; }, kLimit));
    EXPECT_LT(End(), seconds(2));
    EXPECT_EQ(RequestCount(), 1U);
    EXPECT_TRUE(m_statistics.Of(catalogue::kTokyo).failures.empty());
}

TEST_F(PollThread, WakesWhenAPollIsDue)
{
    for (const int site : {catalogue::kTokyo, kKyushu}) {
        m_rig.Store().SavePollState(site, {.nextPoll = PolledAt(12, 3, 1)});
    }
    Start();
    EXPECT_TRUE(WaitUntil([this] { return RequestCount() == 2; }, kLimit));
}

} // namespace
} // namespace reportd
