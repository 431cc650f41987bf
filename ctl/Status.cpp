#include "config/ConfigUtil.h"
#include "config/SharedNames.h"
#include "ctl/ExpectedPass.h"
#include "ctl/Json.h"
#include "ctl/KnownSettings.h"
#include "ctl/RunningCopy.h"
#include "ctl/StatusCauses.h"
#include "ctl/Table.h"
#include "ctl/TimeText.h"
#include "ctl/Verbs.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/FolderCheck.h"
#include "platform/Sync.h"
#include "platform/Text.h"

#include <algorithm>
#include <memory>

namespace ctl {

namespace {

struct StatusOptions {
    Selection selection; // its folder alone
    bool isJson = false;
    bool isOffline = false;
    int maxAgeMinutes = 0;
};

// All that is shown.
struct Look {
    StatusFacts facts;
    platform::ProgramPtr copy; // null: none runs, or the system does not tell
    std::optional<PassRange> nextPass;
    bool isPassRunning = false; // of any session's copy
    SYSTEMTIME now{};
};

// The mutex is owned by a copy during its pass. Looking takes it for a moment when it is free.
bool LookWhetherPassRuns()
{
    const platform::WaitHandle mutex = platform::OpenNamedMutex(kUpdateMutexName);
    if (!mutex) {
        return false;
    }
    const DWORD waited = platform::WaitForOne(mutex, 0, FALSE);
    if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED_0) {
        platform::ReleaseOwnedMutex(mutex);
    }
    return waited == WAIT_TIMEOUT;
}

void LookAtFiles(const StatusOptions& options, StatusFacts& facts)
{
    facts.folder = FolderOf(options.selection);
    facts.hasFolder = platform::PathExists(facts.folder);
    facts.unusable = platform::FindUnusableFolders(facts.folder, kUpdateMutexName);
    std::vector<KnownFile> files = ReadDataFiles(options.selection);
    const FreshnessRule rule = RuleOfNow(options.maxAgeMinutes);
    facts.maxAgeSeconds = rule.maxAgeSeconds;
    for (KnownFile& known : files) {
        facts.files.push_back(JudgeFile(std::move(known), rule));
    }
}

std::optional<PassRange> LookForNextPass(const Look& look)
{
    PassTrace trace{platform::ReadTime()};
    trace.copyStart = look.copy ? platform::StartTimeOf(look.copy) : -1;
    for (const JudgedFile& file : look.facts.files) {
        if (file.ageSeconds && *file.ageSeconds >= 0) {
            trace.youngestWrite = std::max(trace.youngestWrite, trace.now - *file.ageSeconds);
        }
    }
    return ExpectPass(trace);
}

Look LookAtAll(const StatusOptions& options)
{
    Look look;
    StatusFacts& facts = look.facts;
    facts.runs = CopyRuns();
    facts.isPaused = facts.runs && !platform::OpenNamedEvent(kUpdateEventName);
    facts.isEnabled = CConfigUtil::IsUpdateEnable();
    facts.isOnLine = IsOnLine();
    facts.apiHost = CConfigUtil::GetApiHost();
    look.copy = platform::FindProgramOfWindow(kWindowClassName);
    look.isPassRunning = LookWhetherPassRuns();
    LookAtFiles(options, facts);
    platform::ReadLocalClock(&look.now);
    if (facts.runs && !facts.isPaused && facts.isEnabled) {
        look.nextPass = LookForNextPass(look);
    }
    const JudgedFile* const stale = FirstStale(facts.files);
    if (stale != nullptr && facts.isOnLine && !options.isOffline) {
        facts.probe = ProbeReportApi(stale->known.company, stale->known.kind, look.now);
    }
    return look;
}

SYSTEMTIME CalendarOf(std::int64_t time)
{
    SYSTEMTIME calendar{};
    platform::TimeToLocalCalendar(time, &calendar);
    return calendar;
}

// As text.

CString CopyText(const Look& look)
{
    if (!look.facts.runs) {
        return L"amporasrv is not running";
    }
    const std::int64_t start = look.copy ? platform::StartTimeOf(look.copy) : -1;
    return RunsText() + (start == -1 ? CString() : L" since " + SecondText(CalendarOf(start)));
}

CString PassText(const Look& look)
{
    if (!look.facts.isEnabled || !look.facts.runs) {
        return look.facts.isEnabled ? L"updating is on" : L"updating is off";
    }
    if (look.isPassRunning) {
        return L"updating is on, a pass is running";
    }
    if (!look.nextPass) {
        return L"updating is on, when the next pass begins is unknown";
    }
    return L"updating is on, the next pass is expected between " +
           PeriodText(CalendarOf(look.nextPass->from), CalendarOf(look.nextPass->to)).replace(16, 3, L" and ");
}

CString FilesText(const Look& look, std::size_t columns)
{
    CTable table({{L"COMPANY", false},
                  {L"KIND", false},
                  {L"STATE", false},
                  {L"AGE", true},
                  {L"RECORDS", true},
                  {L"VALUE NOW", true}});
    for (const JudgedFile& file : look.facts.files) {
        if (file.freshness == Freshness::kUnwanted) {
            continue;
        }
        const DataFile& content = file.known.content;
        const bool isSound = content.fault == DataFileFault::kNone;
        const _AmporaOneData* const record = PresentRecord(file.known, look.now);
        table.AddRow({file.known.company.name.Wide(), file.known.kind.name.Wide(), FreshnessWord(file.freshness),
                      file.ageSeconds ? DurationText(*file.ageSeconds) : L"-",
                      isSound ? platform::FormatText(L"%u", content.header.count) : L"-",
                      record == nullptr ? L"-" : platform::FormatText(L"%u", record->ullValue)});
    }
    return table.IsEmpty() ? CString() : L"\n" + table.Text(columns);
}

CString SettingsText(std::size_t columns)
{
    CTable table({{L"SETTING", false}, {L"VALUE", false}, {L"FROM", false}});
    for (const KnownSetting& known : KnownSettings()) {
        const settings::ContentInForce found = settings::FindContent(known.keyPath, known.setting);
        if (known.company == nullptr || found.hive) {
            table.AddRow({known.name, ContentText(known.setting, found.content), HiveText(found.hive)});
        }
    }
    return L"\n" + table.Text(columns);
}

// The words in lines of this width, 0 for one line; each but the first begins with two blanks.
CString Wrapped(const CString& text, std::size_t columns)
{
    CString lines;
    std::size_t width = 0; // of the last line
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(L' ', start), text.size());
        const bool fits = columns == 0 || width == 0 || width + 1 + (end - start) <= columns;
        const CString gap = width == 0 ? L"" : fits ? L" " : L"\n  ";
        width = fits ? width + gap.size() + (end - start) : 2 + (end - start);
        lines += gap + text.substr(start, end - start);
        start = end + 1;
    }
    return lines + L"\n";
}

void PrintText(const Look& look, const Console& console)
{
    const auto columns = static_cast<std::size_t>(console.terminal.Columns());
    CString text = Wrapped(CopyText(look), columns) + Wrapped(PassText(look), columns);
    for (const Cause& cause : CausesOf(look.facts)) {
        text += Wrapped(L"- " + cause.text, columns);
    }
    console.out << platform::EncodeUtf8(text + FilesText(look, columns) + SettingsText(columns));
}

// As JSON.

Json JsonWord(const CString& text) { return platform::EncodeUtf8(text); }

Json JsonFile(const JudgedFile& file, const SYSTEMTIME& now)
{
    const DataFile& content = file.known.content;
    const bool isSound = content.fault == DataFileFault::kNone;
    const _AmporaOneData* const record = PresentRecord(file.known, now);
    return {{"company", file.known.company.key.Narrow()},
            {"kind", file.known.kind.word.Narrow()},
            {"state", JsonWord(FreshnessWord(file.freshness))},
            {"fault", isSound || content.fault == DataFileFault::kMissing ? Json() : JsonWord(content.reason)},
            {"ageSeconds", file.ageSeconds ? Json(*file.ageSeconds) : Json()},
            {"recordCount", isSound ? Json(content.header.count) : Json()},
            {"present", record == nullptr ? Json() : JsonRecord(*record)}};
}

void PrintJson(const Look& look, const Console& console)
{
    const StatusFacts& facts = look.facts;
    const std::int64_t start = look.copy ? platform::StartTimeOf(look.copy) : -1;
    Json document = {{"fresh", IsAllFresh(facts.files)},
                     {"running", facts.runs},
                     {"processId", look.copy ? Json(platform::ProcessIdentifierOf(look.copy)) : Json()},
                     {"since", start == -1 ? Json() : JsonTime(CalendarOf(start))},
                     {"paused", facts.isPaused},
                     {"updating", facts.isEnabled},
                     {"passRunning", look.isPassRunning},
                     {"nextPass", look.nextPass ? Json{{"from", JsonTime(CalendarOf(look.nextPass->from))},
                                                       {"to", JsonTime(CalendarOf(look.nextPass->to))}}
                                                : Json()},
                     {"folder", JsonWord(facts.folder)},
                     {"maxAgeSeconds", facts.maxAgeSeconds},
                     {"files", Json::array()},
                     {"causes", Json::array()},
                     {"settings", Json::array()}};
    for (const JudgedFile& file : facts.files) {
        document["files"].push_back(JsonFile(file, look.now));
    }
    for (const Cause& cause : CausesOf(facts)) {
        document["causes"].push_back({{"code", cause.code}, {"text", JsonWord(cause.text)}});
    }
    for (const KnownSetting& known : KnownSettings()) {
        document["settings"].push_back(JsonSetting(known, settings::FindContent(known.keyPath, known.setting)));
    }
    WriteJson(console, "status", document);
}

int Status(const StatusOptions& options, const Console& console)
{
    const Look look = LookAtAll(options);
    if (options.isJson) {
        PrintJson(look, console);
    } else {
        PrintText(look, console);
    }
    return IsAllFresh(look.facts.files) ? kExitSuccess : kExitFailure;
}

} // namespace

void AddStatus(CCommandLine& program)
{
    const auto options = std::make_shared<StatusOptions>();
    CLI::App& verb = program.AddVerb(
        "status", "Tell whether the data is fresh, and if not, why and what to do",
        "When a file is missing, old or without records, the report API is asked for its report.",
        "status\nstatus --json", [options](const Console& console) { return Status(*options, console); });
    AddFolder(verb, options->selection);
    AddMaxAge(verb, options->maxAgeMinutes);
    verb.add_flag("--offline", options->isOffline, "Do not ask the report API");
    AddJson(verb, options->isJson);
}

} // namespace ctl
