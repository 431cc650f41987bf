// Runs simulations of the whole program under seeds.
#include "testing/simulation/Simulation.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <list>
#include <random>
#include <thread>

namespace {

using namespace simulation;

struct CommandLine {
    std::uint64_t firstSeed = 1;
    std::uint64_t seeds = 1;
    unsigned days = 30;
    bool drawsOptions = true; // anew for each seed
    Options options = {};     // else
    bool printsTrace = false;
    std::uint64_t jobs = 1;
    std::string sumPath = {}; // where a job leaves its sum
    bool isWrong = false;
};

void PrintUsage()
{
    std::cerr << "ampora_simulate [--first-seed S] [--seeds N] [--days D] [--jobs J] [--trace]\n"
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
        } else if (name == "--jobs") {
            line.jobs = number;
        } else if (name == "--sum") {
            line.sumPath = value;
        } else if (name == "--days") {
            line.days = static_cast<unsigned>(number);
            line.options.days = line.days;
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

void RunSeed(const CommandLine& line, std::uint64_t seed, Sum& sum)
{
    CGenerator generator(seed);
    Options options = line.drawsOptions ? DrawOptions(generator, line.days) : line.options;
    options.days = line.days;
    std::cout << "seed " + std::to_string(seed) + "\n" << std::flush;
    CSimulation simulation(seed, options, RunAmporaSrv, line.printsTrace);
    simulation.Run();
    if (line.printsTrace) {
        std::cout << simulation.Log().Text() << "trace " << simulation.Log().Hash() << " " << simulation.Log().Length()
                  << "\n";
    }
    sum.passes += simulation.PassCount();
    sum.requests += simulation.RequestCount();
    if (const auto& violation = simulation.FirstViolation()) {
        std::cout << "seed " + std::to_string(seed) + ", after " + std::to_string(violation->nowMs) +
                         " ms: " + violation->text + "\nagain: ampora_simulate --first-seed " + std::to_string(seed) +
                         " " + CommandLineOf(options) + " --plain --trace\n"
                  << std::flush;
        std::_Exit(1); // what is left of the program cannot be taken down
    }
}

Sum RunSeeds(const CommandLine& line)
{
    Sum sum;
    for (std::uint64_t i = 0; i < line.seeds; ++i) {
        RunSeed(line, line.firstSeed + i, sum);
    }
    return sum;
}

// A process has one simulation at a time, since the program's trace level is one for the whole process. So several jobs
// are several processes, each with a part of the seeds, and each leaves its sum in a file.
class CJob {
public:
    CJob(const std::string& program, const CommandLine& line, std::uint64_t firstSeed, std::uint64_t seeds)
        : m_path(std::filesystem::temp_directory_path() /
                 ("ampora_simulate_" + std::to_string(std::random_device()()) + "_" + std::to_string(firstSeed)))
    {
        const std::string command =
            "\"" + program + "\" --first-seed " + std::to_string(firstSeed) + " --seeds " + std::to_string(seeds) +
            " " +
            (line.drawsOptions ? "--days " + std::to_string(line.days) : "--plain " + CommandLineOf(line.options)) +
            " --sum " + m_path.string();
        m_thread = std::thread([this, command] {
            m_status = std::system(command.c_str()); // NOLINT(concurrency-mt-unsafe): nobody changes the environment
        });
    }
    ~CJob()
    {
        m_thread.join();
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    CJob(const CJob&) = delete;
    CJob& operator=(const CJob&) = delete;

    // Waits for the process. Whether all is well; adds its sum.
    bool Finish(Sum& sum)
    {
        m_thread.join();
        m_thread = std::thread([] {});
        std::ifstream file(m_path);
        Sum part;
        if (m_status != 0 || !(file >> part.passes >> part.requests)) {
            return false;
        }
        sum.passes += part.passes;
        sum.requests += part.requests;
        return true;
    }

private:
    const std::filesystem::path m_path;
    int m_status = -1;
    std::thread m_thread;
};

bool RunJobs(const std::string& program, const CommandLine& line, Sum& sum)
{
    std::list<CJob> jobs;
    for (std::uint64_t job = 0; job < line.jobs; ++job) {
        const std::uint64_t begin = line.seeds * job / line.jobs;
        const std::uint64_t end = line.seeds * (job + 1) / line.jobs;
        if (end > begin) {
            jobs.emplace_back(program, line, line.firstSeed + begin, end - begin);
        }
    }
    bool isWell = true;
    for (CJob& job : jobs) {
        isWell = job.Finish(sum) && isWell;
    }
    return isWell;
}

void PrintSum(const CommandLine& line, const Sum& sum, double seconds)
{
    std::cout << line.seeds << " seeds x " << line.days << " days: " << sum.passes << " passes, " << sum.requests
              << " requests, " << std::fixed << std::setprecision(1) << seconds << " s\n";
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
    if (line.jobs > 1) {
        if (!RunJobs(argv[0], line, sum)) {
            return 1;
        }
    } else {
        sum = RunSeeds(line);
    }
    if (line.sumPath.empty()) {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        PrintSum(line, sum, time.count());
    } else {
        std::ofstream(line.sumPath) << sum.passes << " " << sum.requests << "\n";
    }
    return 0;
}
