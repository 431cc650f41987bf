// What a simulation does to the program.
#pragma once

#include "testing/simulation/Generator.h"

#include <span>
#include <string>

namespace simulation {

// Everything is off by default: one session, healthy answers at once, nothing happens but the schedule.
struct Options {
    unsigned days = 30;
    unsigned sessions = 1; // 1 to 4, each with a copy of the program
    unsigned logLevel = 0; // the trace log's mask

    // Answers of the report API.
    bool latency = false;   // up to some seconds; a stop waits 100 ms
    bool stalls = false;    // no answer, or half a body, and then nothing for 30 s
    bool statuses = false;  // 503, 404, 500
    bool documents = false; // reports that are not well-formed, not reports, empty, partly unreadable
    bool bodies = false;    // connections that end, are refused or reset
    bool offline = false;   // the machine has no network for a while

    // Calls of the system that fail now and then.
    bool settingsFaults = false;
    bool objectFaults = false; // named objects, threads, session notices
    bool timerFaults = false;
    bool waitFaults = false;
    bool missedPulses = false; // a worker misses the pulse of its stop
    bool openFaults = false;
    bool writeFaults = false;
    bool outputFaults = false; // of the debugger output
    bool diskFull = false;     // for a while
    bool readers = false;      // another program holds a data file open for a while

    // What happens to the machine and the program.
    bool suspend = false;
    bool console = false; // the session is left and entered
    bool clockJumps = false;
    bool daylightSaving = false;
    bool manual = false;       // another process asks for an update
    bool settings = false;     // settings change
    bool exits = false;        // a copy with /Exit; the program is started again later
    bool secondCopies = false; // a copy without options
    bool foreignMutex = false; // another session's process takes the update mutex, and gives it back or is killed
};

// A switch by its name on the command line.
struct Switch {
    const char* name;
    bool Options::*member;
    const char* description;
};
std::span<const Switch> Switches();

// Switches each on or off; draws sessions and log level, too.
Options DrawOptions(CGenerator& generator, unsigned days);

// The options as a command line would give them.
std::string CommandLineOf(const Options& options);

} // namespace simulation
