// The model against the program: both live the same day, and every request of theirs is compared.
#include "app/AmporaSrvApp.h"
#include "config/SharedNames.h"
#include "platform/sim/Machine.h"
#include "testing/fleet/Scenarios.h"
#include "testing/simulation/LocalTime.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

namespace fleet {
namespace {

using platform::sim::CMachine;
using testing_support::HttpAnswer;
using testing_support::HttpExchange;

struct Ask {
    TimeMs time = 0;
    std::string target;

    bool operator==(const Ask&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Ask& ask) { return stream << ask.time << " " << ask.target; }

constexpr TimeMs kHalfDayMs = kDayMs / 2;
constexpr std::int64_t kOffsetSeconds = 32'400; // of Japan
constexpr TimeMs kGraceMs = 200;                // that a machine leaves its programs before it is suspended

SYSTEMTIME CalendarOf(TimeMs time) { return simulation::CalendarOf((kMidnight + kOffsetSeconds) * kSecondMs + time); }

// A machine's life, without those of the others.
std::vector<LifeEvent> LifeOf(const Day& day, std::uint32_t machine)
{
    std::vector<LifeEvent> life;
    std::copy_if(day.lives.begin(), day.lives.end(), std::back_inserter(life),
                 [machine](const LifeEvent& event) { return event.machine == machine; });
    std::sort(life.begin(), life.end(),
              [](const LifeEvent& left, const LifeEvent& right) { return left.time < right.time; });
    return life;
}

// The program on a machine of its own.
class CProgram {
public:
    CProgram(const Day& day, std::vector<LifeEvent> life) : m_life(std::move(life)), m_now(m_life.front().time)
    {
        constexpr wchar_t kKey[] = L"Software\\Halvex\\AmporaSrv";
        m_machine.PutDword(platform::Hive::kMachine, kKey, L"Enable", 1);
        if (day.schedule.intervalMax != 15) {
            m_machine.PutDword(platform::Hive::kMachine, kKey, L"IntervalMax",
                               static_cast<DWORD>(day.schedule.intervalMax));
        }
        m_machine.KeepDebugLines(false);
        m_machine.KeepHttpExchanges(false);
        m_machine.SetLocalClock(CalendarOf(m_now));
        m_machine.SetHttpHandler([this](const HttpExchange& exchange) {
            m_asks.push_back({m_machine.ElapsedMs() - m_begin + m_beginTime, exchange.target});
            HttpAnswer answer{503};
            answer.latencyMs = kAnswerMs;
            return answer;
        });
    }

    std::vector<Ask> LiveUntil(TimeMs end)
    {
        for (const LifeEvent& event : m_life) {
            PassTo(event.time);
            Apply(event.change);
        }
        PassTo(end);
        Apply(Change::kPowerOff);
        m_machine.RunFor(kMinuteMs);
        std::erase_if(m_asks, [end](const Ask& ask) { return ask.time >= end; });
        return m_asks;
    }

private:
    void PassTo(TimeMs time)
    {
        if (m_isSuspended) {
            m_machine.RunFor(kGraceMs);
            m_machine.PassSuspended(time - m_now - kGraceMs);
        } else {
            m_machine.RunFor(time - m_now);
        }
        m_now = time;
        m_begin = m_machine.ElapsedMs();
        m_beginTime = time;
    }

    void Apply(Change change)
    {
        m_isSuspended = change == Change::kSuspend;
        switch (change) {
        case Change::kStart:
            m_machine.StartProcess(1, [] { return CAmporaSrvApp().Run({}); });
            break;
        case Change::kSuspend:
            m_machine.NotifyPower(PBT_APMSUSPEND);
            break;
        case Change::kResume:
            m_machine.NotifyPower(PBT_APMRESUMEAUTOMATIC);
            break;
        case Change::kPowerOff:
            m_machine.OtherProcessPosts(kWindowClassName, WM_QUIT, 0, 0);
            break;
        }
        m_machine.RunUntilIdle();
    }

    CMachine m_machine;
    std::vector<LifeEvent> m_life;
    TimeMs m_now;
    bool m_isSuspended = false;
    std::int64_t m_begin = 0; // elapsed time of the machine at the last change,
    TimeMs m_beginTime = 0;   // and the model's
    std::vector<Ask> m_asks;
};

// What the model has a machine ask for, from the times at which its passes begin.
std::vector<Ask> ModelAsks(const std::vector<TimeMs>& passes, const std::vector<LifeEvent>& life)
{
    std::vector<Ask> asks;
    const std::vector<Target> targets = TargetsOfAPass();
    for (const TimeMs pass : passes) {
        TimeMs time = pass;
        const auto stop = std::find_if(life.begin(), life.end(), [pass](const LifeEvent& event) {
            return event.time > pass && (event.change == Change::kSuspend || event.change == Change::kPowerOff);
        });
        for (const Target& target : targets) {
            if ((stop != life.end() && time >= stop->time) || time >= kDayMs) {
                break;
            }
            const std::string date =
                testing_support::DateText(CalendarOf(pass + (target.day == 0 ? -kHalfDayMs : kHalfDayMs)));
            asks.push_back({time, testing_support::TargetOf({testing_support::kTestCompanies.at(target.company).word,
                                                             static_cast<unsigned>(target.dataType), date})});
            time += kAnswerMs;
        }
    }
    return asks;
}

class FleetProgram : public testing::TestWithParam<const char*> {};

TEST_P(FleetProgram, AsksAtEveryMomentForWhatTheModelSays)
{
    constexpr std::uint32_t kMachines = 60;
    const Day day = [] {
        const CMachine unset;
        return DayOf(FindScenario(GetParam()), kMachines, 7);
    }();
    std::map<std::uint32_t, std::vector<TimeMs>> passes;
    Simulate(day, [&passes](std::uint32_t machine, TimeMs time) { passes[machine].push_back(time); });
    std::size_t compared = 0;
    for (std::uint32_t machine = 0; machine < kMachines; ++machine) {
        const std::vector<LifeEvent> life = LifeOf(day, machine);
        const std::vector<Ask> expected = ModelAsks(passes[machine], life);
        const std::vector<Ask> asked = CProgram(day, life).LiveUntil(kDayMs);
        // Of lists this long only the first difference can be read.
        const auto [one, other] = std::mismatch(asked.begin(), asked.end(), expected.begin(), expected.end());
        ASSERT_TRUE(one == asked.end() && other == expected.end())
            << "machine " << machine << " after " << one - asked.begin() << " requests: asked "
            << (one == asked.end() ? Ask() : *one) << ", expected " << (other == expected.end() ? Ask() : *other);
        compared += expected.size();
    }
    EXPECT_GT(compared, kMachines * 400U);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FleetProgram,
                         testing::Values("all-day", "working-day", "lunch", "power-cut", "delayed-start",
                                         "wide-interval"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::erase(name, '-');
                             return name;
                         });

} // namespace
} // namespace fleet
