// Attacks the real program: program_attack syscalls CALLS ALLOCATIONS | kills COUNT SEED
//
// Writes its figures as a Markdown table to standard output; findings and progress go to standard error. CALLS and
// ALLOCATIONS: one of so many is attacked. Exit status 1 when there is a finding.
#include "testing/attack/Attack.h"

#include <algorithm>
#include <iostream>

namespace {

using namespace attack;

// One line for each thing that was counted, one column for each kind of attack.
void WriteTable(const std::vector<Outcome>& outcomes)
{
    std::string head = "| |";
    std::string rule = "|---|";
    for (const Outcome& outcome : outcomes) {
        head += " " + outcome.title + " |";
        rule += "---:|";
    }
    std::cout << head << "\n" << rule << "\n";
    for (const char* name : {figure::kAttacks, figure::kMet, figure::kMetAtEnd, figure::kGaveUp, figure::kKilledEarly,
                             figure::kKilledInPass, figure::kRenewed, figure::kOld, figure::kCut, figure::kThinned,
                             figure::kSameCopy, figure::kNextCopy}) {
        std::string line = std::string("| ") + name + " |";
        for (const Outcome& outcome : outcomes) {
            const auto count = outcome.counts.find(name);
            line += " " + (count == outcome.counts.end() ? "" : std::to_string(count->second)) + " |";
        }
        if (std::ranges::any_of(outcomes, [&](const Outcome& each) { return each.counts.contains(name); })) {
            std::cout << line << "\n";
        }
    }
}

std::vector<Outcome> Attack(const std::vector<std::string>& arguments)
{
    const auto number = [&](std::size_t i) { return static_cast<unsigned>(std::stoul(arguments.at(i))); };
    if (arguments.size() == 3 && arguments[0] == "syscalls") {
        return {FailCalls(number(1)), FailAllocations(number(2)), EndAllocations(number(2))};
    }
    if (arguments.size() == 3 && arguments[0] == "kills") {
        return {Kill(number(1), number(2))};
    }
    throw std::invalid_argument("usage: program_attack syscalls CALLS ALLOCATIONS | kills COUNT SEED");
}

} // namespace

int main(int count, char** arguments)
{
    try {
        const std::vector<Outcome> outcomes = Attack({arguments + 1, arguments + count});
        WriteTable(outcomes);
        return std::ranges::all_of(outcomes, [](const Outcome& each) { return each.findings.empty(); }) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 2;
    }
}
