#include "server/retrieval/PollSchedule.h"

#include "server/retrieval/ServerDelay.h"

#include <algorithm>

namespace reportd {

namespace {

// How far a moment lies behind the slot before it.
seconds SinceSlot(const PollPace& pace, LocalTime moment)
{
    const LocalTime shifted = moment - pace.politeSecond;
    return shifted - LocalTime(shifted.time_since_epoch() / kSlotLength * kSlotLength);
}

// The first slot at or after a moment.
LocalTime SlotFrom(const PollPace& pace, LocalTime moment)
{
    const seconds since = SinceSlot(pace, moment);
    return since == seconds(0) ? moment : moment + (kSlotLength - since);
}

seconds LongestBackoff(const PollPace& pace) { return std::max<seconds>(pace.interval, kLongestBackoff); }

} // namespace

seconds DelayAfter(const PollPace& pace, const PollResult& result)
{
    const seconds longest = LongestBackoff(pace);
    seconds delay = pace.interval;
    for (unsigned failure = 1; failure < result.failures && delay < longest; ++failure) {
        delay = std::min(delay * 2, longest);
    }
    const std::optional<seconds>& wanted = result.failures == 0 ? result.freshFor : result.retryAfter;
    return std::max(delay, std::min(wanted.value_or(seconds(0)), kLongestServerDelay));
}

LocalTime NextPoll(const PollPace& pace, const PollResult& result, LocalTime attempted, seconds jitter)
{
    const seconds delay = DelayAfter(pace, result);
    const seconds behind = SinceSlot(pace, attempted);
    if (behind <= kJitterLimit) {
        return SlotFrom(pace, attempted - behind + delay) + behind;
    }
    return SlotFrom(pace, attempted + delay) + jitter;
}

LocalTime DuePoll(const PollPace& pace, std::optional<LocalTime> planned, std::optional<LocalTime> lastAttempt,
                  LocalTime now, seconds jitter)
{
    if (!planned) {
        return lastAttempt && *lastAttempt <= now ? NextPoll(pace, {}, *lastAttempt, jitter) : now;
    }
    const seconds furthest = LongestBackoff(pace) + kSlotLength + kJitterLimit;
    return *planned - now > furthest ? NextPoll(pace, {}, now, jitter) : *planned;
}

bool IsBeforeNewDay(LocalTime now) { return now - std::chrono::floor<std::chrono::days>(now) < kNewDayDue; }

} // namespace reportd
