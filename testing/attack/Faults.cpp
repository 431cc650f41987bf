// Attacks by what fails: system calls, by strace, and allocations, by a preloaded library.
#include "testing/attack/Attack.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <set>

namespace attack {

using system_test::CCopy;

namespace {

using CopyPtr = std::unique_ptr<CCopy>;

// A message may still be on its way from the program.
constexpr std::chrono::seconds kMessageLimit{5};

// Faults in one run of the program.
struct Faults {
    std::function<bool()> areMet;               // by now
    std::function<void()> endAfterPass = [] {}; // the first one
    bool isMemory = false;                      // short of
};

// What a pass with faults may have come to. exitCode: of a copy that has ended.
void LookAtPass(CTarget& target, CCopy& copy, std::optional<int> exitCode, bool isMemory, Outcome& outcome)
{
    const FileCounts files = target.LookAtFiles(isMemory);
    CountFiles(files, outcome);
    const auto hasSaidSo = [&] { return copy.Text().find("[ERR]") != std::string::npos; };
    if (files.thinned > 0 && !system_test::WaitUntil(hasSaidSo, kMessageLimit)) {
        throw CFinding("records are missing without a message: " + copy.Text());
    }
    // Without memory it cannot say why.
    if (exitCode && (exitCode != 1 || (copy.Text().empty() && !isMemory))) {
        throw CFinding("it ends by itself with status " + std::to_string(*exitCode) + ": " + copy.Text());
    }
    outcome.counts[figure::kGaveUp] += exitCode.has_value();
}

void RunWithFaults(CTarget& target, CCopy& copy, const Faults& faults, Outcome& outcome)
{
    const std::optional<int> exitCode = CTarget::AwaitRest(copy);
    const bool metInPass = faults.areMet();
    outcome.counts[figure::kMet] += metInPass;
    LookAtPass(target, copy, exitCode, faults.isMemory, outcome);
    faults.endAfterPass();
    bool areRight = target.FilesAreRight();
    if (!exitCode && metInPass && target.MakeAnotherPass(copy)) {
        areRight = target.FilesAreRight();
        outcome.counts[figure::kSameCopy] += areRight;
    }
    if (!exitCode) {
        target.End(copy);
        outcome.counts[figure::kMetAtEnd] += !metInPass && faults.areMet();
    }
    if (!areRight) {
        target.Recover();
        ++outcome.counts[figure::kNextCopy];
    }
}

std::string AttackFile(CTarget& target) { return (target.Rig().ScratchFolder() / "attack").string(); }

// variable: what the preloaded library is told.
CopyPtr StartPreloaded(CTarget& target, const std::string& variable)
{
    target.BeginPass();
    target.Rig().SetWrapper({"env", std::string("LD_PRELOAD=") + AMPORA_PRELOADED, variable});
    CopyPtr copy = target.Rig().Start();
    target.Rig().SetWrapper({});
    return copy;
}

// System calls.

// The errors that calls fail with; others fail with the first line's.
const std::map<std::string, std::vector<std::string>> kErrors = {
    {"", {"error=ENOMEM"}},
    {"bind", {"error=EADDRINUSE", "error=EACCES"}},
    {"clone3", {"error=EAGAIN"}},
    {"close", {"error=EIO"}},
    {"connect", {"error=ECONNREFUSED", "error=EINTR", "error=EACCES"}},
    {"eventfd2", {"error=EMFILE"}},
    {"faccessat2", {"error=EACCES"}},
    {"fchmod", {"error=EPERM", "error=EROFS"}},
    {"fcntl", {"error=ENOLCK"}},
    {"flock", {"error=ENOLCK", "error=EINTR"}},
    {"ftruncate", {"error=EIO", "error=EINTR"}},
    {"getsockopt", {"error=ENOBUFS"}},
    {"mkdir", {"error=ENOSPC", "error=EACCES"}},
    {"mknodat", {"error=ENOSPC"}},
    {"newfstatat", {"error=EACCES", "error=EIO"}},
    {"openat", {"error=EMFILE", "error=ENFILE", "error=EACCES"}},
    {"poll", {"error=EINTR", "error=ENOMEM"}},
    {"ppoll", {"error=EINTR", "error=ENOMEM"}},
    {"pread64", {"error=EIO"}},
    {"pwrite64", {"error=EIO", "error=ENOSPC"}},
    {"read", {"error=EIO", "error=EINTR"}},
    {"recvfrom", {"error=ECONNRESET", "error=EAGAIN", "error=EINTR"}},
    {"recvmsg", {"error=EAGAIN", "error=ENOMEM"}},
    {"sendto", {"error=ECONNRESET", "error=EAGAIN", "error=EPIPE"}},
    {"signalfd4", {"error=EMFILE"}},
    {"socket", {"error=EMFILE", "error=ENOBUFS"}},
    {"socketpair", {"error=EMFILE"}},
    {"timerfd_create", {"error=EMFILE"}},
    {"unlinkat", {"error=EACCES"}},
    {"write", {"error=ENOSPC", "error=EIO", "error=EINTR", "retval=1"}},
};
constexpr unsigned kFrequent = 50; // calls
// What cannot fail on a sound system, does not fail by an error number, or whose failure the C library answers by
// ending the process.
const std::set<std::string> kFaultless = {"brk",     "exit",           "exit_group",   "futex",
                                          "geteuid", "getpid",         "gettid",       "getuid",
                                          "rseq",    "rt_sigprocmask", "rt_sigreturn", "set_robust_list"};
// Those that do not change what their path names.
const std::set<std::string> kLooking = {"access",     "execve",   "faccessat", "faccessat2",
                                        "newfstatat", "readlink", "statfs"};

struct CallFault {
    std::string call;
    std::string fault;
    std::size_t occurrence = 1; // in each thread
};

struct LoggedCall {
    std::string thread;
    std::string call;
    std::string rest; // of the line
};

// The calls that strace has written down so far.
std::vector<LoggedCall> ReadLog(CTarget& target)
{
    std::vector<LoggedCall> calls;
    std::ifstream log(AttackFile(target));
    for (std::string line; std::getline(log, line);) {
        const std::size_t call = line.find_first_not_of(' ', line.find(' '));
        const std::size_t end = line.find('(', call);
        if (end != std::string::npos && line.find_first_of("<+-", call) > end) { // neither an end nor a signal
            calls.push_back({line.substr(0, line.find(' ')), line.substr(call, end - call), line.substr(end)});
        }
    }
    return calls;
}

bool IsInjected(const LoggedCall& each) { return each.rest.ends_with("(INJECTED)"); }

// Every call, as often as any thread makes it, with every error; the errors of frequent calls in turn.
std::vector<CallFault> ListCallFaults()
{
    CTarget target;
    target.Recover();
    const CopyPtr copy = StartTraced(target, "");
    if (CTarget::AwaitRest(*copy)) {
        throw std::runtime_error("strace does not work: " + copy->Text());
    }
    target.End(*copy);
    std::map<std::string, std::map<std::string, unsigned>> counts; // by call and thread
    for (const LoggedCall& each : ReadLog(target)) {
        if (!kFaultless.contains(each.call)) {
            ++counts[each.call][each.thread];
        }
    }
    std::vector<CallFault> faults;
    for (const auto& [call, threads] : counts) {
        const unsigned most =
            std::ranges::max_element(threads, {}, [](const auto& each) { return each.second; })->second;
        const std::vector<std::string>& errors = kErrors.contains(call) ? kErrors.at(call) : kErrors.at("");
        for (std::size_t i = 0; i < most * (most > kFrequent ? 1 : errors.size()); ++i) {
            faults.push_back({call, errors[i % errors.size()], most > kFrequent ? i + 1 : i / errors.size() + 1});
        }
    }
    return faults;
}

void ExpectNothingChangedOutside(CTarget& target)
{
    const std::string own = "\"" + target.Rig().ScratchFolder().string() + "/";
    for (const LoggedCall& each : ReadLog(target)) {
        const bool isReading = each.call == "openat" && each.rest.find("O_WRONLY") == std::string::npos &&
                               each.rest.find("O_RDWR") == std::string::npos;
        const bool isOutside = each.rest.starts_with("(\"/") || each.rest.starts_with("(AT_FDCWD, \"/");
        const auto names = [&](const std::string& start) { return each.rest.find(start) != std::string::npos; };
        if (isOutside && !isReading && !kLooking.contains(each.call) && !names(own) && !names("\"/dev/null\"") &&
            !names("\"/proc/self/fd/2\"")) {
            throw CFinding("it changes something outside its folders: " + each.call + each.rest);
        }
    }
}

// Allocations.

void WriteOrders(CTarget& target, std::uint64_t first, std::uint64_t length)
{
    const std::array<std::uint64_t, 2> orders = {first, length};
    std::fstream file(AttackFile(target), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(sizeof(std::uint64_t));
    file.write(reinterpret_cast<const char*>(orders.data()), sizeof(orders));
}

std::uint64_t AllocationCount(CTarget& target)
{
    std::uint64_t count = 0;
    std::ifstream(AttackFile(target), std::ios::binary).read(reinterpret_cast<char*>(&count), sizeof(count));
    return count;
}

CopyPtr StartWithLittleMemory(CTarget& target, std::uint64_t first, std::uint64_t length)
{
    std::ofstream(AttackFile(target), std::ios::binary) << std::string(3 * sizeof(std::uint64_t), '\0');
    WriteOrders(target, first, length);
    return StartPreloaded(target, "AMPORA_FAILING_MEMORY=" + AttackFile(target));
}

std::uint64_t CountAllocations()
{
    CTarget target;
    target.Recover();
    const CopyPtr copy = StartWithLittleMemory(target, 0, 0);
    CTarget::AwaitRest(*copy);
    target.End(*copy);
    const std::uint64_t count = AllocationCount(target);
    if (count == 0) {
        throw std::runtime_error("no allocation is counted: " + copy->Text());
    }
    return count;
}

Outcome AttackMemory(const std::string& title, std::uint64_t length, unsigned every)
{
    const auto number = [every](std::size_t i) { return i * every + 1; };
    const auto attack = [&](CTarget& target, std::size_t i, Outcome& outcome) {
        const CopyPtr copy = StartWithLittleMemory(target, number(i), length);
        const bool comesBack = i % 2 == 0; // after the pass; otherwise the program has to end without
        const auto giveBack = [&] {
            if (comesBack && length > 1) {
                WriteOrders(target, 0, 0);
            }
        };
        RunWithFaults(target, *copy, {[&] { return AllocationCount(target) >= number(i); }, giveBack, true}, outcome);
    };
    return MakeAttacks(title, (CountAllocations() + every - 1) / every, attack,
                       [&](std::size_t i) { return "allocation " + std::to_string(number(i)); });
}

} // namespace

std::unique_ptr<CCopy> StartTraced(CTarget& target, const std::string& options)
{
    return StartPreloaded(target, "AMPORA_TRACER=exec strace -f -qq -p $PPID -o " + AttackFile(target) + " " + options);
}

Outcome FailCalls(unsigned every)
{
    const std::vector<CallFault> faults = ListCallFaults();
    const auto attack = [&](CTarget& target, std::size_t i, Outcome& outcome) {
        const CallFault& fault = faults[i * every];
        const CopyPtr copy =
            StartTraced(target, "-e signal=none -e trace=" + fault.call + ",%file" + " -e inject=" + fault.call + ":" +
                                    fault.fault + ":when=" + std::to_string(fault.occurrence));
        RunWithFaults(target, *copy, {[&] { return std::ranges::any_of(ReadLog(target), IsInjected); }}, outcome);
        ExpectNothingChangedOutside(target);
    };
    return MakeAttacks("system calls", (faults.size() + every - 1) / every, attack, [&](std::size_t i) {
        const CallFault& fault = faults[i * every];
        return fault.call + " " + fault.fault + " at " + std::to_string(fault.occurrence);
    });
}

Outcome FailAllocations(unsigned every) { return AttackMemory("one allocation", 1, every); }

Outcome EndAllocations(unsigned every) { return AttackMemory("all allocations from one on", UINT64_MAX, every); }

} // namespace attack
