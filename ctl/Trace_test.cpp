#include "config/SharedNames.h"
#include "config/TraceLog.h"
#include "platform/DebugOutput.h"
#include "testing/ControlTest.h"

namespace {

using platform::Hive;
using platform::sim::Call;

constexpr wchar_t kMain[] = L"Software\\Halvex\\AmporaSrv";

class Trace : public testing_support::CControlTest {
protected:
    // Runs "trace ..." while other programs write; it ends because its channel does.
    void Follow(std::vector<CString> arguments)
    {
        m_machine.PutDword(Hive::kPerUser, kMain, L"LogLevel", 27);
        m_machine.StartProcess(1, [] {
            OutputTraceLine(L"ERR", L"Test::Updater::Update", L"e");
            OutputTraceLine(L"WAR", L"Test::Updater::Update", L"w");
            platform::OutputDebugText(L"a text of another program\n");
            platform::OutputDebugText(
                L"[ERR] 2012/07/02 13:00:00.000 1(2) Test::F : with the number of another process\n");
            OutputTraceLine(L"TRA", L"Test::UpdaterOther::Start", L"Enter");
            OutputTraceLine(L"TRA", L"Test::Parser::Load", L"t");
            return 0;
        });
        m_machine.FailCall(Call::kReadTraceText, 7, ERROR_INVALID_HANDLE);
        arguments.insert(arguments.begin(), L"trace");
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_THAT(m_err, testing::EndsWith("amporactl: the trace lines cannot be followed any longer (error 6)\n"));
    }

    // The lines without what differs from run to run.
    std::string Lines() const
    {
        std::istringstream lines(m_out);
        std::string all;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t stamp = line.find("] ");
            all += line.substr(0, stamp + 1) + line.substr(line.find(") ") + 1) + "\n";
        }
        return all;
    }
};

TEST_F(Trace, ShowsTheLinesOfAmporasrvAndNothingElse)
{
    Follow({});
    EXPECT_EQ(Lines(), "[ERR] Test::Updater::Update : e\n"
                       "[WAR] Test::Updater::Update : w\n"
                       "[TRA] Test::UpdaterOther::Start : Enter\n"
                       "[TRA] Test::Parser::Load : t\n");
    EXPECT_THAT(m_out, testing::StartsWith("[ERR] 2012/07/02 13:00:00.000 "));
}

TEST_F(Trace, ShowsTheWantedLevelsAndFunctionsOnly)
{
    const struct {
        std::vector<CString> arguments;
        std::string lines;
    } cases[] = {
        {{L"--level", L"err"}, "[ERR] Test::Updater::Update : e\n"},
        {{L"--level", L"err,war"}, "[ERR] Test::Updater::Update : e\n[WAR] Test::Updater::Update : w\n"},
        {{L"--function", L"test::updater::UPDATE", L"--level=war"}, "[WAR] Test::Updater::Update : w\n"},
        {{L"--function", L"Test::Updater"}, "[ERR] Test::Updater::Update : e\n[WAR] Test::Updater::Update : w\n"},
        {{L"--function", L"Test::Parser::Load"}, "[TRA] Test::Parser::Load : t\n"},
        {{L"--function", L"Parser::Load"}, ""},
    };
    for (const auto& [arguments, lines] : cases) {
        Follow(arguments);
        EXPECT_EQ(Lines(), lines);
    }
}

TEST_F(Trace, ColoursTheLevelsOnATerminal)
{
    m_machine.SetTerminal(40, true);
    Follow({});
    EXPECT_THAT(m_out, testing::StartsWith("\x1b[31m[ERR] "));
    EXPECT_THAT(m_out, testing::HasSubstr(" : e\x1b[0m\n\x1b[33m[WAR] "));
    EXPECT_THAT(m_out, testing::HasSubstr(" : w\x1b[0m\n\x1b[2m[TRA] "));
    EXPECT_THAT(m_out, testing::HasSubstr(" : Enter\x1b[0m\n[TRA] "));
}

TEST_F(Trace, NotesWhatKeepsLinesFromComing)
{
    m_machine.FailEvery(Call::kReadTraceText, ERROR_INVALID_HANDLE);
    EXPECT_EQ(Run({L"trace"}), 1);
    EXPECT_THAT(m_err, testing::StartsWith(
                           "amporactl: note: amporasrv is not running; waiting for it\n"
                           "amporactl: note: LogLevel is 0, so amporasrv writes nothing; change it with 'amporactl "
                           "config set LogLevel err,war,tra', then 'amporactl restart'\n"));
}

TEST_F(Trace, FailsWithTheReasonAndAWayOut)
{
    const struct {
        DWORD code;
        std::string text;
    } cases[] = {
        {ERROR_ALREADY_EXISTS, "another program shows the debugger output already; end it first\n"},
        {ERROR_NOT_SUPPORTED,
         "nobody keeps the trace lines of amporasrv; start it with 'systemctl --user start amporasrv', "
         "or with 'amporasrv 2>FILE' to find them in a file\n"},
        {ERROR_ACCESS_DENIED, "the trace lines cannot be followed (error 5)\n"},
    };
    for (const auto& [code, text] : cases) {
        m_machine.FailEvery(Call::kOpenTraceChannel, code);
        EXPECT_EQ(Run({L"trace"}), 1);
        EXPECT_EQ(m_err, "amporactl: " + text);
        EXPECT_EQ(m_out, "");
    }
    EXPECT_EQ(Run({L"trace", L"--level", L"errr"}), 2);
    EXPECT_THAT(m_err,
                testing::StartsWith("amporactl trace: --level: there is no level 'errr'; did you mean 'err'?\n"));
}

TEST_F(Trace, EndsWhenItsReaderHasGone)
{
    m_machine.PutDword(Hive::kPerUser, kMain, L"LogLevel", 27);
    m_machine.StartProcess(1, [] {
        OutputTraceLine(L"ERR", L"Test::F", L"1");
        OutputTraceLine(L"ERR", L"Test::F", L"2");
        return 0;
    });
    // A stream that takes nothing.
    struct : std::streambuf {
    } closed;
    std::ostream out(&closed);
    std::ostringstream err;
    EXPECT_EQ(RunControl({L"trace"}, out, err), 1);
    EXPECT_EQ(m_machine.CallCount(Call::kReadTraceText), 1U);
    m_machine.RunUntilIdle();
}

} // namespace
