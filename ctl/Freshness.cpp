#include "ctl/Freshness.h"

#include "config/ConfigUtil.h"
#include "platform/Clock.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace ctl {

namespace {

constexpr std::int64_t kMinuteSeconds = 60;
// A file on another machine's disk may have been written by a clock that is a little fast.
constexpr std::int64_t kClockToleranceSeconds = kMinuteSeconds;
constexpr int kMaxAgeMinutes = 366 * 24 * 60;

auto DayOf(const SYSTEMTIME& time) { return std::make_tuple(time.wYear, time.wMonth, time.wDay); }

// None when the file does not tell when it was written.
std::optional<std::int64_t> AgeSeconds(const DataFile& file, const FreshnessRule& rule)
{
    FILETIME valid{};
    if (!platform::CalendarToFileTime(&file.header.writeTime, &valid)) {
        return std::nullopt;
    }
    const std::int64_t written = platform::LocalCalendarToTime(file.header.writeTime);
    return written == -1 ? std::nullopt : std::optional(rule.now - written);
}

Freshness FreshnessOf(const KnownFile& known, std::optional<std::int64_t> age, const FreshnessRule& rule)
{
    if (!IsWanted(known.company, known.kind)) {
        return Freshness::kUnwanted;
    }
    if (known.content.fault != DataFileFault::kNone) {
        return known.content.fault == DataFileFault::kMissing ? Freshness::kMissing : Freshness::kFaulty;
    }
    if (!age) {
        return Freshness::kUndated;
    }
    if (*age < -kClockToleranceSeconds) {
        return Freshness::kFuture;
    }
    if (*age > rule.maxAgeSeconds) {
        return Freshness::kOld;
    }
    return known.content.records.empty() ? Freshness::kEmpty : Freshness::kFresh;
}

} // namespace

void AddMaxAge(CLI::App& verb, int& minutes)
{
    verb.add_option("--max-age", minutes,
                    "Minutes after which a file counts as old; without it, twice the longest interval of the settings")
        ->type_name("MINUTES")
        ->check(CLI::Range(1, kMaxAgeMinutes));
}

std::int64_t LongestIntervalSeconds()
{
    LONG interval = 0;
    LONG minimum = 0;
    LONG maximum = 0;
    CConfigUtil::GetIntervalSetting(interval, minimum, maximum);
    const std::int64_t minutes = std::int64_t{interval} + std::max(minimum, maximum);
    return std::max<std::int64_t>(minutes, 1) * kMinuteSeconds;
}

FreshnessRule RuleOfNow(int minutes)
{
    return {platform::ReadTime(), minutes == 0 ? 2 * LongestIntervalSeconds() : minutes * kMinuteSeconds};
}

bool IsWanted(const catalogue::Company& company, const catalogue::Kind& kind)
{
    return CConfigUtil::IsSiteEnable(company.siteNumber) &&
           (CConfigUtil::GetSupportDataType(company.siteNumber, company.defaultMask) & kind.dataType) != 0;
}

JudgedFile JudgeFile(KnownFile known, const FreshnessRule& rule)
{
    const bool isSound = known.content.fault == DataFileFault::kNone;
    const std::optional<std::int64_t> age = isSound ? AgeSeconds(known.content, rule) : std::nullopt;
    const Freshness freshness = FreshnessOf(known, age, rule);
    return {std::move(known), freshness, age};
}

const wchar_t* FreshnessWord(Freshness freshness)
{
    switch (freshness) {
    case Freshness::kUnwanted:
        return L"off";
    case Freshness::kMissing:
        return L"missing";
    case Freshness::kFaulty:
        return L"faulty";
    case Freshness::kUndated:
        return L"undated";
    case Freshness::kFuture:
        return L"future";
    case Freshness::kOld:
        return L"old";
    case Freshness::kEmpty:
        return L"empty";
    case Freshness::kFresh:
        break;
    }
    return L"fresh";
}

const _AmporaOneData* PresentRecord(const KnownFile& known, const SYSTEMTIME& now)
{
    const _AmporaOneData* present = nullptr;
    for (const _AmporaOneData& record : known.content.records) {
        const bool hasCome =
            known.kind.isTrimmed ? !StartsEarlier({0, now, now}, record) : DayOf(record.stStart) <= DayOf(now);
        if (hasCome && (present == nullptr || StartsEarlier(*present, record))) {
            present = &record;
        }
    }
    return present;
}

} // namespace ctl
