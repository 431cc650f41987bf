#include "format/DataFileFormat.h"
#include "platform/Text.h"
#include "testing/ladder/Trial.h"
#include "testing/simulation/PassState.h"

#include <algorithm>
#include <cstring>

namespace ladder {

namespace {

constexpr std::size_t kHeaderSize = sizeof(DataFileHeader);
constexpr std::size_t kTimeOffset = offsetof(DataFileHeader, writeTime); // to the header's end

constexpr const char* kStateNames[] = {"old", "new", "part", "cut", "zero", "other", "stray"}; // by bit of FileState
constexpr const char* kRecoveryNames[] = {"by itself",    "on the event", "on a resume", "on suspend and resume",
                                          "on a restart", "never"};

std::string NamesOf(unsigned state)
{
    std::string names;
    for (std::size_t i = 0; i < std::size(kStateNames); ++i) {
        names += (state >> i & 1U) != 0 ? std::string(" ") + kStateNames[i] : "";
    }
    return names.empty() ? " nothing of that" : names;
}

using Bytes = std::vector<BYTE>;
using Records = std::vector<_AmporaOneData>;

bool IsSameButForTime(const Bytes& left, const Bytes& right)
{
    const auto isTime = [](std::size_t offset) { return offset >= kTimeOffset && offset < kHeaderSize; };
    bool isSame = left.size() == right.size();
    for (std::size_t i = 0; isSame && i < left.size(); ++i) {
        isSame = left[i] == right[i] || isTime(i);
    }
    return isSame;
}

const Bytes* Find(const Files& files, const CString& path)
{
    const auto found = files.find(path);
    return found == files.end() ? nullptr : &found->second;
}

// What a file holds: its whole records; rest: the bytes behind them, or all when there is no whole header.
struct Content {
    DataFileHeader header = {};
    Records records = {};
    std::size_t rest = 0;
};

Content ContentOf(const Bytes& file)
{
    Content content{.rest = file.size()};
    if (file.size() >= kHeaderSize) {
        std::memcpy(&content.header, file.data(), kHeaderSize);
        content.records.resize((file.size() - kHeaderSize) / sizeof(_AmporaOneData));
        const std::size_t size = content.records.size() * sizeof(_AmporaOneData);
        if (size > 0) { // without records there is no place to copy to
            std::memcpy(content.records.data(), file.data() + kHeaderSize, size);
        }
        content.rest -= kHeaderSize + size;
    }
    return content;
}

// Whether all records stand among the others, too, in the same order. mayBeZero: their values may be 0.
bool IsPartOf(const Records& records, const Records& others, bool mayBeZero)
{
    auto from = others.begin();
    return std::ranges::all_of(records, [&](const _AmporaOneData& record) {
        from = std::find_if(from, others.end(), [&](_AmporaOneData other) {
            other.ullValue = mayBeZero && record.ullValue == 0 ? 0 : other.ullValue;
            return std::memcmp(&record, &other, sizeof(record)) == 0;
        });
        return from == others.end() ? false : (++from, true);
    });
}

// What the content is by itself and beside the undisturbed records, of FileState.
unsigned StateOfContent(const Content& content, const Records& undisturbed, DWORD dataType)
{
    const DataFileHeader wanted{kDataFileVersion, dataType, content.header.count, 0, content.header.writeTime};
    const bool isEmpty = content.records.empty() && content.header.version == 0; // not even a header
    if (content.rest != 0 || (!isEmpty && std::memcmp(&content.header, &wanted, sizeof(wanted)) != 0)) {
        return 0;
    }
    const bool isPart = IsPartOf(content.records, undisturbed, false);
    if (isEmpty || content.records.size() != content.header.count) {
        return isPart && content.records.size() <= content.header.count ? kCut : 0U;
    }
    return kOther | (isPart ? kPart : 0U) | (IsPartOf(content.records, undisturbed, true) ? kZero : 0U);
}

// Of FileState. before, undisturbed: the same file when the scenario began, and what a pass without a fault makes of
// it; all may be null for a file that is not there.
unsigned StateOf(const Bytes* file, const Bytes* before, const Bytes* undisturbed, DWORD dataType)
{
    if (file == nullptr) {
        return (before == nullptr ? kOld : 0U) | (undisturbed == nullptr ? kNew | kPart : 0U);
    }
    const bool isOld = before != nullptr && *file == *before;
    const bool isNew = undisturbed != nullptr && IsSameButForTime(*file, *undisturbed);
    const Records all = undisturbed == nullptr ? Records() : ContentOf(*undisturbed).records;
    return (isOld ? kOld : 0U) | (isNew ? kNew : 0U) | StateOfContent(ContentOf(*file), all, dataType);
}

// Whether the trace line is one of the alternatives.
bool IsOneOf(const CString& traceLine, const std::string& alternatives, DWORD code)
{
    std::size_t begin = 0;
    while (begin <= alternatives.size()) {
        const std::size_t end = std::min(alternatives.find('|', begin), alternatives.size());
        const std::string one = alternatives.substr(begin, end - begin);
        const CString message = platform::FormatText(platform::DecodeUtf8(one.substr(4)).c_str(), code);
        if (traceLine.starts_with(L"[" + platform::DecodeUtf8(one.substr(0, 3)) + L"]") &&
            traceLine.ends_with(L" : " + message + L"\n")) {
            return true;
        }
        begin = end + 1;
    }
    return false;
}

// The trace lines that have to come first after the failure.
std::string JudgeLines(const Contract& contract, bool isFirstOnly, const Outcome& outcome)
{
    const char* const promised[] = {contract.line, isFirstOnly ? nullptr : contract.secondLine};
    for (std::size_t i = 0; i < std::size(promised); ++i) {
        const bool isThere = promised[i] == nullptr ||
                             (i < outcome.lines.size() && IsOneOf(outcome.lines[i], promised[i], contract.code));
        if (!isThere) {
            return std::string("no line \"") + promised[i] + "\", but " +
                   (i < outcome.lines.size() ? platform::EncodeUtf8(outcome.lines[i]) : "none\n");
        }
    }
    return "";
}

// Whether the fault concerns the file whose turn comes as this one. A pass asks for two days of each, in their order,
// and nobody sees whether it fails with the answer, with the file or with the next request; before the first request it
// may concern all.
enum class Concern { kNone, kMaybe, kSure };
Concern ConcernOf(std::size_t turn, const Fault& fault, const Outcome& outcome)
{
    const unsigned requests = outcome.requestsBefore;
    if (fault.lasts && turn > requests / 2) {
        return Concern::kSure;
    }
    return requests == 0 || turn == (requests - 1) / 2 || turn == requests / 2 ? Concern::kMaybe : Concern::kNone;
}

// The files that are not the program's.
std::string StraysOf(const Files& files, const Outcome& reference)
{
    std::string strays;
    for (const auto& [path, content] : files) {
        strays += reference.final.contains(path) ? "" : " " + platform::EncodeUtf8(path);
    }
    return strays;
}

std::string JudgeFiles(const Scenario& scenario, const Fault& fault, const Contract& contract, const Outcome& reference,
                       const Outcome& outcome)
{
    const Files& undisturbed = scenario.isUncertain ? reference.inFull : reference.after;
    std::size_t turn = 0;
    for (const simulation::TestCompany& company : simulation::kTestCompanies) {
        for (const simulation::TestKind& kind : simulation::kTestKinds) {
            const CString path = simulation::DataFilePath(company, kind);
            const unsigned state =
                StateOf(Find(outcome.after, path), Find(outcome.before, path), Find(undisturbed, path), kind.code);
            const Concern concern = ConcernOf(turn++, fault, outcome);
            const unsigned may = (concern == Concern::kNone ? 0U : contract.files | (fault.lasts ? kOld : 0U)) |
                                 (concern == Concern::kSure ? 0U : kNew) | (scenario.isUncertain ? kOld | kNew : 0U);
            if ((state & may) == 0) {
                return platform::EncodeUtf8(path) + " is" + NamesOf(state) + "; it may be" + NamesOf(may);
            }
        }
    }
    const std::string strays = StraysOf(outcome.final, reference);
    return strays.empty() || (contract.files & kStray) != 0 ? "" : "stray files:" + strays;
}

// Whether the promised line cannot come.
bool MayBeSilent(const Contract& called, bool isAny, const Outcome& reference, const Outcome& outcome)
{
    // When all calls fail, a program that has to be started again ends before it writes anything.
    if (isAny && called.recovery >= kOnRestart) {
        return true;
    }
    // A folder that is unknown to the one who wants a file's path gives a file elsewhere; at the start it gives
    // nothing.
    const bool isElsewhere = isAny || outcome.requestsBefore == 0 || !StraysOf(outcome.after, reference).empty();
    return (called.files & kStray) != 0 && isElsewhere;
}

// What must hold when nothing fails any more.
std::string JudgeEnd(const Scenario& scenario, const Contract& contract, const Outcome& outcome)
{
    if (outcome.recovery > std::max(contract.recovery, scenario.recovery)) {
        return std::string("right only ") + kRecoveryNames[outcome.recovery];
    }
    // A worker that an exception ends does not leave its apartment.
    const bool mayStayInside = contract.recovery >= kOnSuspend;
    if (!outcome.leftovers.empty() || (outcome.apartments != 0 && !mayStayInside)) {
        return "left over: " + outcome.leftovers + std::to_string(outcome.apartments) + " apartments";
    }
    const bool mayKeepMutex = contract.call == kAnyCall || contract.call == Call::kReleaseOwnedMutex;
    return outcome.keepsMutex && !mayKeepMutex ? "the update mutex is kept" : "";
}

} // namespace

bool SameButForTime(const Files& files, const Files& wanted)
{
    return std::ranges::all_of(wanted, [&](const auto& entry) {
        const Bytes* const file = Find(files, entry.first);
        return file != nullptr && IsSameButForTime(*file, entry.second);
    });
}

std::string Judge(const Scenario& scenario, const Fault& fault, const Outcome& reference, const Outcome& outcome)
{
    if (!outcome.failed) {
        return "the call that was to fail was not made";
    }
    const bool isAny = fault.call == kAnyCall;
    const Contract& called =
        ContractOf(*outcome.failed, scenario.name, isAny ? std::nullopt : std::optional(fault.code));
    const Contract& contract = isAny ? ContractOf(kAnyCall, scenario.name) : called;
    std::string text;
    if (!MayBeSilent(called, isAny, reference, outcome)) {
        text = JudgeLines(called, isAny || scenario.isUncertain, outcome);
    }
    if (text.empty()) {
        text = JudgeFiles(scenario, fault, contract, reference, outcome);
    }
    return text.empty() ? JudgeEnd(scenario, contract, outcome) : text;
}

} // namespace ladder
