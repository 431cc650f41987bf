// The frame of the tests of the program's life.
#pragma once

#include "testing/system/Sequences.h"
#include "testing/system/SystemTest.h"

#include <map>
#include <string>
#include <vector>

namespace system_test {

// Messages to the window, and the handlers that get them.
inline constexpr unsigned kPower = 536;   // WM_POWERBROADCAST
inline constexpr unsigned kSession = 689; // WM_WTSSESSION_CHANGE
inline constexpr const char* kPowerHandler = "OnPowerBroadcast";
inline constexpr const char* kSessionHandler = "OnSessionChange";

inline constexpr const char* kInitInstance = "CAmporaSrvApp::InitInstance";
inline constexpr const char* kThreadProc = "CAmporaUpdater::ThreadProc";

// How long an end may take that nothing holds up, on a machine that is busy.
inline constexpr std::chrono::seconds kEndLimit{20};

// A function's entry and exit around these lines.
Lines Scope(const std::string& function, const Lines& inner = {});
// What "/Exit" traces around these lines.
Lines ExitMode(const Lines& inner);
// A first pass that sees, after a download, that it is to end; without what it says of companies.
Lines PassThatIsCutShort();

class CLifeTest : public CSystemTest {
protected:
    using Values = std::map<std::string, int>;
    using CSystemTest::CSystemTest;

    // The settings of a copy whose interval leaves nothing to chance and, unless other sections of sites are given,
    // whose pass makes two requests. values: of the main key, in place of others.
    std::string Settings(const Values& values = {}, unsigned logLevel = kMessages,
                         const std::string& sites = OnlySetting("tokyo", 8)) const;
    std::unique_ptr<CCopy> StartBrief(const Values& values = {}, unsigned logLevel = kMessages,
                                      const std::string& sites = OnlySetting("tokyo", 8));
    // The same, and waits as AwaitArmed does.
    std::unique_ptr<CCopy> StartArmed(const Values& values = {}, unsigned logLevel = kMessages);
    // The same while updating is off.
    std::unique_ptr<CCopy> StartOff(Values values = {});
    // The same, and waits until the download of its first report hangs, which EndStalled ends.
    std::unique_ptr<CCopy> StartStalled(const std::string& sites = OnlySetting("tokyo", 8));
    // Values of a base time without chance.
    static Values BaseTime(int hour, int randomMinutes);
    // Lets the copies started from here on live in a time zone where it is this time now.
    void SetLocalTime(int hour, int minute, int second = 0);

    void AwaitFirstRequest();

    // What other processes of the session do.
    void ManualUpdate();
    bool Post(unsigned message, unsigned wParam);
    // The same when the window's queue may be full.
    bool PostRetrying(unsigned message, unsigned wParam);
    // Posts two messages: the first ends the worker of a copy that waits, the second starts another one. says: what the
    // handler traces each time.
    void SuspendAndResume(CCopy& copy, unsigned message, unsigned off, unsigned on, const std::string& handler,
                          const std::vector<std::string>& says);

    // What the workers of a copy trace that runs a first pass, waits for its interval, does this meanwhile, and ends.
    static void ExpectWorkers(const CopyOutput& pass, const Lines& meanwhile = {});
    // A further copy with these arguments ends at once, because one runs.
    void ExpectRunTwice(const std::vector<std::string>& arguments);
    // The workers of a copy that was suspended and resumed once, and ended.
    static void ExpectTwoWorkers(const CopyOutput& pass);
    // A new copy starts and runs a whole pass.
    void ExpectHealthyPassOfANewCopy();
    // No pass has begun before the one before it was over: each request is the next one of its pass, or the first of
    // another.
    void ExpectNoOverlap() const;
};

} // namespace system_test
