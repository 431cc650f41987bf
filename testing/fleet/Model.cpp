#include "testing/fleet/Model.h"

#include "config/ConfigUtil.h"
#include "engine/RandomRule.h"
#include "engine/Schedule.h"
#include "format/Catalogue.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <optional>
#include <utility>

namespace fleet {

namespace {

using testing_support::kTestCompanies;
using testing_support::kTestKinds;

using Tick = std::int64_t; // times kAnswerMs, from the model's begin

constexpr TimeMs kNoonMs = 12 * kHourMs;
constexpr TimeMs kTomorrowsPeaksMs = 18 * kHourMs;
constexpr LONGLONG kUnitsPerMs = 10'000; // of a due time

constexpr std::uint32_t kNoMachine = std::numeric_limits<std::uint32_t>::max();
constexpr std::int32_t kNoTick = -1;

// What is known of a machine, in few bytes: a model spends most of its time on looking at them.
struct Machine {
    CRandomGenerator generator{0};
    bool isSeeded = false;
    bool isInPass = false;
    std::uint16_t life = 0; // counts its stops
    double passBegin = 0;   // of the group that it is in
    // Its neighbours among those that are due at the same tick.
    std::uint32_t next = kNoMachine;
    std::uint32_t previous = kNoMachine;
    std::int32_t dueTick = kNoTick;
};

// Lists of machines by the tick at which they are due. A machine is in one list at most.
class CDueLists {
public:
    CDueLists(std::size_t ticks, std::vector<Machine>& machines) : m_heads(ticks, kNoMachine), m_machines(machines) {}

    // Beyond the last tick: never.
    void Add(std::uint32_t machine, Tick tick)
    {
        if (tick >= static_cast<Tick>(m_heads.size())) {
            return;
        }
        std::uint32_t& head = m_heads[static_cast<std::size_t>(tick)];
        if (head != kNoMachine) {
            m_machines[head].previous = machine;
        }
        Machine& added = m_machines[machine];
        added.next = head;
        added.previous = kNoMachine;
        added.dueTick = static_cast<std::int32_t>(tick);
        head = machine;
    }
    void Remove(std::uint32_t machine)
    {
        Machine& removed = m_machines[machine];
        if (removed.dueTick == kNoTick) {
            return;
        }
        if (removed.next != kNoMachine) {
            m_machines[removed.next].previous = removed.previous;
        }
        (removed.previous == kNoMachine ? m_heads[static_cast<std::size_t>(removed.dueTick)]
                                        : m_machines[removed.previous].next) = removed.next;
        removed.dueTick = kNoTick;
    }
    // One that is due at this tick, removed; none when there is no other.
    std::optional<std::uint32_t> Take(Tick tick)
    {
        const std::uint32_t machine = m_heads[static_cast<std::size_t>(tick)];
        if (machine == kNoMachine) {
            return std::nullopt;
        }
        Remove(machine);
        return machine;
    }

private:
    std::vector<std::uint32_t> m_heads;
    std::vector<Machine>& m_machines;
};

// The cache: which answers it may use, and until when.
class CCache {
public:
    explicit CCache(const Service& service) : m_service(service), m_targets(TargetsOfAPass()) {}

    // So many machines ask for a target. How many requests go on to the report server: one for an answer that the cache
    // has to get, all of those whose answer it may not keep.
    double Ask(std::size_t target, TimeMs time, double machines)
    {
        const bool isAfternoon = time >= kNoonMs;
        TimeMs& freshUntil = m_freshUntil.at(isAfternoon ? 1 : 0)[target];
        if (time < freshUntil) {
            return 0;
        }
        const bool isMissing = IsMissing(m_targets[target], time);
        const TimeMs freshMs = isMissing ? m_service.missingFreshMs : m_service.freshMs;
        if (freshMs == 0) {
            return machines;
        }
        freshUntil = time + freshMs;
        return 1;
    }

private:
    using Ends = std::vector<TimeMs>;
    Service m_service;
    std::vector<Target> m_targets;
    // Before noon a target means another day than after it.
    std::array<Ends, 2> m_freshUntil = {Ends(m_targets.size(), std::numeric_limits<TimeMs>::min()),
                                        Ends(m_targets.size(), std::numeric_limits<TimeMs>::min())};
};

// Refuses what comes faster than a rate, beyond a burst: a bucket that empties at that rate.
class CLimit {
public:
    explicit CLimit(const Service& service)
        : m_perTick(service.limit * kAnswerMs / kSecondMs), m_burst(service.burst), m_isOn(service.limit > 0)
    {
    }
    // How many of a tick's requests are refused.
    double Refuse(double requests)
    {
        if (!m_isOn) {
            return 0;
        }
        m_level = std::max(0.0, m_level - m_perTick);
        const double taken = std::min(requests, m_burst + m_perTick - m_level);
        m_level += taken;
        return requests - taken;
    }

private:
    double m_perTick;
    double m_burst;
    bool m_isOn;
    double m_level = 0;
};

class CModel {
public:
    CModel(Day day, const PassObserver& observer);
    Load Run();

private:
    // Passes that began at the same moment. They are served alike, so that all of them are at the same target.
    struct Group {
        double begin = 0; // the rounds served until then
        std::vector<std::uint32_t> machines;
        std::vector<std::uint16_t> lives; // of each machine when it began
        std::size_t running = 0;
    };
    TimeMs TimeOf(Tick tick) const { return m_day.begin + tick * kAnswerMs; }
    void Change(const LifeEvent& event, Tick tick);
    void Stop(std::uint32_t machine);
    void BeginPass(std::uint32_t machine, Tick tick);
    void ArmTimer(std::uint32_t machine, Tick tick);
    void Serve(Tick tick);
    // A group's requests between two counts of its rounds, which go to the cache; how many of them it passes on.
    double AskFor(const Group& group, TimeMs time, double from, double to);
    void EndPasses(Tick tick);

    Day m_day;
    const PassObserver& m_observer;
    Tick m_ticks;
    double m_passRounds;
    std::vector<Machine> m_machines;
    CDueLists m_due;
    CCache m_cache;
    CLimit m_limit;
    std::deque<Group> m_groups; // in the order in which they began, and so end
    std::size_t m_running = 0;  // passes
    double m_rounds = 0;        // answers that a pass would have got if it had run from the model's begin on
    Load m_load;
};

CModel::CModel(Day day, const PassObserver& observer)
    : m_day(std::move(day)), m_observer(observer), m_ticks((kDayMs - m_day.begin) / kAnswerMs),
      m_passRounds(static_cast<double>(TargetsOfAPass().size())), m_machines(m_day.machines),
      m_due(static_cast<std::size_t>(m_ticks), m_machines), m_cache(m_day.service), m_limit(m_day.service)
{
    std::stable_sort(m_day.lives.begin(), m_day.lives.end(),
                     [](const LifeEvent& left, const LifeEvent& right) { return left.time < right.time; });
    for (std::vector<double>* const each : {&m_load.requests, &m_load.refused, &m_load.origin}) {
        each->resize(kDayMs / kSecondMs);
    }
}

Load CModel::Run()
{
    auto event = m_day.lives.begin();
    for (Tick tick = 0; tick < m_ticks; ++tick) {
        for (; event != m_day.lives.end() && event->time <= TimeOf(tick); ++event) {
            Change(*event, tick);
        }
        while (const std::optional<std::uint32_t> machine = m_due.Take(tick)) {
            BeginPass(*machine, tick);
        }
        Serve(tick);
    }
    return std::move(m_load);
}

void CModel::Change(const LifeEvent& event, Tick tick)
{
    switch (event.change) {
    case Change::kStart:
        m_machines[event.machine].isSeeded = false; // a new process
        BeginPass(event.machine, tick);
        break;
    case Change::kResume:
        ArmTimer(event.machine, tick);
        break;
    case Change::kSuspend:
    case Change::kPowerOff:
        Stop(event.machine);
        break;
    }
}

void CModel::Stop(std::uint32_t machine)
{
    m_due.Remove(machine);
    Machine& stopped = m_machines[machine];
    ++stopped.life;
    if (stopped.isInPass) {
        stopped.isInPass = false;
        --m_running;
        const auto group = std::find_if(m_groups.begin(), m_groups.end(),
                                        [&](const Group& one) { return one.begin == stopped.passBegin; });
        --group->running;
    }
}

void CModel::BeginPass(std::uint32_t machine, Tick tick)
{
    if (m_groups.empty() || m_groups.back().begin != m_rounds) {
        m_groups.emplace_back().begin = m_rounds;
    }
    Group& group = m_groups.back();
    group.machines.push_back(machine);
    group.lives.push_back(m_machines[machine].life);
    ++group.running;
    ++m_running;
    m_machines[machine].isInPass = true;
    m_machines[machine].passBegin = group.begin;
    if (TimeOf(tick) >= 0) {
        ++m_load.passes;
    }
    if (m_observer) {
        m_observer(machine, TimeOf(tick));
    }
}

void CModel::ArmTimer(std::uint32_t machine, Tick tick)
{
    Machine& armed = m_machines[machine];
    if (!std::exchange(armed.isSeeded, true)) {
        const std::int64_t time = (kMidnight * kSecondMs + TimeOf(tick)) / kSecondMs;
        armed.generator = CRandomGenerator(static_cast<std::uint32_t>(time));
    }
    const LONG random = RandomMinutes(armed.generator.Next(), m_day.schedule.intervalMin, m_day.schedule.intervalMax);
    const LONGLONG dueTime = IntervalDueTime(m_day.schedule.interval, random).QuadPart; // negative: from now
    const TimeMs delayMs = std::max<TimeMs>(-dueTime / kUnitsPerMs, 0);
    m_due.Add(machine, tick + delayMs / kAnswerMs);
}

void CModel::Serve(Tick tick)
{
    if (m_running == 0) {
        m_groups.clear();
        return;
    }
    const TimeMs time = TimeOf(tick);
    double rounds = 1;
    if (m_day.service.capacity > 0) {
        const double perTick = m_day.service.capacity * kAnswerMs / kSecondMs;
        rounds = std::min(rounds, perTick / static_cast<double>(m_running));
    }
    double requests = 0;
    double origin = 0;
    for (const Group& group : m_groups) {
        const double from = m_rounds - group.begin;
        const double to = std::min(from + rounds, m_passRounds);
        requests += static_cast<double>(group.running) * (to - from);
        origin += AskFor(group, time, from, to);
    }
    if (time >= 0) {
        const auto second = static_cast<std::size_t>(time / kSecondMs);
        const double refused = m_limit.Refuse(requests);
        m_load.requests[second] += requests;
        m_load.refused[second] += refused;
        m_load.origin[second] += requests > 0 ? origin * (requests - refused) / requests : 0;
    }
    m_rounds += rounds;
    EndPasses(tick + 1);
}

double CModel::AskFor(const Group& group, TimeMs time, double from, double to)
{
    double origin = 0;
    for (auto target = static_cast<std::size_t>(from); static_cast<double>(target) < to; ++target) {
        // Of machines that have to wait, some are answered now.
        const double part = std::min(to, static_cast<double>(target + 1)) - std::max(from, static_cast<double>(target));
        origin += m_cache.Ask(target, time, static_cast<double>(group.running) * part);
    }
    return origin;
}

void CModel::EndPasses(Tick tick)
{
    constexpr double kRounding = 1e-6;
    while (!m_groups.empty() && m_rounds - m_groups.front().begin >= m_passRounds - kRounding) {
        const Group group = std::move(m_groups.front());
        m_groups.pop_front();
        m_running -= group.running;
        for (std::size_t i = 0; i < group.machines.size(); ++i) {
            Machine& machine = m_machines[group.machines[i]];
            if (machine.life == group.lives[i]) {
                machine.isInPass = false;
                ArmTimer(group.machines[i], tick);
            }
        }
    }
}

} // namespace

Schedule DefaultSchedule()
{
    Schedule schedule;
    CConfigUtil::GetIntervalSetting(schedule.interval, schedule.intervalMin, schedule.intervalMax);
    return schedule;
}

std::vector<Target> TargetsOfAPass()
{
    std::vector<Target> targets;
    for (std::size_t company = 0; company < kTestCompanies.size(); ++company) {
        for (const testing_support::TestKind& kind : kTestKinds) {
            for (const int day : {0, 1}) {
                if ((kTestCompanies.at(company).mask & kind.code) != 0) {
                    targets.push_back({company, kind.code, day});
                }
            }
        }
    }
    return targets;
}

bool IsMissing(const Target& target, TimeMs time)
{
    const TimeMs timeOfDay = (time % kDayMs + kDayMs) % kDayMs;
    if (timeOfDay >= kNoonMs && target.day == 1) { // tomorrow
        const bool isPeak = target.dataType == catalogue::kPeakSupply || target.dataType == catalogue::kPeakDemand;
        return !isPeak || timeOfDay < kTomorrowsPeaksMs;
    }
    if (timeOfDay < kNoonMs && target.day == 1) { // today
        return (target.dataType == catalogue::kInstantUsage && timeOfDay < 5 * kMinuteMs) ||
               (target.dataType == catalogue::kActualUsage && timeOfDay < kHourMs);
    }
    return false;
}

Load Simulate(Day day, const PassObserver& observer) { return CModel(std::move(day), observer).Run(); }

} // namespace fleet
