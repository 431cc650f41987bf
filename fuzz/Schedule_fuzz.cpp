// Schedules of any settings at any moment. The zone is the system's: run it in one with daylight saving too.
#include "data/CalendarTime.h"
#include "engine/RandomRule.h"
#include "engine/Schedule.h"
#include "fuzz/Require.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kLastTime = 32'500'000'000; // before the end of the year 3000

// What an input stands for, as its bytes lie there.
struct Input {
    std::uint64_t now;
    std::uint32_t fixedClock;
    std::int32_t minimum;
    std::int32_t maximum;
    std::int32_t interval;
    std::uint16_t draw;
    std::uint16_t nextDraw;
};

// The rule in whole numbers, which divide toward zero.
LONG MinutesOf(int draw, LONG minimum, LONG maximum)
{
    const std::int64_t low = std::min(minimum, maximum);
    const std::int64_t high = std::max(minimum, maximum);
    return static_cast<LONG>((draw * (high - low) + low * 32768) / 32768);
}

LONG CheckRandom(const Input& input)
{
    const auto [low, high] = std::minmax(input.minimum, input.maximum);
    const int draw = input.draw & 0x7FFF;
    const LONG minutes = RandomMinutes(draw, input.minimum, input.maximum);
    Require(minutes == MinutesOf(draw, input.minimum, input.maximum));
    Require(minutes == RandomMinutes(draw, input.maximum, input.minimum));
    Require(low == high ? minutes == low : minutes >= low && (minutes < high || high <= 0));
    const int later = std::max<int>(draw, input.nextDraw & 0x7FFF);
    Require(RandomMinutes(later, input.minimum, input.maximum) >= minutes);
    return minutes;
}

void CheckInterval(const Input& input, LONG minutes)
{
    constexpr LONGLONG kMinute = 600'000'000;
    const LONGLONG dueTime = IntervalDueTime(input.interval, minutes).QuadPart;
    Require(dueTime % kMinute == 0 && -dueTime / kMinute == LONGLONG{input.interval} + minutes);
}

// As the updater arms its timer for the base time.
void CheckBaseTime(const Input& input, LONG minutes)
{
    const auto now = static_cast<std::int64_t>(input.now % kLastTime);
    const auto fixedClock = static_cast<LONG>(input.fixedClock % 8 == 0 ? input.fixedClock : input.fixedClock % 24);
    const SYSTEMTIME local = CalendarFromTime(now);
    if (!IsBeforeBaseTime(local.wHour, fixedClock)) {
        Require(local.wHour >= fixedClock);
        return;
    }
    std::int64_t base = 0;
    try {
        base = TimeFromCalendar(BaseTime(local, fixedClock));
    } catch (const COleException& exception) {
        // No hour of a day, or the first day or last of all lies partly outside the scale.
        Require(fixedClock > 23 || (exception.Code() == kDateConversionFailed && now < 24 * kHour));
        return;
    }
    Require(fixedClock <= 23);
    // It is ahead, by no more than a day of 25 hours and, where an hour is left out, at the next one.
    Require(base > now && base - now <= 25 * kHour);
    const SYSTEMTIME there = CalendarFromTime(base);
    Require(there.wDay == local.wDay && there.wMonth == local.wMonth && there.wYear == local.wYear);
    Require(there.wHour == fixedClock || there.wHour == fixedClock + 1);
    Require(DelayedTime(base, minutes) - base == std::int64_t{minutes} * 60);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    Input input{};
    std::memcpy(&input, bytes, std::min(size, sizeof(input)));
    const LONG minutes = CheckRandom(input);
    CheckInterval(input, minutes);
    CheckBaseTime(input, minutes);
    CRandomGenerator generator(static_cast<std::uint32_t>(input.now));
    for (int i = 0; i < 4; ++i) {
        const int number = generator.Next();
        Require(number >= 0 && number <= 32767);
    }
    return 0;
}
