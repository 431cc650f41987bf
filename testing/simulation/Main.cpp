// Runs simulations of the whole program under seeds, one after the other: the program's trace level is one for the
// whole process. scripts/simulate.sh runs several of these side by side.
#include "testing/simulation/Simulation.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <limits>

namespace {

using namespace simulation;

struct CommandLine {
    std::uint64_t firstSeed = 1;
    std::uint64_t seeds = 1;
    bool drawsOptions = true; // again for each seed, all but the days
    Options options = {};
    bool printsLog = false;
    bool wantsHelp = false;
};

// An argument, with a number behind it or none.
struct Argument {
    const char* name;
    const char* valueName; // empty: takes none
    std::uint64_t low;
    std::uint64_t high;
    const char* description;
    void (*set)(CommandLine& line, std::uint64_t value);
};

constexpr std::uint64_t kAnyNumber = std::numeric_limits<std::uint64_t>::max();
constexpr Argument kArguments[] = {
    {"--first-seed", " S", 0, kAnyNumber, "the first seed (default 1)",
     [](CommandLine& line, std::uint64_t value) { line.firstSeed = value; }},
    {"--seeds", " N", 1, kAnyNumber, "how many seeds (default 1)",
     [](CommandLine& line, std::uint64_t value) { line.seeds = value; }},
    {"--days", " D", 1, 3'650, "simulated days under each seed (default 30)",
     [](CommandLine& line, std::uint64_t value) { line.options.days = static_cast<unsigned>(value); }},
    {"--trace", "", 0, 0, "print the log of the run",
     [](CommandLine& line, std::uint64_t /*value*/) { line.printsLog = true; }},
    {"--plain", "", 0, 0, "draw no options: one session, no trouble",
     [](CommandLine& line, std::uint64_t /*value*/) { line.drawsOptions = false; }},
    {"--sessions", " 1..4", 1, 4, "as --plain, with this many sessions",
     [](CommandLine& line, std::uint64_t value) {
         line.options.sessions = static_cast<unsigned>(value);
         line.drawsOptions = false;
     }},
    {"--log-level", " MASK", 0, 31, "as --plain, with the trace log's mask",
     [](CommandLine& line, std::uint64_t value) {
         line.options.logLevel = static_cast<unsigned>(value);
         line.drawsOptions = false;
     }},
    {"--help", "", 0, 0, "print this", [](CommandLine& line, std::uint64_t /*value*/) { line.wantsHelp = true; }},
};

void PrintUsage(std::ostream& out)
{
    const auto print = [&out](const std::string& name, const char* description) {
        out << "  " << std::left << std::setw(20) << name << description << "\n";
    };
    out << "ampora_simulate [ARGUMENT]...\n";
    for (const Argument& one : kArguments) {
        print(std::string(one.name) + one.valueName, one.description);
    }
    print("--with SWITCH", "as --plain, with one of these:");
    for (const Switch& one : Switches()) {
        print(std::string("  ") + one.name, one.description);
    }
}

// Whether the text is a whole number within the bounds.
bool ReadNumber(const std::string& text, const Argument& argument, std::uint64_t& number)
{
    const char* end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && behind == end && number >= argument.low && number <= argument.high;
}

bool TurnOn(CommandLine& line, const std::string& switchName)
{
    line.drawsOptions = false;
    for (const Switch& one : Switches()) {
        if (switchName == one.name) {
            line.options.*one.member = true;
            return true;
        }
    }
    return false;
}

// Empty when an argument is unknown, or its value wrong or missing.
std::optional<CommandLine> Parse(const std::vector<std::string>& words)
{
    CommandLine line;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string value = i + 1 < words.size() ? words[i + 1] : "";
        const auto* found = std::find_if(std::begin(kArguments), std::end(kArguments),
                                         [&](const Argument& argument) { return words[i] == argument.name; });
        std::uint64_t number = 0;
        if (words[i] == "--with" && TurnOn(line, value)) {
            ++i;
        } else if (found == std::end(kArguments)) {
            return std::nullopt;
        } else if (*found->valueName == '\0') {
            found->set(line, 0);
        } else if (ReadNumber(value, *found, number)) {
            found->set(line, number);
            ++i;
        } else {
            return std::nullopt;
        }
    }
    return line;
}

// Of the seeds that were run.
struct Sum {
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::uint64_t seeds = 0;
    std::uint64_t passes = 0;
    std::uint64_t requests = 0;
    unsigned violations = 0;
};

void PrintSum(const Sum& sum, unsigned days)
{
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - sum.begin;
    std::cout << sum.seeds << " seeds x " << days << " days: " << sum.passes << " passes, " << sum.requests
              << " requests, " << sum.violations << " violations, " << std::fixed << std::setprecision(1)
              << time.count() << " s\n"
              << std::flush;
}

void RunSeed(const CommandLine& line, std::uint64_t seed, Sum& sum)
{
    CGenerator generator(seed);
    const Options options = line.drawsOptions ? DrawOptions(generator, line.options.days) : line.options;
    const std::string name = "seed " + std::to_string(seed);
    std::cout << name + "\n" << std::flush;
    CSimulation simulation(seed, options, RunAmporaSrv, line.printsLog);
    simulation.Run();
    if (line.printsLog) {
        std::cout << simulation.Log().Text() << "log " << simulation.Log().Hash() << " " << simulation.Log().Length()
                  << "\n";
    }
    ++sum.seeds;
    sum.passes += simulation.PassCount();
    sum.requests += simulation.RequestCount();
    if (const auto& violation = simulation.FirstViolation()) {
        ++sum.violations;
        std::cout << name + ", after " + std::to_string(violation->nowMs) + " ms: " + violation->text +
                         "\nagain: ampora_simulate --first-seed " + std::to_string(seed) + " " +
                         CommandLineOf(options) + " --plain --trace\n";
        PrintSum(sum, options.days);
        std::_Exit(1); // what is left of the program cannot be taken down
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::optional<CommandLine> line = Parse(std::vector<std::string>(argv + 1, argv + argc));
    if (!line || line->wantsHelp) {
        PrintUsage(line ? std::cout : std::cerr);
        return line ? 0 : 2;
    }
    Sum sum;
    for (std::uint64_t i = 0; i < line->seeds; ++i) {
        RunSeed(*line, line->firstSeed + i, sum);
    }
    PrintSum(sum, line->options.days);
    return 0;
}
