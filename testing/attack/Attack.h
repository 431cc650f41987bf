// Attacks on the real program that are made many times, and what came of them.
#pragma once

#include "testing/attack/Target.h"

#include <functional>
#include <iosfwd>

namespace attack {

// What came of attacks of one kind.
struct Outcome {
    std::string title;
    std::map<std::string, long> counts; // of the lines of the table of figures
    std::vector<std::string> findings;
};

// The lines of that table. A pass leaves each data file in one of four states.
namespace figure {
inline constexpr const char* kAttacks = "runs";
inline constexpr const char* kMet = "with a fault at the start or in the pass";
inline constexpr const char* kMetAtEnd = "with a fault at the end only";
inline constexpr const char* kGaveUp = "the program ended by itself, with status 1";
inline constexpr const char* kKilledEarly = "killed before the first request of a pass";
inline constexpr const char* kKilledInPass = "killed after it";
inline constexpr const char* kRenewed = "data files written anew";
inline constexpr const char* kOld = "data files left as they were";
inline constexpr const char* kCut = "data files cut off";
inline constexpr const char* kThinned = "data files with records missing or without value";
inline constexpr const char* kSameCopy = "all files right after another pass of the same copy";
inline constexpr const char* kNextCopy = "all files right after a new start only";
} // namespace figure

// Makes attacks 0 to count - 1, each once, on all processors, each of which has a target of its own. attack: runs on
// several threads at a time, with a target of the thread; counts what it sees in its outcome, throws CFinding. name:
// the attack in words, for a finding. Tells its progress on standard error.
Outcome MakeAttacks(const std::string& title, std::size_t count,
                    const std::function<void(CTarget&, std::size_t, Outcome&)>& attack,
                    const std::function<std::string(std::size_t)>& name);

// Counts the data files that a pass has left in each state. Throws CFinding when more than one is cut off.
void CountFiles(const FileCounts& files, Outcome& outcome);

// Starts a copy and begins a pass. strace counts from when the libraries have been loaded. options: strace's, beside
// its log, which becomes the file "attack" in the rig's folder.
std::unique_ptr<system_test::CCopy> StartTraced(CTarget& target, const std::string& options);

// Lets system calls of a start, a pass and an end fail, each once: every so many of them.
Outcome FailCalls(unsigned every);
// The same for allocations: each once; each with all that follow it.
Outcome FailAllocations(unsigned every);
Outcome EndAllocations(unsigned every);
// Kills the program at random moments, which the seed decides.
Outcome Kill(std::size_t count, unsigned seed);

} // namespace attack
