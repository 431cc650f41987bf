#include "testing/system/Life.h"

#include <algorithm>
#include <array>

namespace system_test {

using testing::SizeIs;
using testing_support::TraceLine;

namespace {

constexpr std::chrono::seconds kRequestLimit{60};

// Offset from universal time as a time zone of the environment names it.
std::string ZoneOf(int eastSeconds)
{
    const int seconds = std::abs(eastSeconds);
    std::array<char, 32> zone{};
    std::snprintf(zone.data(), zone.size(), "TST%c%02d:%02d:%02d", eastSeconds > 0 ? '-' : '+', seconds / 3600,
                  seconds / 60 % 60, seconds % 60);
    return zone.data();
}

} // namespace

Lines Scope(const std::string& function, const Lines& inner)
{
    return Lines{{"TRA", function, "Enter"}} + inner + Lines{{"TRA", function, "Leave"}};
}

Lines ExitMode(const Lines& inner) { return Lines{{"TRA", kInitInstance, "Exit Mode"}} + inner; }

Lines PassThatIsCutShort()
{
    return {FirstPass().front(),
            {"TRA", "CAmporaUpdater::Update", "Exit Flag ON"},
            {"WAR", kThreadProc, "Update Fail."},
            {"TRA", kThreadProc, "Exit..."}};
}

std::string CLifeTest::Settings(const Values& values, unsigned logLevel, const std::string& sites) const
{
    return BaseSettings(Port(), logLevel) + MainSettings(kFixedInterval) + MainSettings(values) + sites;
}

std::unique_ptr<CCopy> CLifeTest::StartBrief(const Values& values, unsigned logLevel, const std::string& sites)
{
    return StartCopy(MainSettings(kFixedInterval) + MainSettings(values) + sites, logLevel);
}

std::unique_ptr<CCopy> CLifeTest::StartArmed(const Values& values, unsigned logLevel)
{
    std::unique_ptr<CCopy> copy = StartBrief(values, logLevel);
    AwaitArmed(*copy);
    return copy;
}

std::unique_ptr<CCopy> CLifeTest::StartOff(Values values)
{
    values["Enable"] = 0;
    return StartArmed(values);
}

std::unique_ptr<CCopy> CLifeTest::StartStalled(const std::string& sites)
{
    SetAnswerForAll([this](const Request& request) {
        testing_support::HttpAnswer answer = Healthy().Answer(request);
        if (Exchanges().size() == 1) {
            answer.fault = testing_support::HttpFault::kStalled;
        }
        return answer;
    });
    std::unique_ptr<CCopy> copy = StartBrief({}, kMessages, sites);
    AwaitFirstRequest();
    return copy;
}

CLifeTest::Values CLifeTest::BaseTime(int hour, int randomMinutes)
{
    return {{"FixedClock", hour}, {"FixedClockMin", randomMinutes}, {"FixedClockMax", randomMinutes}};
}

void CLifeTest::SetLocalTime(int hour, int minute, int second)
{
    constexpr int kDay = 24 * 60 * 60;
    const int wanted = (hour * 60 + minute) * 60 + second;
    const int east = (wanted - static_cast<int>(std::time(nullptr) % kDay) + kDay) % kDay;
    Rig().SetVariable("TZ", ZoneOf(east > kDay / 2 ? east - kDay : east));
}

void CLifeTest::AwaitFirstRequest()
{
    EXPECT_TRUE(WaitUntil([&] { return !Exchanges().empty(); }, kRequestLimit));
}

void CLifeTest::ManualUpdate() { EXPECT_TRUE(Rig().Do("set AmporaSrvUpdateEvent")); }

bool CLifeTest::Post(unsigned message, unsigned wParam)
{
    return Rig().Do("post Ampora " + std::to_string(message) + " " + std::to_string(wParam) + " 0");
}

bool CLifeTest::PostRetrying(unsigned message, unsigned wParam)
{
    return WaitUntil([&] { return Post(message, wParam); }, kRequestLimit);
}

void CLifeTest::SuspendAndResume(CCopy& copy, unsigned message, unsigned off, unsigned on, const std::string& handler,
                                 const std::vector<std::string>& says)
{
    EXPECT_TRUE(Post(message, off));
    EXPECT_TRUE(copy.WaitForLine(DialogSays(handler, says[0]).front()));
    // Twice: when its wait ends and when it closes the timer.
    EXPECT_TRUE(copy.WaitForLine(WorkerEnd().back(), 2));
    EXPECT_TRUE(Post(message, on));
    EXPECT_TRUE(copy.WaitForLine(DialogSays(handler, says[1]).front()));
    AwaitArmed(copy, 2);
}

void CLifeTest::ExpectRunTwice(const std::vector<std::string>& arguments)
{
    const std::unique_ptr<CCopy> second = Rig().Start(arguments);
    EXPECT_EQ(second->WaitForExit(kEndLimit), 0);
    const CopyOutput pass = second->Trace();
    EXPECT_EQ(pass.brokenLines, 0) << pass.text;
    EXPECT_EQ(MainLines(pass), (Lines{{"TRA", kInitInstance, "Run 2 times"}} + ProgramEnd()));
    EXPECT_THAT(WorkerLines(pass), SizeIs(0));
}

void CLifeTest::ExpectWorkers(const CopyOutput& pass, const Lines& meanwhile)
{
    EXPECT_EQ(Life(WorkerLines(pass)),
              FirstPass() + TimerMade() + IntervalArmed() + meanwhile + WokenUp() + WorkerEnd());
}

void CLifeTest::ExpectTwoWorkers(const CopyOutput& pass)
{
    ExpectWorkers(pass, WokenUp() + WorkerEnd() + TimerMade() + IntervalArmed());
}

void CLifeTest::ExpectHealthyPassOfANewCopy()
{
    SetAnswerForAll({});
    const std::size_t before = Requests().size();
    const std::unique_ptr<CCopy> copy = StartArmed();
    EXPECT_THAT(Requests(), SizeIs(before + 2));
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
    ExpectWorkers(pass);
    ExpectHealthyFile("tokyo", 8);
}

void CLifeTest::ExpectNoOverlap() const
{
    std::vector<Request> wholePass;
    for (const TestCompany& company : kTestCompanies) {
        for (const unsigned dataType : KindsOf(company.word)) {
            for (const std::string& date : Dates()) {
                wholePass.push_back({company.word, dataType, date});
            }
        }
    }
    std::size_t next = wholePass.size(); // in the pass that runs
    for (const Request& request : Requests()) {
        const bool goesOn = next < wholePass.size() && request == wholePass[next];
        ASSERT_TRUE(goesOn || request == wholePass.front()) << TargetOf(request) << " as number " << next;
        next = goesOn ? next + 1 : 1;
    }
}

} // namespace system_test
