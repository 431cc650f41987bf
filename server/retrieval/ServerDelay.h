// What an answer's header fields say about when to ask again.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace reportd {

// No server is obeyed for longer: one with a wrong clock or setting must not silence a company for days.
inline constexpr std::chrono::seconds kLongestServerDelay{3600};

// Values of header fields; empty: there is none.
struct DelayFields {
    std::string retryAfter = {}; // seconds, or a date of HTTP
    std::string cacheControl = {};
    std::string age = {};
    std::string expires = {}; // a date of HTTP
    std::string date = {};    // the same; the server's own clock, by which its dates are read
};

// How long not to ask: Retry-After. From 0 to kLongestServerDelay; none when it says nothing that can be understood.
// now: for a server that does not tell its own time. Any thread.
std::optional<std::chrono::seconds> ReadRetryAfter(const DelayFields& fields, std::chrono::sys_seconds now);

// The same of how long the answer stays fresh: max-age without Age, or else Expires. None as well when the answer may
// not be kept.
std::optional<std::chrono::seconds> ReadFreshness(const DelayFields& fields, std::chrono::sys_seconds now);

} // namespace reportd
