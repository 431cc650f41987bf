#include "testing/system/Sequences.h"

#include <algorithm>

namespace system_test {

using testing_support::TraceLine;

namespace {

constexpr const char* kThreadProc = "CAmporaUpdater::ThreadProc";

Lines Of(const std::string& function, const std::vector<std::string>& messages)
{
    Lines lines;
    for (const std::string& message : messages) {
        lines.push_back({"TRA", function, message});
    }
    return lines;
}

Lines TimerStarted() { return Of("CWaitTableTimer::Start", {"Timer Started"}); }

Lines TimerCanceled() { return Of("CWaitTableTimer::Cancel", {"Timer Canceled."}); }

std::string Text(int number) { return std::to_string(number); }

bool IsStep(const TraceLine& line)
{
    return line.message != "Enter" && line.message != "Leave" && !line.function.starts_with("CXMLParser::") &&
           line.function != "CAmporaDataCollection::AdjustData";
}

bool IsLife(const TraceLine& line)
{
    const std::vector<std::string> others = {
        "SiteConfig", "PowerCompany", "CXMLParser::", "Analyzer::", "DataCollection::", "::GetData"};
    return std::none_of(others.begin(), others.end(),
                        [&](const std::string& other) { return line.function.find(other) != std::string::npos; });
}

template <typename Condition>
Lines Only(const Lines& lines, Condition condition)
{
    Lines chosen;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(chosen), condition);
    return chosen;
}

} // namespace

Lines operator+(Lines first, const Lines& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Lines MainLines(const CopyOutput& pass)
{
    Lines lines;
    for (const StampedLine& line : pass.lines) {
        if (line.thread == pass.lines.front().thread) {
            lines.push_back(line.trace);
        }
    }
    return lines;
}

Lines WorkerLines(const CopyOutput& pass)
{
    std::vector<unsigned> threads; // in order of their first lines
    std::map<unsigned, Lines> byThread;
    for (const StampedLine& line : pass.lines) {
        if (line.thread != pass.lines.front().thread) {
            if (!byThread.contains(line.thread)) {
                threads.push_back(line.thread);
            }
            byThread[line.thread].push_back(line.trace);
        }
    }
    Lines lines;
    for (const unsigned thread : threads) {
        lines = std::move(lines) + byThread[thread];
    }
    return lines;
}

Lines Steps(const Lines& lines) { return Only(lines, IsStep); }

Lines Life(const Lines& lines) { return Only(lines, IsLife); }

Lines ProgramStart() { return Of("CAmporaSrvApp::InitInstance", {"Set Window Class"}); }

Lines ProgramEnd() { return Of("CAmporaSrvApp::ExitInstance", {"Close Mutex"}); }

Lines DialogSays(const std::string& handler, const std::string& message)
{
    return Of("CAmporaSrvDlg::" + handler, {message});
}

Lines AlreadyStarted() { return Of("CAmporaUpdater::Start", {"Already Started"}); }

Lines TimerMade() { return Of("CWaitTableTimer::Create", {"Created Timer"}) + Of(kThreadProc, {"Created Timer"}); }

Lines BaseTimeArmed(int fixedClock, int randomMinutes)
{
    return Of(kThreadProc, {"Before Base Update Time.(" + Text(fixedClock) + " clock)",
                            "Set Random mins is " + Text(randomMinutes)}) +
           TimerStarted() + Of(kThreadProc, {"Start UpdateTimer"});
}

Lines BaseTimeOver(int fixedClock)
{
    return Of(kThreadProc, {"After Base Update Time.(" + Text(fixedClock) + " clock)"});
}

Lines IntervalArmed(int interval, int random)
{
    const std::string bound = Text(random) + "min";
    return Of("CAmporaUpdater::SetIntervalUpdate", {"Interval:" + Text(interval) + "min, Rand:" + bound + " - " + bound,
                                                    "Set Interval:" + Text(interval + random) + "min"}) +
           TimerStarted() + Of(kThreadProc, {"Next UpdateTimer Started"});
}

Lines FirstPass() { return Of(kThreadProc, {"Update Flag ON", "Updated"}); }

Lines LaterPass() { return Of(kThreadProc, {"Update Flag ON"}); }

Lines UpdatingIsOff() { return Of(kThreadProc, {"Update Flag OFF"}); }

Lines TimerDue() { return Of(kThreadProc, {"Update Timer Over"}); }

Lines WokenUp() { return TimerCanceled() + Of(kThreadProc, {"Exit Signal or Manual Update"}); }

Lines WorkerEnd() { return Of(kThreadProc, {"Exit Signal."}) + TimerCanceled(); }

} // namespace system_test
