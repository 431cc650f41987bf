#include "ctl/ExpectedPass.h"

#include "platform/Clock.h"
#include "platform/sim/Machine.h"

#include <gtest/gtest.h>

namespace {

using platform::Hive;

constexpr wchar_t kMainKey[] = L"Software\\Halvex\\AmporaSrv";

// A time of 2012-07-02; -1 for "-".
std::int64_t At(const std::string& time)
{
    return time == "-" ? -1
                       : platform::LocalCalendarToTime({2012, 7, 1, 2, static_cast<WORD>(std::stoi(time.substr(0, 2))),
                                                        static_cast<WORD>(std::stoi(time.substr(3))), 0, 0});
}

std::string TextOf(std::int64_t time)
{
    SYSTEMTIME local{};
    platform::TimeToLocalCalendar(time, &local);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d", local.wHour, local.wMinute);
    return text;
}

TEST(ExpectedPass, LiesInTheIntervalAfterTheLastWriteOrTheStart)
{
    platform::sim::CMachine machine;
    const struct {
        const char* now;
        const char* copyStart;
        const char* youngestWrite;
        const char* range;
    } cases[] = {
        {"13:00", "10:00", "12:50", "13:05 to 13:35"},
        {"13:10", "10:00", "12:50", "13:10 to 13:35"}, // not in the past
        {"13:36", "10:00", "12:50", "unknown"},        // what was expected has not come
        {"13:00", "12:55", "12:50", "13:10 to 13:40"}, // nothing written since the start
        {"13:00", "-", "12:50", "13:05 to 13:35"},
        {"13:00", "-", "-", "unknown"},
        // Started before FixedClock: a pass after the interval, or, when updating was off, then.
        {"08:00", "08:00", "-", "08:15 to 09:30"},
        {"09:10", "08:00", "-", "09:10 to 09:30"},
        {"09:31", "08:00", "-", "unknown"},
        {"08:20", "08:00", "08:01", "08:20 to 08:46"},
    };
    for (const auto& each : cases) {
        const auto range = ctl::ExpectPass({At(each.now), At(each.copyStart), At(each.youngestWrite)});
        EXPECT_EQ(range ? TextOf(range->from) + " to " + TextOf(range->to) : "unknown", each.range)
            << each.now << " " << each.copyStart << " " << each.youngestWrite;
    }
}

TEST(ExpectedPass, FollowsTheSettings)
{
    platform::sim::CMachine machine;
    const auto set = [&machine](const wchar_t* name, LONG value) {
        machine.PutDword(Hive::kMachine, kMainKey, name, static_cast<DWORD>(value));
    };
    const auto expected = [] {
        const auto range = ctl::ExpectPass({At("13:00"), -1, At("13:00")});
        return TextOf(range->from) + " to " + TextOf(range->to);
    };
    set(L"Interval", 60);
    set(L"IntervalMin", 20); // reversed
    set(L"IntervalMax", 10);
    EXPECT_EQ(expected(), "14:10 to 14:20");
    set(L"Interval", -30); // due at once
    EXPECT_EQ(expected(), "13:00 to 13:00");
    set(L"FixedClock", 24); // is no hour
    EXPECT_EQ(ctl::ExpectPass({At("14:00"), At("08:00"), -1}), std::nullopt);
}

} // namespace
