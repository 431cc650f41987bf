// Why there is no fresh data, and what to do about it.
#pragma once

#include "ctl/Freshness.h"
#include "ctl/ReportProbe.h"

#include <optional>
#include <string>
#include <vector>

namespace ctl {

// What one look at the machine has shown.
struct StatusFacts {
    bool runs = false;      // a copy of amporasrv
    bool isPaused = false;  // it runs, but makes no passes: the machine suspends, or the session has been left
    bool isEnabled = false; // updating
    bool isOnLine = false;
    CString apiHost;               // as the settings have it
    std::optional<Probe> probe;    // of the first stale file's report; none when nothing is stale or nobody asked
    CString folder;                // of the data files
    bool hasFolder = false;        // it exists
    std::vector<CString> unusable; // FindUnusableFolders
    std::int64_t maxAgeSeconds = 0;
    std::vector<JudgedFile> files; // of all companies and kinds
};

// One reason and what to do.
struct Cause {
    std::string code; // for JSON: a word that stays the same
    CString text;     // a clause without a full stop
};

// Whether every file that the settings want is fresh, and there is one.
bool IsAllFresh(const std::vector<JudgedFile>& files);

// The first file that the settings want and that is missing, old or without records: what an answer of the report API
// would tell about. Null when there is none.
const JudgedFile* FirstStale(const std::vector<JudgedFile>& files);

// The most basic reason first; none when all is well.
std::vector<Cause> CausesOf(const StatusFacts& facts);

} // namespace ctl
