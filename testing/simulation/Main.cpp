// Runs simulations of the whole program under seeds.
#include "testing/simulation/Simulation.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace {

using namespace simulation;

struct CommandLine {
    std::uint64_t firstSeed = 1;
    std::uint64_t seeds = 1;
    unsigned days = 30;
    bool drawsOptions = true; // anew for each seed
    Options options = {};     // else
    bool printsTrace = false;
    bool isWrong = false;
};

void PrintUsage()
{
    std::cerr << "ampora_simulate [--first-seed S] [--seeds N] [--days D] [--trace]\n"
                 "                [--plain] [--sessions 1..4] [--log-level MASK] [--with SWITCH]...\n"
                 "Options are drawn from each seed, unless one of the last four is given.\n"
                 "Switches:\n";
    for (const Switch& one : Switches()) {
        std::cerr << "  " << one.name << ": " << one.description << "\n";
    }
}

CommandLine Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--trace") {
            line.printsTrace = true;
            continue;
        }
        if (name == "--plain") {
            line.drawsOptions = false;
            continue;
        }
        const std::string value = ++i < arguments.size() ? arguments[i] : "";
        const auto number = std::strtoull(value.c_str(), nullptr, 10);
        if (name == "--first-seed") {
            line.firstSeed = number;
        } else if (name == "--seeds") {
            line.seeds = number;
        } else if (name == "--days") {
            line.days = static_cast<unsigned>(number);
        } else if (name == "--sessions" && number >= 1 && number <= 4) {
            line.options.sessions = static_cast<unsigned>(number);
            line.drawsOptions = false;
        } else if (name == "--log-level") {
            line.options.logLevel = static_cast<unsigned>(number);
            line.drawsOptions = false;
        } else if (name == "--with") {
            line.drawsOptions = false;
            line.isWrong = true;
            for (const Switch& one : Switches()) {
                if (value == one.name) {
                    line.options.*one.member = true;
                    line.isWrong = false;
                }
            }
        } else {
            line.isWrong = true;
        }
        if (value.empty() || line.isWrong) {
            line.isWrong = true;
            return line;
        }
    }
    return line;
}

struct Sum {
    std::uint64_t passes = 0;
    std::uint64_t requests = 0;
};

// Whether all is well.
bool RunSeed(const CommandLine& line, std::uint64_t seed, Sum& sum)
{
    CGenerator generator(seed);
    Options options = line.drawsOptions ? DrawOptions(generator, line.days) : line.options;
    options.days = line.days;
    std::cout << "seed " << seed << "\n" << std::flush;
    CSimulation simulation(seed, options, RunAmporaSrv, line.printsTrace);
    simulation.Run();
    if (line.printsTrace) {
        std::cout << simulation.Trace().Text() << "trace " << simulation.Trace().Hash() << " "
                  << simulation.Trace().Length() << "\n";
    }
    sum.passes += simulation.PassCount();
    sum.requests += simulation.RequestCount();
    if (const auto& violation = simulation.FirstViolation()) {
        std::cout << "seed " << seed << ", after " << violation->nowMs << " ms: " << violation->text
                  << "\nagain: ampora_simulate --first-seed " << seed << " " << CommandLineOf(options)
                  << " --plain --trace\n"
                  << std::flush;
        std::_Exit(1); // what is left of the program cannot be taken down
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const CommandLine line = Parse(std::vector<std::string>(argv + 1, argv + argc));
    if (line.isWrong) {
        PrintUsage();
        return 2;
    }
    const auto begin = std::chrono::steady_clock::now();
    Sum sum;
    for (std::uint64_t i = 0; i < line.seeds; ++i) {
        RunSeed(line, line.firstSeed + i, sum);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%llu seeds x %u days: %llu passes, %llu requests, %.1f s\n",
                static_cast<unsigned long long>(line.seeds), line.days, static_cast<unsigned long long>(sum.passes),
                static_cast<unsigned long long>(sum.requests), time.count());
    return 0;
}
