// The store on a disk that is full, fails, or loses its power.
#include "testing/store/FaultyDisk.h"
#include "testing/store/Polls.h"
#include "testing/store/StoreTest.h"

#include <sqlite3.h>

#include <ranges>

namespace reportd {
namespace {

using testing_support::AppendPoll;
using testing_support::CFaultyDisk;
using testing_support::LastPoll;

constexpr unsigned kMostChanges = 10'000; // more than anything here makes

// Whether an operation has thrown an error that names the file.
bool Throws(const std::function<void()>& operation)
{
    try {
        operation();
        return false;
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("figures.sqlite"));
        return true;
    }
}

class StoreDisk : public StoreTest {
protected:
    CFaultyDisk m_disk;
};

// By the result code that the disk fails with.
class FailingStoreDisk : public StoreDisk, public testing::WithParamInterface<int> {};

TEST_P(FailingStoreDisk, CostsTheAppendThatItFailsAndNothingElse)
{
    constexpr std::uint64_t kPolls = 300; // some of them merge the write-ahead log
    unsigned failures = 0;
    std::uint64_t last = 0;
    auto store = OpenStore();
    while (last < kPolls) {
        m_disk.FailFrom(1 + last % 13, GetParam());
        const bool hasFailed = Throws([&] { AppendPoll(*store, last + 1); });
        const std::uint64_t kept = LastPoll(*store); // throws for a poll that is there in part
        EXPECT_TRUE(kept == last + 1 || (kept == last && hasFailed)) << kept << " after " << last;
        m_disk.Repair();
        if (hasFailed) {
            ++failures;
            AppendPoll(*store, last + 1);
        }
        ++last;
        ASSERT_EQ(LastPoll(*store), last);
    }
    EXPECT_GT(failures, kPolls / 4);
    EXPECT_LT(failures, kPolls);
    store.reset();
    EXPECT_TRUE(IsSound(File()));
    EXPECT_EQ(LastPoll(*OpenStore()), last);
    EXPECT_THAT(m_told.Texts(), testing::IsEmpty());
}

TEST_P(FailingStoreDisk, StopsAStartUntilItWorksAgain)
{
    unsigned failures = 0;
    for (unsigned nth = 1; nth < kMostChanges; ++nth) {
        m_disk.FailFrom(nth, GetParam());
        failures += Throws([&] { OpenStore(); }) ? 1U : 0U;
        const bool isThrough = !m_disk.HasFailed();
        m_disk.Repair();
        AppendPoll(*OpenStore(), 1);
        EXPECT_EQ(Names(), std::vector<std::string>{"figures.sqlite"});
        EXPECT_TRUE(IsSound(File()));
        for (const std::string& name : Names()) {
            std::filesystem::remove(m_folder.Path() / name);
        }
        if (isThrough) {
            break;
        }
    }
    EXPECT_GT(failures, 5U);
    EXPECT_THAT(m_told.Texts(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Codes, FailingStoreDisk, testing::Values(SQLITE_FULL, SQLITE_IOERR_WRITE),
                         [](const testing::TestParamInfo<int>& info) {
                             return info.param == SQLITE_FULL ? "IsFull" : "CannotWrite";
                         });

TEST_F(StoreDisk, SaysThatItIsFull)
{
    const auto store = OpenStore();
    m_disk.FailFrom(1, SQLITE_FULL);
    try {
        AppendPoll(*store, 1);
        FAIL() << "a full disk was written to";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "the store " + File().string() + ": database or disk is full");
    }
    EXPECT_TRUE(store->IsReady());
}

TEST_F(StoreDisk, LosesNoCommittedPollInAPowerCut)
{
    constexpr unsigned kCuts = 150;
    constexpr std::uint64_t kPolls = 400;
    auto store = OpenStore();
    std::uint64_t committed = 0;
    std::uint64_t mostLost = 0;
    for (unsigned cut = 1; cut <= kCuts && committed < kPolls; ++cut) {
        m_disk.CutPowerAt(1 + cut % 23);
        std::uint64_t atCut = committed;
        while (!m_disk.HasCutPower() && committed < kPolls) {
            atCut = committed;
            AppendPoll(*store, ++committed);
        }
        const testing_support::CScratchFolder remains;
        m_disk.WriteRemains(m_folder.Path(), remains.Path(), cut);
        CFigureStore reopened(remains.Path() / "figures.sqlite", CFigureStore::Access::kReadWrite, m_told.Function());
        const std::uint64_t kept = LastPoll(reopened);
        ASSERT_TRUE(kept == atCut || kept == atCut + 1) << kept << " polls of " << atCut << ", cut " << cut;
        ASSERT_TRUE(IsSound(remains.Path() / "figures.sqlite"));
        mostLost = std::max(mostLost, committed - kept);
    }
    EXPECT_LE(mostLost, 1U);
    EXPECT_GT(committed, 100U);
    EXPECT_THAT(m_told.Texts(), testing::IsEmpty());
}

TEST_F(StoreDisk, TrimsAFewDaysATransaction)
{
    constexpr int kDays = 40;
    const auto store = OpenStore();
    const auto dateOf = [](int number) { return std::chrono::year_month_day(kDay + std::chrono::days(number)); };
    for (int day = 0; day < kDays; ++day) {
        store->Append(kSite, dateOf(day), {MakeFigure(Series::kSolar, At(24 * day, 0), 1)}, At(24 * day, 5),
                      At(24 * day, 7));
    }
    unsigned changes = 0;
    int left = kDays;
    for (; left == kDays && changes < kMostChanges; ++changes) {
        m_disk.FailFrom(changes + 1, SQLITE_FULL);
        EXPECT_TRUE(Throws([&] { store->Trim(dateOf(kDays)); }));
        m_disk.Repair();
        left = static_cast<int>(std::ranges::count_if(
            std::views::iota(0, kDays), [&](int day) { return store->State(kSite, dateOf(day)).revision != 0; }));
    }
    EXPECT_GT(left, kDays / 2) << "what was deleted before the failure stays deleted";
    store->Trim(dateOf(kDays));
    EXPECT_EQ(store->Newest(kSite, Series::kSolar), std::nullopt);
}

TEST_F(StoreDisk, KeepsTheWriteAheadLogSmall)
{
    const auto store = OpenStore();
    const auto reader = OpenStore(CFigureStore::Access::kReadOnly);
    std::uintmax_t largest = 0;
    for (std::uint64_t poll = 1; poll <= 500; ++poll) {
        AppendPoll(*store, poll);
        EXPECT_FALSE(reader->Read(kSite, Series::kSolar, kDate, {}).empty());
        largest = std::max(largest, std::filesystem::file_size(File().string() + "-wal"));
    }
    EXPECT_LE(largest, 1'100'000U);
}

} // namespace
} // namespace reportd
