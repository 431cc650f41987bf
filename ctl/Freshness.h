// Whether the data files are as young as the settings promise, and which of their records is the present one.
#pragma once

#include "ctl/DataFiles.h"

namespace ctl {

// How a data file stands; the first that applies.
enum class Freshness {
    kUnwanted, // the settings switch the company or the kind off: no pass renews the file
    kMissing,  // there is none
    kFaulty,   // its content says why (DataFile::reason)
    kUndated,  // it does not tell when it was written
    kFuture,   // written later than now: the clock has been put back
    kOld,      // older than the rule allows
    kEmpty,    // it has no records: the report API had no data
    kFresh,
};

// What a file is judged by.
struct FreshnessRule {
    std::int64_t now = 0;           // time value (platform/Clock.h)
    std::int64_t maxAgeSeconds = 0; // greatest age of a fresh file
};

// Adds the option --max-age to a verb. minutes: where its value is stored, 0 without it; must live as long as the verb.
void AddMaxAge(CLI::App& verb, int& minutes);

// The longest time between two passes that the settings allow, in seconds: Interval and the greater of IntervalMin and
// IntervalMax; at least a minute.
std::int64_t LongestIntervalSeconds();

// The rule that holds now: the greatest age is that of --max-age, or twice LongestIntervalSeconds when minutes is 0. To
// be made after the files have been read, so that none of them seems to lie in the future.
FreshnessRule RuleOfNow(int minutes);

// Whether the settings want the company's reports of this kind.
bool IsWanted(const catalogue::Company& company, const catalogue::Kind& kind);

// A data file and how it stands.
struct JudgedFile {
    KnownFile known;
    Freshness freshness = Freshness::kMissing;
    // Since the file was written, negative for a time in the future; of a file without a fault that tells its time.
    std::optional<std::int64_t> ageSeconds;
};

// How the file stands by the rule. known: as it has been read.
JudgedFile JudgeFile(KnownFile known, const FreshnessRule& rule);

// A freshness as one word for people and for JSON: "off", "missing", "faulty", "undated", "future", "old", "empty",
// "fresh".
const wchar_t* FreshnessWord(Freshness freshness);

// The record of a file that holds now, local calendar time, or null: of usage the one that started last, not one of the
// future, as an estimate has; of a peak that of today, or of the last day before.
const _AmporaOneData* PresentRecord(const KnownFile& known, const SYSTEMTIME& now);

} // namespace ctl
