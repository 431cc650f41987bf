#include "platform/sim/Faults.h"
#include "testing/simulation/Simulation.h"

#include <gmock/gmock.h>

namespace simulation {
namespace {

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
    const CRunLog& log = simulation.Log();
    return {log.Text(), log.Hash(), log.Length(), simulation.PassCount()};
}

Options Everything(unsigned days, unsigned logLevel)
{
    Options options;
    options.days = days;
    options.sessions = 4;
    options.logLevel = logLevel;
    for (const Switch& one : Switches()) {
        options.*one.member = true;
    }
    return options;
}

TEST(Simulation, TheSameSeedGivesTheSameTraceByteForByte)
{
    const Outcome first = Simulated(11, Everything(2, 27));
    const Outcome second = Simulated(11, Everything(2, 27));
    EXPECT_GT(first.passes, 0U);
    EXPECT_GT(first.length, 100'000U);
    EXPECT_EQ(first.hash, second.hash);
    EXPECT_TRUE(first.text == second.text);
}

TEST(Simulation, AnotherSeedGivesAnotherTrace)
{
    EXPECT_NE(Simulated(11, Everything(1, 0)).hash, Simulated(12, Everything(1, 0)).hash);
}

// The same in every process and on every system. Whoever changes what is drawn or written down puts the new numbers
// here. Without failing calls, so that the numbers do not depend on how often the program calls what.
TEST(Simulation, ASeedGivesTheSameTraceOnEverySystem)
{
    Options options = Everything(10, 0);
    for (const auto member :
         {&Options::settingsFaults, &Options::objectFaults, &Options::timerFaults, &Options::waitFaults,
          &Options::missedPulses, &Options::openFaults, &Options::writeFaults}) {
        options.*member = false;
    }
    const Outcome outcome = Simulated(11, options);
    EXPECT_EQ(outcome.length, 465'121U);
    EXPECT_EQ(outcome.hash, 14'035'691'511'410'902'852U);
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
    // Some faults need something that goes through the faulty call more than once.
    Options plain;
    plain.days = 8;
    plain.suspend = plain.manual = true;
    const std::uint64_t plainHash = Simulated(5, plain).hash;
    for (const Switch& one : Switches()) {
        Options changed = plain;
        changed.*one.member = !(plain.*one.member);
        if (one.member == &Options::outputFaults) {
            changed.logLevel = 11; // without lines nothing fails
            EXPECT_NE(Simulated(5, changed).text.find("fault"), std::string::npos);
        } else {
            EXPECT_NE(Simulated(5, changed).hash, plainHash) << one.name;
        }
    }
}

TEST(Faults, AreCalledByTheirNames)
{
    using platform::sim::Call;
    EXPECT_STREQ(platform::sim::NameOf(Call::kTimeToLocalCalendar), "TimeToLocalCalendar");
    EXPECT_STREQ(platform::sim::NameOf(Call::kWaitForAny), "WaitForAny");
    EXPECT_STREQ(platform::sim::NameOf(Call::kRegisterSessionNotices), "RegisterSessionNotices");
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
