#include "platform/LastError.h"
#include "platform/Sync.h"
#include "testing/CopyTest.h"

namespace {

using platform::sim::Call;

class Update : public testing_support::CControlTest {};

TEST_F(Update, SetsTheEventThatAmporasrvWaitsFor)
{
    const platform::WaitHandle event = platform::CreateNamedEvent(L"AmporaSrvUpdateEvent", nullptr);
    EXPECT_EQ(platform::WaitForOne(event, 0, FALSE), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(Run({L"update"}), 0);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, "");
    EXPECT_EQ(platform::WaitForOne(event, 0, FALSE), DWORD{WAIT_OBJECT_0});
}

TEST_F(Update, FailsWhenAmporasrvIsNotRunning)
{
    // Symptom: looking for the event made it; an amporasrv started in that moment got one that is not open to all.
    EXPECT_EQ(Run({L"update"}), 1);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(m_err, "amporactl: amporasrv is not running\n");
    EXPECT_EQ(m_machine.CallCount(Call::kCreateNamedEvent), 0U);
}

TEST_F(Update, FailsWhenTheEventCannotBeOpened)
{
    m_machine.FailEvery(Call::kOpenNamedEvent, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run({L"update"}), 1);
    EXPECT_EQ(m_err, "amporactl: amporasrv cannot be asked (error 5)\n");
}

// Waiting.

class UpdateWait : public testing_support::CCopyTest {
protected:
    static constexpr char kOff[] = "amporactl: updating is off, amporasrv ignores requests; "
                                   "'amporactl config set Enable 1 --machine' switches it on\n";

    // Only Tokyo's instant and actual usage are wanted.
    void WantTwoFiles()
    {
        using platform::Hive;
        constexpr wchar_t kSiteKey[] = L"Software\\Halvex\\AmporaSrv\\site\\";
        for (const catalogue::Company& company : catalogue::kCompanies) {
            m_machine.PutDword(Hive::kMachine, kSiteKey + std::to_wstring(company.siteNumber), L"SupportDataType",
                               company.siteNumber == catalogue::kTokyo ? 3 : 0);
        }
    }
    // A copy that has made its first pass, whose answers take a second each.
    void StartUpdating()
    {
        SwitchUpdatingOn();
        WantTwoFiles();
        AnswerWithReports(1000);
        StartCopy();
        m_machine.RunFor(60'000);
    }
    std::size_t RequestCount() const { return m_machine.HttpExchanges().size(); }
};

TEST_F(UpdateWait, ReturnsWhenThePassHasWrittenItsFiles)
{
    StartUpdating();
    const std::int64_t before = m_machine.ElapsedMs();
    ExpectRun({L"update", L"--wait"}, 0, "", "");
    EXPECT_EQ(RequestCount(), 8U);
    EXPECT_LE(m_machine.ElapsedMs() - before, 4100) << "four answers of a second each";
    EXPECT_FALSE(m_machine.IsMutexOwned(kUpdateMutexName));
}

TEST_F(UpdateWait, PassThatRunsAlreadyIsFollowedByTheOneThatIsWaitedFor)
{
    StartUpdating();
    EXPECT_EQ(Run({L"update"}), 0);
    m_machine.RunFor(3500);
    ExpectRun({L"update", L"--wait"}, 0, "", "");
    EXPECT_EQ(RequestCount(), 12U);
}

TEST_F(UpdateWait, ShowsItsProgressOnATerminalOnly)
{
    StartUpdating();
    m_machine.SetTerminal(40, false);
    EXPECT_EQ(Run({L"update", L"--wait"}), 0);
    EXPECT_THAT(m_out, testing::StartsWith("\r0 of 2 files\r"));
    EXPECT_THAT(m_out, testing::HasSubstr("\r1 of 2 files\r"));
    EXPECT_THAT(m_out, testing::EndsWith("\r2 of 2 files\n"));
}

TEST_F(UpdateWait, NamesWhatHasNotBeenRenewed)
{
    StartUpdating();
    m_machine.PutFile(DataFileIn(DataFolder(), catalogue::kTokyo, catalogue::kActualUsage), {.readOnly = true});
    ExpectRun({L"update", L"--wait"}, 1, "", "amporactl: Tokyo actual usage has not been renewed\n");
    AnswerWithReports(1000);
    m_machine.SetFreeBytes(130); // for one file of two records, and a part of the next
    m_machine.PutFile(DataFileIn(DataFolder(), catalogue::kTokyo, catalogue::kActualUsage), {});
    EXPECT_EQ(Run({L"update", L"--wait"}), 1);
    EXPECT_THAT(m_err, testing::HasSubstr("amporactl: Tokyo actual usage: it has 18 bytes, less than a header"));
}

TEST_F(UpdateWait, PassThatFailsAtOnceIsOverSoon)
{
    StartUpdating();
    m_machine.SetHttpHandler(
        [](const auto&) { return testing_support::HttpAnswer{.fault = testing_support::HttpFault::kRefused}; });
    ExpectRun({L"update", L"--wait"}, 1, "", "amporactl: no file has been renewed; 'amporactl status' tells why\n");
}

TEST_F(UpdateWait, GivesUpWhenTheTimeIsUp)
{
    StartUpdating();
    ExpectRun({L"update", L"--wait", L"--timeout", L"2"}, 1, "", "amporactl: no pass has ended within 2 seconds\n");
    m_machine.RunFor(60'000);
    EXPECT_EQ(RequestCount(), 8U) << "the request stays";
    EXPECT_EQ(Run({L"update", L"--timeout", L"2"}), 2) << "without --wait it has no meaning";
}

TEST_F(UpdateWait, SaysAtOnceWhyThereWillBeNoPass)
{
    ExpectRun({L"update", L"--wait"}, 1, "", kOff);
    SwitchUpdatingOn();
    ExpectRun({L"update", L"--wait"}, 1, "", "amporactl: amporasrv is not running\n");
    StartCopy();
    m_machine.NotifyPower(PBT_APMSUSPEND);
    m_machine.RunFor(1000);
    ExpectRun({L"update", L"--wait"}, 1, "",
              "amporactl: amporasrv makes no passes now: the machine suspends, or the session has been left\n");
    m_machine.NotifyPower(PBT_APMRESUMEAUTOMATIC);
    m_machine.RunFor(1000);
    m_machine.FailCall(Call::kOpenNamedMutex, 1, ERROR_ACCESS_DENIED);
    ExpectRun({L"update", L"--wait"}, 1, "", "amporactl: passes cannot be watched (error 5)\n");
    for (const catalogue::Company& company : catalogue::kCompanies) {
        m_machine.PutDword(platform::Hive::kMachine,
                           L"Software\\Halvex\\AmporaSrv\\site\\" + std::to_wstring(company.siteNumber), L"Enable", 0);
    }
    ExpectRun({L"update", L"--wait"}, 1, "", "amporactl: the settings switch all companies or kinds off\n");
    EXPECT_EQ(m_machine.ElapsedMs(), 2000) << "nothing was waited for";
}

} // namespace
