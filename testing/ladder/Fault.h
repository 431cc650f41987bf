// What the ladder makes fail, and what the program's contract promises for it.
#pragma once

#include "platform/sim/Machine.h"

#include <optional>
#include <string>
#include <vector>

namespace ladder {

using platform::sim::Call;

// What else can fail; each counts as a call.
inline constexpr auto kApplicationMemory = Call::kCount; // operator new on a program's first thread
inline constexpr auto kWorkerMemory =
    static_cast<Call>(static_cast<unsigned>(Call::kCount) + 1);                              // on its other threads
inline constexpr auto kAnyCall = static_cast<Call>(static_cast<unsigned>(Call::kCount) + 2); // of CodeAmongAll
inline constexpr std::size_t kCalls = static_cast<std::size_t>(Call::kCount) + 3;

constexpr std::size_t IndexOf(Call call) { return static_cast<std::size_t>(call); }
std::string CallName(Call call);
// Empty for a name that is none.
std::optional<Call> CallNamed(const std::string& name);

struct Fault {
    Call call = kAnyCall;
    unsigned nth = 0;   // which of these calls fails, from 1; 0: none does
    bool lasts = false; // all later ones fail, too
    DWORD code = 0;     // last error, or COM status for the DOM
};

// What a data file may be afterwards; a file may be several at once.
enum FileState : unsigned {
    kOld = 1,    // as before the scenario, or still missing
    kNew = 2,    // as after the scenario without a fault; the time of writing may differ
    kPart = 4,   // as kNew, but some records are missing; the header counts those that are there
    kCut = 8,    // as kNew or kPart, but it ends early
    kZero = 16,  // as kNew or kPart, but some values are 0
    kOther = 32, // header and length are right, the records others
    kStray = 64, // there may be a file below the root folder, since the data folder was unknown
};

// What it takes until all files are right again, once nothing fails any more. A worker that ended without being told is
// started again by a resume only when a suspend comes before it.
enum Recovery : unsigned { kByItself, kOnEvent, kOnResume, kOnSuspend, kOnRestart, kNever };

// What must hold when a call has failed.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order in which a row is read
struct Contract {
    Call call;
    const char* scenario; // in which it holds; null: in those without a contract of their own
    DWORD code;
    // The first trace line of level ERR or WAR from there on, such as "ERR Open Fail.", and the second one; null: none
    // is promised. Alternatives stand between "|". A "%08X" in it is the code.
    const char* line;
    const char* secondLine;
    unsigned files;    // of FileState: the file in turn; all files, when the pass has not sent its first request
    Recovery recovery; // at worst
};

// code: empty: the contract's first one. Ends the program when there is no contract.
const Contract& ContractOf(Call call, const std::string& scenario, std::optional<DWORD> code = std::nullopt);
// With which code a call fails when all calls do; empty for what cannot fail, for another way of failing of the same
// call, and for the debugger output, whose lines are looked at.
std::optional<DWORD> CodeAmongAll(Call call);
// With which codes it is to fail: those that mean something different. Empty for what cannot fail.
std::vector<DWORD> CodesOf(Call call);

} // namespace ladder
