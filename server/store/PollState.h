// What the poller knows of one company and must still know after a restart.
#pragma once

#include "server/Figures.h"

#include <optional>
#include <string>

namespace reportd {

struct PollState {
    std::optional<LocalTime> nextPoll = {};    // no request before that; none: at once
    std::optional<LocalTime> lastAttempt = {}; // when the last request began
    std::optional<LocalTime> lastSuccess = {}; // when a file was last taken, or found to be unchanged
    std::optional<LocalTime> published = {};   // the newest stamp of the publisher that was taken
    unsigned failures = 0;                     // in a row
    std::string etag = {};                     // with lastModified: the validators that came with the file at url
    std::string lastModified = {};
    std::string url = {};         // that the validators belong to
    std::string layout = {};      // of the last good file: digest or text of its headings
    std::string lastFailure = {}; // reason key of the last failure; empty after a success

    bool operator==(const PollState&) const = default;
};

} // namespace reportd
