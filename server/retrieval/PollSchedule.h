// When a company is polled: arithmetic alone, all in Japan's wall clock.
//
// Files are renewed every five minutes. Each company has a second after the fifth minutes at which it is polite to ask
// (a slot). A poll lies up to kJitterLimit behind a slot, so that many servers do not ask at the same second, and never
// less than the interval behind the poll before. A poll that began later than that, because another company's took
// long, is followed by one in the first slot that keeps the interval.
#pragma once

#include "server/Figures.h"

#include <chrono>
#include <optional>

namespace reportd {

inline constexpr std::chrono::minutes kSlotLength{5};
inline constexpr std::chrono::seconds kJitterLimit{20};
inline constexpr std::chrono::minutes kLongestBackoff{60};
// After midnight: until then the new day's file may be missing. Some have been seen to appear as late as 01:43.
inline constexpr std::chrono::minutes kNewDayDue{105};

// The pace of one company.
struct PollPace {
    std::chrono::minutes interval{5};       // from the beginning of a poll to the next, 5 or more
    std::chrono::seconds politeSecond{180}; // after each fifth minute, from 0 to 299
};

// What came of a poll.
struct PollResult {
    unsigned failures = 0; // in a row, this poll's included; 0: it was good, or the file is not there yet
    std::optional<std::chrono::seconds> retryAfter = {}; // as the server said, from 0
    std::optional<std::chrono::seconds> freshFor = {};   // counts after a good poll alone
};

// How long to wait at least after a poll: the interval, doubled for each failure but the first up to the larger of
// kLongestBackoff and the interval; longer when the server wants so, for up to an hour.
std::chrono::seconds DelayAfter(const PollPace& pace, const PollResult& result);

// The poll after one that began at attempted. jitter: from 0 to kJitterLimit; counts only when attempted was in no
// slot, for a company that is polled in time keeps its place behind the slot.
LocalTime NextPoll(const PollPace& pace, const PollResult& result, LocalTime attempted, std::chrono::seconds jitter);

// When the company is due, with what is remembered from before a restart: planned, but not a poll that lies further
// ahead than any that NextPoll gives, for then the clock has been set back: instead the poll after one at this moment.
// planned, lastAttempt: none when there was none. A company that has never been polled is due now.
LocalTime DuePoll(const PollPace& pace, std::optional<LocalTime> planned, std::optional<LocalTime> lastAttempt,
                  LocalTime now, std::chrono::seconds jitter);

// Whether a file that is missing, or still yesterday's, is what is to be expected at this time of the day.
bool IsBeforeNewDay(LocalTime now);

} // namespace reportd
