// A fleet of machines that run AmporaSrv, for one day, as load on a server: when each makes its passes, how many
// requests a second that gives, and how many of these a cache in front of the report server passes on.
//
// It draws and adds with the program's own functions (engine/RandomRule.h, engine/Schedule.h). FleetProgram_test.cpp
// compares it with the whole program, request by request.
#pragma once

#include "testing/World.h"

#include <functional>

namespace fleet {

// Milliseconds since the midnight in Japan that begins the day; negative: before that.
using TimeMs = std::int64_t;
inline constexpr TimeMs kSecondMs = 1'000;
inline constexpr TimeMs kMinuteMs = 60 * kSecondMs;
inline constexpr TimeMs kHourMs = 60 * kMinuteMs;
inline constexpr TimeMs kDayMs = 24 * kHourMs;

// That midnight: 2012-07-02 00:00 in Japan, in seconds since 1970-01-01 00:00:00 UTC.
inline constexpr std::int64_t kMidnight = 1'341'154'800;

// One answer takes this long, and the next request follows at once: a pass asks one thing after another. All times of a
// model are multiples of it.
inline constexpr TimeMs kAnswerMs = 20;

enum class Change : std::uint8_t {
    kStart,   // the program is started
    kSuspend, // the machine is suspended, in a pass or not
    kResume,
    kPowerOff, // the program is gone, with what it has drawn
};
struct LifeEvent {
    TimeMs time = 0;
    std::uint32_t machine = 0; // from 0
    Change change = Change::kStart;
};

// The settings of that name.
struct Schedule {
    LONG interval = 0;
    LONG intervalMin = 0;
    LONG intervalMax = 0;
};
// What applies when nothing is set, asked of the program. Needs a simulated machine without settings.
Schedule DefaultSchedule();

// What a pass asks for one after the other with the default settings.
struct Target {
    std::size_t company = 0; // of testing_support::kTestCompanies
    DWORD dataType = 0;
    int day = 0; // 0: of twelve hours before the pass, 1: of twelve hours after it
};
std::vector<Target> TargetsOfAPass();

// Whether the report server has no data for this at a time, so that it answers 503: there is no usage of tomorrow, of
// today none in its first 5 minutes (instant) or hour (actual), and tomorrow's peaks are there from 18:00 on.
bool IsMissing(const Target& target, TimeMs time);

// What the machines ask. Without limits it answers everything after kAnswerMs.
struct Service {
    double capacity = 0;        // requests a second that it can answer; those above wait. 0: any number
    double limit = 0;           // requests a second above which it refuses. 0: none
    double burst = 0;           // that the limit lets through beside it
    TimeMs freshMs = kMinuteMs; // how long the cache may use a report
    TimeMs missingFreshMs = 0;  // and an answer 503; 0: not at all
};

// One day of a fleet.
struct Day {
    TimeMs begin = 0; // of the model, before midnight when the fleet has to come into its stride
    std::uint32_t machines = 0;
    std::vector<LifeEvent> lives; // in any order
    Schedule schedule;
    Service service;
};

// By second of the day.
struct Load {
    std::vector<double> requests;
    std::vector<double> refused; // of these
    std::vector<double> origin;  // requests of the cache to the report server
    std::uint64_t passes = 0;    // begun in the day
};

// Told of each pass that begins. machine: which; time: of its first request.
using PassObserver = std::function<void(std::uint32_t machine, TimeMs time)>;

// Runs the day. The same day gives the same load. observer: may be empty.
Load Simulate(Day day, const PassObserver& observer = {});

} // namespace fleet
