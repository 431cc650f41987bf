// What must hold whenever the program does something, and whenever all its threads wait.
#pragma once

#include "testing/simulation/State.h"

#include <span>

namespace simulation {

// What is seen at the moment; the state is the one before it.
enum class Moment {
    kStarts,      // a program starts a worker, or tries to
    kPulses,      // a program stops its worker
    kReturns,     // a program's entry returns
    kLooksUp,     // a worker looks up a setting
    kLooksUpSite, // the same, of a site
    kDecides,     // it has read whether updating is enabled: it begins a pass, or leaves it out
    kReadsBase,   // it has read the settings of the base time
    kReadsInterval,
    kTakesMutex, // of updates; worker: null for a process of somebody else
    kGivesMutex, // gives it back, or ends as its owner
    kRequests,
    kHasAnswer, // a download ended before this moment
    kOpensFile,
    kClosesFile,
    kWorkerEnds,
    kIdle,        // all threads wait
    kProgramIdle, // the same, for each program
    kWorkerIdle,  // and for each worker,
    kStoppedIdle, // or for one that has been told to end
    kConverged,   // every session had the time for a pass since the faults stopped
    kTakenDown,   // all programs were told to quit, and had the time
};

struct Seen {
    const State& state;
    Moment moment;
    const ProgramState* program = nullptr;
    const WorkerState* worker = nullptr;
    platform::Hive hive = {};           // of a setting that is looked up
    int site = kMainKeySite;            // the same
    std::wstring_view name = {};        // of a setting; a file's path
    std::string target = {};            // of a request
    bool isAbandoned = false;           // the mutex
    std::span<const BYTE> content = {}; // of a file that is closed
};

struct Invariant {
    const char* name;
    const char* meaning;
    Moment moment;
    bool (*holds)(const Seen& seen);
};
std::span<const Invariant> Invariants();

// An invariant that does not hold.
struct Violation {
    std::int64_t nowMs = 0;
    std::string invariant = {};
    std::string text = {}; // its name, its meaning, and who broke it
};
// The first one of the moment; empty when all hold.
std::optional<Violation> FindViolation(const Seen& seen);

} // namespace simulation
