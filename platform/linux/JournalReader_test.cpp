#include "platform/linux/JournalReader.h"

#include "platform/Text.h"
#include "testing/process/Process.h"
#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>

namespace platform::linux {
namespace {

constexpr DWORD kLongMs = 20000;

// A journal in a folder of its own, which systemd's program for received entries writes.
class JournalReader : public testing::Test {
protected:
    // Adds an entry as the journal itself would. Fields that begin with an underscore are its own.
    void Add(const std::string& message, const std::string& unit = "amporasrv.service",
             const std::string& userId = "1000")
    {
        const std::string time = std::to_string(1'700'000'000'000'000 + ++m_entries);
        m_writer.Write("__REALTIME_TIMESTAMP=" + time + "\n__MONOTONIC_TIMESTAMP=" + time +
                       "\n_BOOT_ID=0123456789abcdef0123456789abcdef\nMESSAGE=" + message +
                       "\n_SYSTEMD_USER_UNIT=" + unit + "\n_UID=" + userId + "\n_PID=77\n\n");
    }

    CJournalReader Open() const
    {
        sd_journal* journal = nullptr;
        EXPECT_EQ(::sd_journal_open_directory(&journal, m_scratch.Path().c_str(), 0), 0);
        return {JournalPtr(journal), "amporasrv.service", 1000};
    }

    // The next message; "none" when none comes in time.
    static std::string Next(CJournalReader& reader, DWORD timeoutMs = kLongMs)
    {
        TraceText text;
        return reader.Read(timeoutMs, &text) == WAIT_OBJECT_0 ? EncodeUtf8(text.text) : "none";
    }

    // Waits until the entries so far can be read.
    void AwaitEntries() const
    {
        const auto areThere = [this] {
            sd_journal* journal = nullptr;
            EXPECT_EQ(::sd_journal_open_directory(&journal, m_scratch.Path().c_str(), 0), 0);
            const JournalPtr owner(journal);
            int read = 0;
            while (::sd_journal_next(journal) > 0) {
                ++read;
            }
            return read == m_entries;
        };
        EXPECT_TRUE(testing_support::WaitUntil(areThere, std::chrono::milliseconds(kLongMs)));
    }

    testing_support::CScratchFolder m_scratch;
    testing_support::CBackgroundProcess m_writer{
        {"/lib/systemd/systemd-journal-remote", "--output=" + (m_scratch.Path() / "remote.journal").string(), "-"}, {}};
    int m_entries = 0;
};

TEST_F(JournalReader, ReadsWhatTheUnitWritesFromNowOn)
{
    Add("oldest");
    Add("old");
    AwaitEntries();
    CJournalReader reader = Open();
    ASSERT_EQ(reader.Error(), 0);
    Add("first");
    EXPECT_EQ(Next(reader), "first");
    Add("of another unit", "other.service");
    Add("of another user", "amporasrv.service", "1001");
    Add("\xE6\x9D\xB1\xE4\xBA\xAC = a");
    EXPECT_EQ(Next(reader), "\xE6\x9D\xB1\xE4\xBA\xAC = a");
    EXPECT_EQ(Next(reader, 0), "none");
}

TEST_F(JournalReader, ReadsTheFirstEntriesThatThereAre)
{
    // There is no entry of the unit yet, but one of another.
    Add("of another unit", "other.service");
    AwaitEntries();
    CJournalReader reader = Open();
    EXPECT_EQ(Next(reader, 0), "none");
    Add("first");
    Add("second");
    EXPECT_EQ(Next(reader), "first");
    EXPECT_EQ(Next(reader), "second");
    EXPECT_EQ(Next(reader, 50), "none");
}

} // namespace
} // namespace platform::linux
