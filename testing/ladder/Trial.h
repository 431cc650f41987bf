// Runs the whole program on the simulated machine through one scenario in which one thing fails.
#pragma once

#include "config/TraceLog.h"
#include "testing/ladder/Fault.h"

#include <array>
#include <map>
#include <span>

namespace ladder {

class CTrial;

// A piece of the program's life in which something fails.
struct Scenario {
    const char* name;
    const char* meaning;
    bool isRunning;        // the program runs already and has made a pass
    bool isUncertain;      // what fails decides whether a pass is made and how far it comes: any file may be old or new
    Recovery recovery;     // without a fault
    DWORD logLevel;        // the trace log's mask
    WORD hour;             // at which the machine starts
    DWORD intervalMinutes; // between passes
    DWORD latencyMs;       // of each answer
    unsigned every;        // of each kind of call only each so many fails
    void (*act)(CTrial& trial);
};
// The whole trace.
inline constexpr DWORD kWholeTrace = kTraceErr | kTraceWar | kTraceTra | kTraceScope;

std::span<const Scenario> Scenarios();

using Files = std::map<CString, std::vector<BYTE>>; // by path

// What a trial showed.
struct Outcome {
    std::array<unsigned, kCalls> counts = {}; // calls in the scenario
    Files before = {};                        // of the disk, when the scenario began
    Files after = {};                         // when it had ended
    Files final = {};                         // after the recovery
    Files inFull = {};                        // after a pass without faults; only of a reference
    Recovery recovery = kNever;
    unsigned requestsBefore = 0;     // requests of the scenario when it first failed
    std::optional<Call> failed = {}; // kind of the call that failed first; empty: none did
    std::vector<CString> lines = {}; // trace lines of level ERR and WAR from there on
    int apartments = 0;              // entered and not left
    bool keepsMutex = false;         // after the recovery a worker that makes no pass owns the update mutex
    std::string leftovers = {};      // what was still there when all programs had been told to end
};

// fault: what fails; wanted: the files after the recovery, null: the first pass is taken as right. Prints the whole
// trace when printsTrace is set. Ends the program when the trial can neither go on nor end.
Outcome RunTrial(const Scenario& scenario, const Fault& fault, const Files* wanted, bool printsTrace);

// Whether all the wanted files are there, with the wanted content; the times of writing may differ.
bool SameButForTime(const Files& files, const Files& wanted);

// What of it is not as promised; empty: nothing. reference: the trial of the scenario without a fault.
std::string Judge(const Scenario& scenario, const Fault& fault, const Outcome& reference, const Outcome& outcome);

} // namespace ladder
