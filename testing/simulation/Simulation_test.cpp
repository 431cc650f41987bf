#include "testing/simulation/Simulation.h"

#include <gmock/gmock.h>

namespace simulation {
namespace {

constexpr unsigned kDays = 10;

struct Outcome {
    std::string text;
    std::uint64_t hash;
    std::uint64_t length;
    unsigned passes;
};

Outcome Simulated(std::uint64_t seed, const Options& options)
{
    CSimulation simulation(seed, options, RunAmporaSrv, true);
    simulation.Run();
    EXPECT_FALSE(simulation.FirstViolation()) << simulation.FirstViolation()->text;
    const CTrace& trace = simulation.Trace();
    return {trace.Text(), trace.Hash(), trace.Length(), simulation.PassCount()};
}

Options Everything(unsigned logLevel)
{
    Options options;
    options.days = kDays;
    options.sessions = 4;
    options.logLevel = logLevel;
    for (const Switch& one : Switches()) {
        options.*one.member = true;
    }
    return options;
}

TEST(Simulation, TheSameSeedGivesTheSameTraceByteForByte)
{
    const Outcome first = Simulated(11, Everything(27));
    const Outcome second = Simulated(11, Everything(27));
    EXPECT_GT(first.passes, 0U);
    EXPECT_GT(first.length, 100'000U);
    EXPECT_EQ(first.hash, second.hash);
    EXPECT_TRUE(first.text == second.text);
}

TEST(Simulation, AnotherSeedGivesAnotherTrace)
{
    EXPECT_NE(Simulated(11, Everything(0)).hash, Simulated(12, Everything(0)).hash);
}

// The same in every process and on every system. Whoever changes what is drawn or written down, or in which order the
// program calls the system, puts the new numbers here.
TEST(Simulation, ASeedGivesTheSameTraceOnEverySystem)
{
    const Outcome outcome = Simulated(11, Everything(0));
    EXPECT_EQ(outcome.length, 0U);
    EXPECT_EQ(outcome.hash, 0U);
}

TEST(Simulation, NothingHappensUnlessAskedFor)
{
    const Outcome outcome = Simulated(3, Options());
    EXPECT_GT(outcome.passes, 30U);
    for (const char* word : {"fault", "power", "clock", "setting", "copy 3", ": 503 in"}) {
        EXPECT_EQ(outcome.text.substr(0, outcome.text.find("calm")).find(word), std::string::npos) << word;
    }
}

TEST(Simulation, EverySwitchDoesSomething)
{
    for (const Switch& one : Switches()) {
        Options options;
        options.days = kDays;
        options.sessions = 2;
        Options changed = options;
        changed.*one.member = true;
        // Some faults need something that goes through the faulty call more than once.
        options.suspend = changed.suspend = true;
        options.manual = changed.manual = true;
        options.logLevel = changed.logLevel = 11;
        if (one.member != &Options::suspend && one.member != &Options::manual) {
            EXPECT_NE(Simulated(5, options).hash, Simulated(5, changed).hash) << one.name;
        }
    }
}

TEST(Options, AreDrawnFromTheSeed)
{
    CGenerator first(9);
    CGenerator second(9);
    CGenerator third(10);
    const std::string line = CommandLineOf(DrawOptions(first, 30));
    EXPECT_EQ(line, CommandLineOf(DrawOptions(second, 30)));
    EXPECT_NE(line, CommandLineOf(DrawOptions(third, 30)));
}

} // namespace
} // namespace simulation
