// The store between threads and processes.
#include "testing/process/Process.h"
#include "testing/store/Polls.h"
#include "testing/store/StoreTest.h"

#include <atomic>
#include <list>
#include <thread>

namespace reportd {
namespace {

using testing_support::AppendPoll;
using testing_support::CBackgroundProcess;
using testing_support::LastPoll;

using Access = CFigureStore::Access;
constexpr std::chrono::seconds kLimit{30};

// Runs a body in a thread of its own, to its end. An exception is a failure of the test.
class CRunningThread {
public:
    explicit CRunningThread(const std::function<void()>& body)
        : m_thread([this, body] {
              try {
                  body();
              } catch (const std::exception& error) {
                  ADD_FAILURE() << error.what();
              }
              m_isRunning = false;
          })
    {
    }
    ~CRunningThread() { m_thread.join(); }
    CRunningThread(const CRunningThread&) = delete;
    CRunningThread& operator=(const CRunningThread&) = delete;

    bool IsRunning() const { return m_isRunning; }

private:
    std::atomic<bool> m_isRunning = true;
    std::thread m_thread;
};

class StoreProcess : public StoreTest {};

TEST_F(StoreProcess, ShowsAReaderWholePollsWhileTheyAreWritten)
{
    constexpr std::uint64_t kPolls = 300;
    OpenStore();
    const auto reader = OpenStore(Access::kReadOnly);
    std::atomic<std::uint64_t> committed = 0;
    const CRunningThread writer([&] {
        CFigureStore store(File(), Access::kReadWrite, {});
        for (std::uint64_t poll = 1; poll <= kPolls; ++poll) {
            AppendPoll(store, poll);
            committed = poll;
        }
    });
    std::uint64_t revision = 0;
    unsigned reads = 0;
    while (writer.IsRunning()) {
        const std::uint64_t before = committed;
        const std::vector<std::uint64_t> values = ValuesOf(reader->Read(kSite, Series::kEstimatedUsage, kDate, {}));
        ASSERT_EQ(values, std::vector<std::uint64_t>(values.size(), values.empty() ? 0 : values.front()));
        ASSERT_TRUE(values.empty() ? before == 0 : values.size() == 24U && values.front() >= before);
        const std::uint64_t now = reader->State(kSite, kDate).revision;
        ASSERT_GE(now, revision);
        revision = now;
        ++reads;
    }
    EXPECT_GT(reads, 10U);
    EXPECT_EQ(LastPoll(*reader), kPolls);
}

TEST_F(StoreProcess, LetsSeveralWritersTakeTurns)
{
    // Symptom: of several that began a new file at once, one now and then took it for the database of another program.
    constexpr int kWriters = 4;
    constexpr int kFigures = 40;
    {
        std::list<CRunningThread> threads;
        for (int writer = 0; writer < kWriters; ++writer) {
            threads.emplace_back([this, writer] {
                CFigureStore store(File(), Access::kReadWrite, {}); // the first one makes it
                for (int number = 0; number < kFigures; ++number) {
                    const LocalTime start = At(0, 5 * (kFigures * writer + number));
                    store.Append(kSite, kDate, {MakeFigure(Series::kSolar, start, 1)}, At(9, 0), At(9, 2));
                    store.SavePollState(writer, {.failures = 1});
                }
            });
        }
    }
    EXPECT_EQ(OpenStore()->Read(kSite, Series::kSolar, kDate, {}).size(), std::size_t{kWriters} * kFigures);
    EXPECT_THAT(Names(), testing::ElementsAre("figures.sqlite"));
}

TEST_F(StoreProcess, ShowsWhatAnotherProcessHasWritten)
{
    const auto store = OpenStore();
    AppendPoll(*store, 1);
    const std::uint64_t before = store->State(kSite, kDate).revision;
    CBackgroundProcess writer({AMPORA_STORE_WRITER, File().string()}, {});
    for (std::uint64_t poll = 2; poll <= 20; ++poll) {
        ASSERT_EQ(writer.ReadLine(kLimit), std::to_string(poll));
        EXPECT_GE(store->State(kSite, kDate).revision, before + poll - 1);
        EXPECT_GE(store->Read(kSite, Series::kSolar, kDate, {}).size(), poll);
    }
}

TEST_F(StoreProcess, LosesNoCommittedPollWhenItIsKilled)
{
    constexpr unsigned kKills = 100;
    std::uint64_t expected = 0; // the polls that are there at least
    for (unsigned kill = 0; kill < kKills; ++kill) {
        CBackgroundProcess writer({AMPORA_STORE_WRITER, File().string()}, {});
        for (unsigned line = 0; line <= kill % 7; ++line) {
            ASSERT_EQ(writer.ReadLine(kLimit), std::to_string(++expected)) << writer.Err();
        }
        // A different moment of the next poll each time.
        std::this_thread::sleep_for(std::chrono::microseconds(kill * 61 % 5000));
        writer.Kill();
        // To the end of what it wrote, which may still be on its way.
        while (const std::optional<std::string> line = writer.ReadLine(kLimit)) {
            ASSERT_EQ(*line, std::to_string(++expected));
        }
        EXPECT_EQ(writer.Err(), "");
        ASSERT_TRUE(IsSound(File()));
        const std::uint64_t last = LastPoll(*OpenStore(kill % 2 == 0 ? Access::kReadOnly : Access::kReadWrite));
        ASSERT_GE(last, expected);
        ASSERT_LE(last, expected + 1);
        expected = last;
    }
    EXPECT_THAT(m_told.Texts(), testing::IsEmpty());
}

} // namespace
} // namespace reportd
