#include "testing/simulation/PassState.h"

#include "platform/Files.h"
#include "platform/Text.h"

namespace simulation {

namespace {

constexpr std::int64_t kHalfDayMs = 12 * kHourMs;

} // namespace

CString DataFilePath(const TestCompany& company, const TestKind& kind)
{
    const CString separator = platform::kPathSeparator;
    return L"C:" + separator + L"ProgramData" + separator + L"AmporaSrv" + separator +
           platform::DecodeUtf8(testing_support::DataFileName(company.word, kind.code));
}

void PassState::Begin(const CZone& zone, UtcMs now)
{
    // Through the local clock, whole seconds.
    const UtcMs seconds = zone.ToUtc(zone.ToLocal(now) / kSecondMs * kSecondMs);
    lower = zone.ToLocal(seconds - kHalfDayMs);
    upper = zone.ToLocal(seconds + kHalfDayMs);
    const UtcMs last = zone.ToUtc(upper);
    for (UtcMs utc = zone.ToUtc(lower); utc <= last; utc += kDayMs) {
        days.push_back(utc);
    }
}

std::vector<BYTE> PassState::File(const SYSTEMTIME& writeTime) const
{
    Records kept = *merged;
    std::erase_if(kept, [this](const Record& record) {
        return KindInTurn().isTrimmed && (LocalOf(record.end) < lower || LocalOf(record.start) > upper);
    });
    const std::string bytes = testing_support::HeaderBytes(KindInTurn().code, kept.size()) +
                              testing_support::CalendarBytes(writeTime) + testing_support::RecordBytes(kept);
    return {bytes.begin(), bytes.end()};
}

void PassState::ExpectRequest(const CZone& zone)
{
    step = Step::kRequest;
    target = testing_support::TargetOf(
        {CompanyInTurn().word, static_cast<unsigned>(KindInTurn().code), testing_support::DateText(Day(zone))});
}

void PassState::EndDay(const std::optional<Records>& records, const CString& heldPath)
{
    if (records) {
        Records& all = merged ? *merged : merged.emplace();
        all.insert(all.end(), records->begin(), records->end());
    }
    step = Step::kLookup;
    if (++day < days.size()) {
        return;
    }
    if (merged && Path() != heldPath) {
        step = Step::kWrite;
    } else {
        EndKind();
    }
}

void PassState::EndKind()
{
    merged.reset();
    step = Step::kLookup;
    day = 0;
    ++turn;
}

} // namespace simulation
