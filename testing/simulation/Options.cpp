#include "testing/simulation/Options.h"

namespace simulation {

namespace {

constexpr Switch kSwitches[] = {
    {"latency", &Options::latency, "answers take up to some seconds"},
    {"stalls", &Options::stalls, "answers stop coming for 30 s"},
    {"statuses", &Options::statuses, "answers with status 503, 404, 500"},
    {"documents", &Options::documents, "answers that are no or broken reports"},
    {"bodies", &Options::bodies, "connections that end early, are refused or reset"},
    {"offline", &Options::offline, "no network for a while"},
    {"settings-faults", &Options::settingsFaults, "settings cannot be read"},
    {"object-faults", &Options::objectFaults, "named objects, threads and session notices cannot be made"},
    {"timer-faults", &Options::timerFaults, "timers cannot be made, armed, disarmed"},
    {"wait-faults", &Options::waitFaults, "waits fail"},
    {"missed-pulses", &Options::missedPulses, "a worker misses the pulse of its stop"},
    {"open-faults", &Options::openFaults, "data files cannot be opened"},
    {"write-faults", &Options::writeFaults, "data files cannot be written"},
    {"output-faults", &Options::outputFaults, "the debugger output fails"},
    {"disk-full", &Options::diskFull, "the disk is full for a while"},
    {"readers", &Options::readers, "a reader holds a data file open for a while"},
    {"suspend", &Options::suspend, "the machine is suspended and resumed"},
    {"console", &Options::console, "the session is left and entered"},
    {"clock-jumps", &Options::clockJumps, "the clock is set forward and back"},
    {"daylight-saving", &Options::daylightSaving, "the offset from UTC changes"},
    {"manual", &Options::manual, "another process asks for an update"},
    {"settings", &Options::settings, "settings change"},
    {"exits", &Options::exits, "the program is told to end, and started again"},
    {"second-copies", &Options::secondCopies, "a second copy is started"},
    {"foreign-mutex", &Options::foreignMutex, "another process takes the update mutex"},
};

} // namespace

std::span<const Switch> Switches() { return kSwitches; }

Options DrawOptions(CGenerator& generator, unsigned days)
{
    Options options;
    options.days = days;
    options.sessions = static_cast<unsigned>(1 + generator.Below(4));
    // Most seeds without trace lines, which take most of the time.
    constexpr unsigned kLevels[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 3, 3, 3, 11, 27};
    options.logLevel = kLevels[generator.Below(std::size(kLevels))];
    for (const Switch& one : kSwitches) {
        options.*one.member = generator.Chance(600);
    }
    return options;
}

std::string CommandLineOf(const Options& options)
{
    std::string line = "--days " + std::to_string(options.days) + " --sessions " + std::to_string(options.sessions) +
                       " --log-level " + std::to_string(options.logLevel);
    for (const Switch& one : kSwitches) {
        if (options.*one.member) {
            line += std::string(" --with ") + one.name;
        }
    }
    return line;
}

} // namespace simulation
