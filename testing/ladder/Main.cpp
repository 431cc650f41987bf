// Climbs the fault ladder: for each scenario every call of the platform and every allocation fails once, and in a trial
// of its own from there on. scripts/attack/ladder runs several of these side by side.
#include "platform/sim/Scheduler.h"
#include "testing/ladder/Trial.h"
#include "testing/World.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <functional>
#include <iostream>
#include <sstream>

namespace {

using namespace ladder;

struct CommandLine {
    std::string scenario = {};
    std::string call = {}; // empty: all
    Fault fault = {};
    bool prints = false;
    bool listsKinds = false;
    unsigned every = 1;
    unsigned part = 1;
    unsigned parts = 1;
};

std::string CommandOf(const Scenario& scenario, const Fault& fault)
{
    std::ostringstream text;
    text << "ampora_ladder --scenario " << scenario.name << " --call " << CallName(fault.call) << " --nth " << fault.nth
         << (fault.lasts ? " --lasts" : "") << " --code " << fault.code;
    return text.str();
}

std::string g_again; // the trial that runs

void Report(const std::string& violation)
{
    std::cout << "VIOLATION " << violation << "\nagain: " << g_again << " --trace\n" << std::flush;
}

// The machine found a deadlock, or the program crashed: says in which trial.
void OnCrash(int signal)
{
    Report("crash, deadlock or no end");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Of the trials of one scenario, for the table of figures.
struct Sum {
    unsigned once = 0;
    unsigned lasting = 0;
    unsigned ofAll = 0;
    unsigned memory = 0;
    std::array<unsigned, kNever + 1> recoveries = {};
    unsigned violations = 0;
};

bool IsMemory(Call call) { return call == kApplicationMemory || call == kWorkerMemory; }

void RunOne(const Scenario& scenario, const Fault& fault, const Outcome& reference, bool prints, Sum& sum)
{
    g_again = CommandOf(scenario, fault);
    const Outcome outcome = RunTrial(scenario, fault, &reference.final, prints);
    unsigned& count = IsMemory(fault.call)     ? sum.memory
                      : fault.call == kAnyCall ? sum.ofAll
                      : fault.lasts            ? sum.lasting
                                               : sum.once;
    ++count;
    ++sum.recoveries.at(outcome.recovery);
    if (const std::string text = Judge(scenario, fault, reference, outcome); !text.empty()) {
        ++sum.violations;
        Report(text);
    }
}

// What can fail in a scenario: of each kind the first call and then each so many.
std::vector<Fault> FaultsOf(const Outcome& reference, unsigned every)
{
    std::vector<Fault> faults;
    for (std::size_t i = 0; i < kCalls; ++i) {
        const auto call = static_cast<Call>(i);
        const std::vector<DWORD> codes = CodesOf(call);
        if (reference.counts.at(i) > 0 && codes.empty() && call != Call::kCloseHttpSession) {
            platform::sim::EndProgram("no contract for " + CallName(call));
        }
        for (const DWORD code : codes) {
            for (unsigned nth = 1; nth <= reference.counts.at(i); nth += every) {
                if (call != kAnyCall) {
                    faults.push_back({call, nth, false, code});
                }
                faults.push_back({call, nth, true, code});
            }
        }
    }
    return faults;
}

// What the scenario shows when nothing fails.
Outcome MakeReference(const Scenario& scenario, Sum& sum)
{
    constexpr std::size_t kFiles = testing_support::kTestCompanies.size() * testing_support::kTestKinds.size();
    g_again = std::string("ampora_ladder --scenario ") + scenario.name;
    const Scenario& pass = *std::ranges::find(Scenarios(), std::string_view("event"), &Scenario::name);
    Outcome reference = RunTrial(scenario, {}, nullptr, false);
    reference.inFull = RunTrial(pass, {}, nullptr, false).after;
    if (!reference.leftovers.empty() || reference.recovery != scenario.recovery || reference.final.size() != kFiles) {
        ++sum.violations;
        Report("without a fault: " + reference.leftovers + "recovery " + std::to_string(reference.recovery));
    }
    return reference;
}

unsigned RunScenario(Scenario scenario, const CommandLine& line)
{
    Sum sum;
    if (line.prints && !IsMemory(line.fault.call) && line.fault.call != Call::kOutputDebugText) {
        scenario.logLevel = kWholeTrace; // which changes neither the other calls nor their numbers
    }
    const Outcome reference = MakeReference(scenario, sum);
    if (line.fault.nth != 0) {
        RunOne(scenario, line.fault, reference, line.prints, sum);
        return sum.violations;
    }
    unsigned number = 0;
    for (const Fault& fault : FaultsOf(reference, line.every * scenario.every)) {
        const bool isWanted = line.call.empty() || line.call == CallName(fault.call);
        if (isWanted && number++ / 2 % line.parts == line.part - 1) {
            RunOne(scenario, fault, reference, false, sum);
        }
    }
    std::cout << "sum\t" << scenario.name << "\t" << scenario.meaning << "\t" << reference.counts.at(IndexOf(kAnyCall))
              << "\t" << reference.counts.at(IndexOf(kApplicationMemory)) + reference.counts.at(IndexOf(kWorkerMemory))
              << "\t" << sum.once << "\t" << sum.lasting << "\t" << sum.ofAll << "\t" << sum.memory;
    for (const unsigned count : sum.recoveries) {
        std::cout << "\t" << count;
    }
    std::cout << "\t" << sum.violations << "\n" << std::flush;
    return sum.violations;
}

void PrintKinds()
{
    std::array<unsigned, kCalls> counts = {};
    for (const Scenario& scenario : Scenarios()) {
        const Outcome reference = RunTrial(scenario, {}, nullptr, false);
        std::ranges::transform(counts, reference.counts, counts.begin(), std::plus());
    }
    unsigned used = 0;
    std::string unused;
    std::string silent;
    for (std::size_t i = 0; i < IndexOf(Call::kCount); ++i) {
        const auto call = static_cast<Call>(i);
        const std::string name = " `" + CallName(call) + "`";
        if (counts.at(i) == 0 || CodesOf(call).empty()) {
            unused += name;
            continue;
        }
        ++used;
        silent += ContractOf(call, "").line == nullptr ? name : "";
    }
    std::cout << used << " kinds of calls and ways of failing occur. Not called in these scenarios, or unable to fail:"
              << unused << ". No trace line is promised, or not in every place, for:" << silent << ".\n";
}

// Whether names are known and one trial is named in full.
bool IsSound(const CommandLine& line)
{
    const bool isScenario =
        std::ranges::any_of(Scenarios(), [&](const Scenario& one) { return line.scenario == one.name; });
    const bool isCall = CallNamed(line.call).has_value();
    return line.fault.nth != 0 ? isScenario && isCall
                               : (isScenario || line.scenario.empty()) && (isCall || line.call.empty());
}

} // namespace

int main(int argc, char** argv)
{
    CommandLine line;
    CLI::App parser("Makes each call of the platform and each allocation fail while the whole program runs.");
    parser.add_option("--scenario", line.scenario, "only this one");
    parser.add_option("--call", line.call, "only this one");
    parser.add_option("--nth", line.fault.nth, "only this call of --call in --scenario, from 1 on");
    parser.add_flag("--lasts", line.fault.lasts, "with --nth: all later ones, too");
    parser.add_option("--code", line.fault.code, "with --nth: the error code");
    parser.add_flag("--trace", line.prints, "with --nth: print the trace");
    parser.add_flag("--kinds", line.listsKinds, "tell which calls fail, in Markdown, and end");
    parser.add_option("--every", line.every, "of each kind of call only the first and then each so many")
        ->check(CLI::PositiveNumber);
    parser.add_option("--part", line.part, "which of the parts, from 1 on")->check(CLI::PositiveNumber);
    parser.add_option("--parts", line.parts, "in how many parts the faults are divided")->check(CLI::PositiveNumber);
    CLI11_PARSE(parser, argc, argv);
    if (!IsSound(line)) {
        std::cerr << "ampora_ladder: no such call or scenario, or --nth without --scenario and --call\n";
        return 2;
    }
    if (line.listsKinds) {
        PrintKinds();
        return 0;
    }
    line.fault.call = CallNamed(line.call).value_or(kAnyCall);
    std::signal(SIGABRT, OnCrash);
    std::signal(SIGSEGV, OnCrash);
    unsigned violations = 0;
    for (const Scenario& scenario : Scenarios()) {
        if (line.scenario.empty() || line.scenario == scenario.name) {
            violations += RunScenario(scenario, line);
        }
    }
    return violations == 0 ? 0 : 1;
}
