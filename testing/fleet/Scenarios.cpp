#include "testing/fleet/Scenarios.h"

#include "testing/simulation/Generator.h"

#include <algorithm>
#include <stdexcept>

namespace fleet {

namespace {

constexpr TimeMs kStrideMs = 6 * kHourMs; // after which nothing is left of how the fleet was started
constexpr TimeMs kCutMs = 14 * kHourMs;
constexpr TimeMs kPowerMs = kCutMs + 2 * kMinuteMs; // when the machines have started again,
constexpr TimeMs kStartsMs = 10 * kSecondMs;        // within this time
constexpr double kServerCapacity = 50'000;

// Moments of the model, drawn.
class CMoments {
public:
    explicit CMoments(std::uint64_t seed) : m_generator(seed) {}

    TimeMs Uniform(TimeMs from, TimeMs lengthMs)
    {
        return from +
               kAnswerMs * static_cast<TimeMs>(m_generator.Below(static_cast<std::uint64_t>(lengthMs / kAnswerMs)));
    }
    // The sum of twelve uniform numbers is as good as normal, and the same on every system.
    TimeMs Normal(TimeMs mean, TimeMs deviationMs)
    {
        TimeMs sum = 0;
        for (int i = 0; i < 12; ++i) {
            sum += Uniform(0, deviationMs);
        }
        return (mean - 6 * deviationMs + sum) / kAnswerMs * kAnswerMs;
    }

private:
    simulation::CGenerator m_generator;
};

void StayOn(Day& day, CMoments& moments)
{
    day.begin = -kStrideMs;
    for (std::uint32_t machine = 0; machine < day.machines; ++machine) {
        day.lives.push_back({moments.Uniform(day.begin, kStrideMs), machine, Change::kStart});
    }
}

void PrepareAllDay(Day& day, std::uint64_t seed)
{
    CMoments moments(seed);
    StayOn(day, moments);
}

void Work(Day& day, CMoments& moments)
{
    for (std::uint32_t machine = 0; machine < day.machines; ++machine) {
        day.lives.push_back({moments.Normal(9 * kHourMs, 20 * kMinuteMs), machine, Change::kStart});
        day.lives.push_back({moments.Normal(18 * kHourMs, 20 * kMinuteMs), machine, Change::kPowerOff});
    }
}

void PrepareWorkingDay(Day& day, std::uint64_t seed)
{
    CMoments moments(seed);
    Work(day, moments);
}

void PrepareLunch(Day& day, std::uint64_t seed)
{
    CMoments moments(seed);
    Work(day, moments);
    for (std::uint32_t machine = 0; machine < day.machines; ++machine) {
        day.lives.push_back({moments.Normal(12 * kHourMs, 4 * kMinuteMs), machine, Change::kSuspend});
        day.lives.push_back({moments.Normal(13 * kHourMs, 4 * kMinuteMs), machine, Change::kResume});
    }
}

// delayMs: the longest that a machine waits with the start, at random. 0: none does.
void CutPower(Day& day, std::uint64_t seed, TimeMs delayMs)
{
    CMoments moments(seed);
    StayOn(day, moments);
    for (std::uint32_t machine = 0; machine < day.machines; ++machine) {
        day.lives.push_back({kCutMs, machine, Change::kPowerOff});
        const TimeMs start = moments.Uniform(kPowerMs, kStartsMs);
        const TimeMs delay = delayMs == 0 ? 0 : moments.Uniform(0, delayMs);
        day.lives.push_back({start + delay, machine, Change::kStart});
    }
}

void PreparePowerCut(Day& day, std::uint64_t seed) { CutPower(day, seed, 0); }

void PrepareWideInterval(Day& day, std::uint64_t seed)
{
    CutPower(day, seed, 0);
    day.schedule.intervalMax = 105;
}

void PrepareDelayedStart(Day& day, std::uint64_t seed) { CutPower(day, seed, 30 * kMinuteMs); }

void PrepareSlowServer(Day& day, std::uint64_t seed)
{
    CutPower(day, seed, 0);
    day.service.capacity = kServerCapacity * day.machines / 1'000'000;
}

void PrepareLimit(Day& day, std::uint64_t seed)
{
    CutPower(day, seed, 0);
    day.service.limit = kServerCapacity * day.machines / 1'000'000;
    day.service.burst = day.service.limit;
}

void PrepareKeptMissing(Day& day, std::uint64_t seed)
{
    CutPower(day, seed, 0);
    day.service.missingFreshMs = 10 * kSecondMs;
}

constexpr Scenario kScenarios[] = {
    {"all-day", "all machines are on for the day", false, true, PrepareAllDay},
    {"working-day", "started around 9:00, ended around 18:00 (standard deviation 20 minutes)", false, true,
     PrepareWorkingDay},
    {"lunch", "as working-day, suspended around 12:00, resumed around 13:00 (standard deviation 4 minutes)", false,
     true, PrepareLunch},
    {"power-cut", "all day, a power cut at 14:00, all started again between 14:02:00 and 14:02:10", false, true,
     PreparePowerCut},
    {"delayed-start", "each machine waits for up to 30 minutes, at random, before it starts the program", true, true,
     PrepareDelayedStart},
    {"wide-interval", "`IntervalMax` is 105, so that passes are 15 to 134 minutes apart", true, true,
     PrepareWideInterval},
    {"slow-server", "the server answers 50,000 requests a second for each million of machines, and the others wait",
     true, true, PrepareSlowServer},
    {"limit", "nginx refuses what is above 50,000 requests a second for each million of machines", true, false,
     PrepareLimit},
    {"kept-503", "the report server allows caches to keep an answer 503 for 10 seconds", true, false,
     PrepareKeptMissing},
};

} // namespace

std::span<const Scenario> Scenarios() { return kScenarios; }

const Scenario& FindScenario(const std::string& name)
{
    const auto* const found = std::find_if(std::begin(kScenarios), std::end(kScenarios),
                                           [&name](const Scenario& scenario) { return name == scenario.name; });
    if (found == std::end(kScenarios)) {
        throw std::invalid_argument("there is no scenario " + name);
    }
    return *found;
}

Day DayOf(const Scenario& scenario, std::uint32_t machines, std::uint64_t seed)
{
    Day day;
    day.machines = machines;
    day.schedule = DefaultSchedule();
    scenario.prepare(day, seed);
    return day;
}

} // namespace fleet
