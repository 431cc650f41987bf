#include "testing/simulation/PassState.h"

#include "platform/Files.h"
#include "platform/Text.h"

namespace simulation {

namespace {

constexpr std::int64_t kHalfDayMs = 12 * kHourMs;

template <class Value>
void Append(std::vector<BYTE>& bytes, const Value& value)
{
    const auto* first = reinterpret_cast<const BYTE*>(&value); // NOLINT: bytes are what is compared
    bytes.insert(bytes.end(), first, first + sizeof(value));
}

} // namespace

CString DataFilePath(const Company& company, const Kind& kind)
{
    const CString separator = platform::kPathSeparator;
    return L"C:" + separator + L"ProgramData" + separator + L"AmporaSrv" + separator +
           platform::FormatText(L"%s_%08X.dat", platform::DecodeUtf8(company.word), kind.code);
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
    std::vector<BYTE> records;
    DWORD count = 0;
    for (const Record& record : *merged) {
        if (KindInTurn().isTrimmed && (LocalOf(record.end) < lower || LocalOf(record.start) > upper)) {
            continue;
        }
        ++count;
        Append(records, record.value);
        Append(records, record.start);
        Append(records, record.end);
    }
    std::vector<BYTE> bytes;
    Append(bytes, DWORD{0x00010000});
    Append(bytes, KindInTurn().code);
    Append(bytes, count);
    Append(bytes, DWORD{0});
    Append(bytes, writeTime);
    bytes.insert(bytes.end(), records.begin(), records.end());
    return bytes;
}

void PassState::ExpectRequest(const CZone& zone)
{
    step = Step::kRequest;
    target = TargetOf(CompanyInTurn(), KindInTurn(), Day(zone));
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
