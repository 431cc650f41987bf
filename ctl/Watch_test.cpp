#include "testing/ControlTest.h"

namespace {

using namespace catalogue;
using namespace testing_support;

using platform::sim::Call;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kClear = "\x1b[H\x1b[2J";

class Watch : public CControlTest {
protected:
    // Starts the program in a process of its own; what it writes is in m_stream.
    void Start(const std::vector<CString>& arguments)
    {
        m_process =
            m_machine.StartProcess(1, [this, arguments] { return RunControl(arguments, m_stream, m_complaints); });
        m_machine.RunUntilIdle();
    }
    // Writes a record of Tokyo's and lets the quiet after that pass.
    void Change(std::uint64_t value)
    {
        Put(kTokyo, kInstantUsage, FileOf(kInstantUsage, {FiveMinutes(value, 12, 0)}));
        m_machine.RunFor(1500);
    }
    // Lets it fail to write at the next change, and so end.
    int End()
    {
        m_stream.setstate(std::ios::badbit);
        Change(999);
        return m_machine.ExitCodeOf(m_process).value_or(-1);
    }
    // What it has written since the last call.
    std::string Written()
    {
        std::string text = m_stream.str();
        m_stream.str("");
        return text;
    }

    std::ostringstream m_stream;
    std::ostringstream m_complaints;
    DWORD m_process = 0;
};

TEST_F(Watch, ShowsTheTableAgainOnAChange)
{
    Change(1);
    Start({L"watch"});
    EXPECT_THAT(Written(), StartsWith("COMPANY  KIND "));
    Change(2);
    EXPECT_THAT(Written(), testing::AllOf(StartsWith("\nCOMPANY  KIND "), HasSubstr("  2  2012-07-02 13:30:05\n")));
    // Nothing happens in between, and a change that cannot be seen shows nothing.
    m_machine.RunFor(24LL * 3600 * 1000);
    EXPECT_EQ(Written(), "");
    Change(2);
    EXPECT_EQ(Written(), "");
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(m_complaints.str(), "amporactl: standard output cannot be written\n");
}

TEST_F(Watch, ClearsATerminal)
{
    m_machine.SetTerminal(80, false);
    Change(1);
    Start({L"watch", L"tokyo"});
    EXPECT_THAT(Written(), StartsWith(std::string(kClear) + "Tokyo, 2012-07-02\n"));
    Change(2000);
    EXPECT_THAT(Written(), testing::AllOf(StartsWith(std::string(kClear) + "Tokyo, 2012-07-02\n"), HasSubstr("2,000")));
    EXPECT_EQ(End(), 1);
}

TEST_F(Watch, ShowsThatOfAPassOnce)
{
    Start({L"watch"});
    Written();
    for (const DWORD dataType : {kInstantUsage, kActualUsage, kPeakDemand}) {
        Put(kTokyo, dataType, FileOf(dataType, {}));
        m_machine.RunFor(750);
    }
    EXPECT_EQ(Written(), "");
    m_machine.RunFor(500);
    const std::string table = Written();
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1 + 1 + 3);
    EXPECT_EQ(End(), 1);
}

TEST_F(Watch, WaitsForFilesAndForTheirFolder)
{
    const std::string nothing = "amporactl: no data files in " + platform::EncodeUtf8(DataFolder()) + "\n";
    Start({L"watch"});
    EXPECT_EQ(Written(), nothing);
    Change(1);
    EXPECT_THAT(Written(), HasSubstr("Tokyo    instant usage"));
    m_machine.RemoveFile(DataFolder());
    m_machine.RunFor(1500);
    EXPECT_EQ(Written(), "\n" + nothing);
    Change(2);
    EXPECT_THAT(Written(), HasSubstr("Tokyo    instant usage"));
    Put(kTokyo, kInstantUsage, {1});
    m_machine.RunFor(1500);
    EXPECT_THAT(Written(), EndsWith("it has 1 bytes, less than a header (32 bytes)\n"));
    EXPECT_EQ(End(), 1);
}

TEST_F(Watch, FailsWhereNothingCanBeWatched)
{
    m_machine.FailCall(Call::kOpenFolderWatch, 1, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Run({L"watch", L"--folder", L"here"}), 1);
    EXPECT_EQ(m_err, "amporactl: here cannot be watched (error 3)\n");
    Change(1);
    Start({L"watch"});
    m_machine.FailEvery(Call::kWaitForFolderChange, ERROR_ACCESS_DENIED);
    Change(2);
    EXPECT_EQ(m_machine.ExitCodeOf(m_process), 1);
    EXPECT_THAT(m_complaints.str(), EndsWith(" cannot be watched any more (error 5)\n"));
}

} // namespace
