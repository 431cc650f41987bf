// What polling the companies' files has brought since the program started, for /metrics.
#pragma once

#include "server/Figures.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace reportd {

// Counted by the thread that polls, read by the one that answers: any thread may call anything. siteNumber: as in the
// catalogue; other numbers are counted as well, but /metrics shows the catalogue's companies only.
class CPollStatistics {
public:
    // Of one company.
    struct Company {
        std::uint64_t attempts = 0;                         // polls that were begun
        std::uint64_t layoutChanges = 0;                    // files whose headings differ from the file's before them
        std::map<std::string, std::uint64_t> failures = {}; // polls that brought no figures, by reason key
        std::optional<LocalTime> lastSuccess = {};          // Japan's time; none: no success yet
        std::optional<LocalTime> published = {};            // the publisher's stamp of the file then; Japan's time

        bool operator==(const Company&) const = default;
    };

    void CountAttempt(int siteNumber);

    // reasonKey: [a-z_]+; each different one becomes a time series of its own, so it must come from a fixed list.
    void CountFailure(int siteNumber, std::string_view reasonKey);

    // A file was accepted, or found to be unchanged. when: the moment of that; published: the stamp of that file.
    void NoteSuccess(int siteNumber, LocalTime when, LocalTime published);

    void CountLayoutChange(int siteNumber);

    // A copy of what was counted so far; of a company that nothing was counted for, zeros.
    Company Of(int siteNumber) const;

private:
    mutable std::mutex m_mutex;
    std::map<int, Company> m_companies;
};

} // namespace reportd
