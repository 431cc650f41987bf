// Computes the load that a fleet of machines with AmporaSrv is for its server. scripts/fleet.sh writes its figures into
// docs/fleet.md.
#include "platform/sim/Machine.h"
#include "testing/fleet/Report.h"
#include "testing/fleet/Scenarios.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace {

using namespace fleet;

struct CommandLine {
    std::uint32_t machines = 1'000'000;
    std::uint64_t seed = 1;
    std::vector<std::string> scenarios = {};
    std::string csvFolder = {};
    bool wantsHelp = false;
};

constexpr std::uint32_t kMostMachines = 10'000'000;

std::uint64_t NumberOf(const std::string& text, std::uint64_t low, std::uint64_t high)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < low || number > high) {
        throw std::invalid_argument(text + " is no number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return number;
}

CommandLine Parse(const std::vector<std::string>& arguments)
{
    CommandLine line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--help") {
            line.wantsHelp = true;
            continue;
        }
        if (i + 1 == arguments.size()) {
            throw std::invalid_argument(name + " is no argument, or lacks its value");
        }
        const std::string& value = arguments[++i];
        if (name == "--machines") {
            line.machines = static_cast<std::uint32_t>(NumberOf(value, 1, kMostMachines));
        } else if (name == "--seed") {
            line.seed = NumberOf(value, 0, std::numeric_limits<std::uint64_t>::max());
        } else if (name == "--scenario") {
            line.scenarios.emplace_back(FindScenario(value).name);
        } else if (name == "--csv") {
            line.csvFolder = value;
        } else {
            throw std::invalid_argument(name + " is no argument");
        }
    }
    return line;
}

void PrintUsage(std::ostream& out)
{
    out << "ampora_fleet [--machines N] [--seed S] [--csv FOLDER] [--scenario NAME]...\n"
           "Markdown on standard output; in FOLDER a file for each scenario. Scenarios, by default all:\n";
    for (const Scenario& scenario : Scenarios()) {
        out << "  " << scenario.name << ": " << scenario.description << "\n";
    }
}

void WriteFile(const std::string& folder, const Scenario& scenario, const Load& load)
{
    const std::string path = folder + "/" + scenario.name + ".csv";
    std::ofstream file(path);
    WriteCsv(file, load);
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

void PrintRow(std::ostream& out, const Scenario& scenario, const Summary& summary)
{
    out << "| " << scenario.name << " | " << NumberText(summary.mean) << " | " << NumberText(summary.peakMinute)
        << " | " << NumberText(summary.peakSecond) << " at " << TimeText(summary.peakTime) << " | "
        << NumberText(summary.peakMinute / summary.mean) << " | " << NumberText(summary.originMean) << " | "
        << NumberText(summary.originPeak) << " | " << NumberText(100 * summary.refused / summary.requests) << " % |\n";
}

void Run(const CommandLine& line)
{
    const platform::sim::CMachine machine; // the settings' defaults are asked of it
    std::string descriptions;
    std::string pictures;
    std::cout << NumberText(line.machines)
              << " machines, requests a second:\n\n"
                 "| Scenario | Mean | Busiest minute | Busiest second | Busiest minute to mean "
                 "| To the report server: mean | Busiest second | Refused |\n|---|---|---|---|---|---|---|---|\n";
    for (const Scenario& scenario : Scenarios()) {
        if (!line.scenarios.empty() &&
            std::find(line.scenarios.begin(), line.scenarios.end(), scenario.name) == line.scenarios.end()) {
            continue;
        }
        const Load load = Simulate(DayOf(scenario, line.machines, line.seed));
        PrintRow(std::cout, scenario, Summarize(load));
        std::cout.flush();
        const std::string what = scenario.isRemedy ? "as power-cut, and " : "";
        descriptions += "- " + std::string(scenario.name) + ": " + what + scenario.description + ".\n";
        if (scenario.isPictured) {
            pictures += "\n" + std::string(scenario.name) + ":\n\n```\n" + Picture(load) + "```\n";
        }
        if (!line.csvFolder.empty()) {
            WriteFile(line.csvFolder, scenario, load);
        }
    }
    std::cout << "\n" << descriptions << pictures;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const CommandLine line = Parse({argv + 1, argv + argc});
        if (line.wantsHelp) {
            PrintUsage(std::cout);
        } else {
            Run(line);
        }
    } catch (const std::invalid_argument& error) {
        std::cerr << "ampora_fleet: " << error.what() << "\n";
        PrintUsage(std::cerr);
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "ampora_fleet: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
