#include "config/ConfigUtil.h"
#include "ctl/Freshness.h"
#include "ctl/Json.h"
#include "ctl/OutputFile.h"
#include "ctl/Verbs.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <memory>

namespace ctl {

namespace {

// The states of a monitoring plugin; their values are its exit codes.
enum class State { kOk, kWarning, kCritical, kUnknown };
constexpr std::array kStateWords = {L"OK", L"WARNING", L"CRITICAL", L"UNKNOWN"};
constexpr int kExitUnknown = static_cast<int>(State::kUnknown);

struct CheckOptions {
    Selection selection;
    int maxAgeMinutes = 0;
    bool isJson = false;
    std::string metricsFile;
};

struct Result {
    bool isUpdateEnabled = false;
    FreshnessRule rule;
    std::vector<JudgedFile> files; // that the settings want
    std::optional<std::int64_t> oldestSeconds;
    State state = State::kUnknown;
    CString summary; // what there is to say, without the state's word
};

State StateOf(Freshness freshness)
{
    switch (freshness) {
    case Freshness::kMissing:
    case Freshness::kFaulty:
    case Freshness::kUndated:
        return State::kCritical;
    case Freshness::kFuture:
    case Freshness::kOld:
        return State::kWarning;
    default:
        return State::kOk;
    }
}

std::size_t CountOf(const Result& result, State state)
{
    return static_cast<std::size_t>(
        std::count_if(result.files.begin(), result.files.end(),
                      [state](const JudgedFile& file) { return StateOf(file.freshness) == state; }));
}

// "tokyo instant old"
CString ComplaintOf(const JudgedFile& file)
{
    return platform::FormatText(L"%s %s %s", file.known.company.key.Wide(), file.known.kind.word.Wide(),
                                FreshnessWord(file.freshness));
}

// The files in this state by name, as many as fit a line of a monitoring system's page.
CString ComplaintsOf(const Result& result, State state)
{
    constexpr std::size_t kMostNames = 3;
    CString text;
    std::size_t count = 0;
    for (const JudgedFile& file : result.files) {
        if (StateOf(file.freshness) == state && ++count <= kMostNames) {
            text += (count == 1 ? L"" : L", ") + ComplaintOf(file);
        }
    }
    return count > kMostNames ? text + platform::FormatText(L" and %u more", count - kMostNames) : text;
}

CString SummaryOf(const Result& result)
{
    const std::size_t count = CountOf(result, result.state);
    switch (result.state) {
    case State::kOk:
        return platform::FormatText(count == 1 ? L"%u file fresh, oldest %d min" : L"%u files fresh, oldest %d min",
                                    count, result.oldestSeconds.value_or(0) / 60);
    case State::kWarning:
        return platform::FormatText(L"%u of %u files old: ", count, result.files.size()) +
               ComplaintsOf(result, result.state);
    default:
        return platform::FormatText(L"%u of %u files missing or damaged: ", count, result.files.size()) +
               ComplaintsOf(result, result.state);
    }
}

void Judge(Result& result)
{
    if (!result.isUpdateEnabled) {
        result.summary = L"updating is switched off";
    } else if (result.files.empty()) {
        result.summary = L"the settings want none of these files";
    } else {
        result.state = State::kOk;
        for (const JudgedFile& file : result.files) {
            result.state = std::max(result.state, StateOf(file.freshness));
            result.oldestSeconds = std::max(result.oldestSeconds, file.ageSeconds);
        }
        result.summary = SummaryOf(result);
    }
}

Result Examine(std::vector<KnownFile> files, int maxAgeMinutes)
{
    Result result{CConfigUtil::IsUpdateEnable(), RuleOfNow(maxAgeMinutes), {}, {}, State::kUnknown, {}};
    for (KnownFile& known : files) {
        JudgedFile file = JudgeFile(std::move(known), result.rule);
        if (file.freshness != Freshness::kUnwanted) {
            result.files.push_back(std::move(file));
        }
    }
    Judge(result);
    return result;
}

// What a monitoring system draws: label=value[unit];warning;critical;least;most, U for an unknown value.
CString PerformanceOf(const Result& result)
{
    const std::size_t count = result.files.size();
    CString text = L"age=U";
    if (result.oldestSeconds) {
        text = platform::FormatText(L"age=%ds;%d", *result.oldestSeconds, result.rule.maxAgeSeconds);
    }
    constexpr std::array kCounts = {std::pair(L"fresh", State::kOk), std::pair(L"old", State::kWarning),
                                    std::pair(L"faulty", State::kCritical)};
    for (const auto& [name, state] : kCounts) {
        text += platform::FormatText(L" %s=%u;;;0;%u", name, CountOf(result, state), count);
    }
    return text;
}

void WriteLine(const Result& result, const Console& console)
{
    CString line = CString(L"AMPORA ") + kStateWords[static_cast<std::size_t>(result.state)] + L" - " + result.summary;
    if (result.state != State::kUnknown) {
        line += L" | " + PerformanceOf(result);
    }
    console.out << platform::EncodeUtf8(line) << "\n";
}

Json JsonAge(const std::optional<std::int64_t>& seconds) { return seconds ? Json(*seconds) : Json(nullptr); }

void WriteResult(const Result& result, const Console& console)
{
    Json files = Json::array();
    for (const JudgedFile& file : result.files) {
        const DataFile& content = file.known.content;
        files.push_back(
            {{"company", file.known.company.key.Narrow()},
             {"kind", file.known.kind.word.Narrow()},
             {"freshness", platform::EncodeUtf8(FreshnessWord(file.freshness))},
             {"ageSeconds", JsonAge(file.ageSeconds)},
             {"recordCount", content.records.size()},
             {"fault", content.reason.empty() ? Json(nullptr) : Json(platform::EncodeUtf8(content.reason))}});
    }
    WriteJson(console, "check",
              {{"state", platform::EncodeUtf8(kStateWords[static_cast<std::size_t>(result.state)])},
               {"summary", platform::EncodeUtf8(result.summary)},
               {"updateEnabled", result.isUpdateEnabled},
               {"maxAgeSeconds", result.rule.maxAgeSeconds},
               {"oldestSeconds", JsonAge(result.oldestSeconds)},
               {"files", std::move(files)}});
}

// A gauge with one sample for each file; valueOf gives it, or nothing.
template <typename ValueOf>
void PutGauge(std::string& text, const std::string& name, const std::string& help, const Result& result,
              ValueOf valueOf)
{
    text += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
    for (const JudgedFile& file : result.files) {
        if (const std::optional<std::int64_t> value = valueOf(file)) {
            text += name + "{company=\"" + std::string(file.known.company.key.Narrow()) + "\",kind=\"" +
                    std::string(file.known.kind.word.Narrow()) + "\"} " + std::to_string(*value) + "\n";
        }
    }
}

void PutSingle(std::string& text, const std::string& name, const std::string& help, std::int64_t value)
{
    text += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n" + name + " " + std::to_string(value) + "\n";
}

std::string MetricsOf(const Result& result)
{
    using Value = std::optional<std::int64_t>;
    std::string text;
    PutSingle(text, "ampora_update_enabled", "Whether the settings switch updating on (1) or off (0).",
              result.isUpdateEnabled ? 1 : 0);
    PutSingle(text, "ampora_data_file_max_age_seconds", "Greatest age of a fresh data file.",
              result.rule.maxAgeSeconds);
    PutGauge(text, "ampora_data_file_age_seconds", "Time since the data file was written.", result,
             [](const JudgedFile& file) { return file.ageSeconds; });
    PutGauge(text, "ampora_data_file_fresh", "Whether the data file is fresh (1) or old, missing or damaged (0).",
             result, [](const JudgedFile& file) { return Value(StateOf(file.freshness) == State::kOk ? 1 : 0); });
    PutGauge(text, "ampora_data_file_sound", "Whether the data file is there and whole (1) or not (0).", result,
             [](const JudgedFile& file) { return Value(StateOf(file.freshness) == State::kCritical ? 0 : 1); });
    PutGauge(text, "ampora_data_file_records", "Number of records in the data file.", result,
             [](const JudgedFile& file) { return Value(file.known.content.records.size()); });
    return text;
}

int Check(const CheckOptions& options, const Console& console)
{
    try {
        const Result result = Examine(ReadDataFiles(options.selection), options.maxAgeMinutes);
        if (!options.metricsFile.empty()) {
            WriteOutputFile(options.metricsFile, MetricsOf(result), console);
        } else if (options.isJson) {
            WriteResult(result, console);
        } else {
            WriteLine(result, console);
        }
        return static_cast<int>(result.state);
    } catch (const CFailure& failure) {
        // Its own exit code would be that of old files.
        console.out << "AMPORA UNKNOWN - " << failure.what() << "\n";
        return kExitUnknown;
    }
}

} // namespace

void AddCheck(CCommandLine& program)
{
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& verb =
        program.AddVerb("check", "Tell a monitoring system whether the data files are fresh",
                        "Prints one line as plugins of Nagios and its successors do, with their exit codes: "
                        "0 fresh, 1 old, 2 missing or damaged, 3 not configured or not understood.",
                        "check --max-age 90\ncheck --prometheus /var/lib/node_exporter/ampora.prom",
                        [options](const Console& console) { return Check(*options, console); });
    program.SetMisuseCode(verb, kExitUnknown);
    AddMaxAge(verb, options->maxAgeMinutes);
    AddCompany(verb, options->selection, "--company");
    CLI::Option& metrics = AddOutputFile(verb, "--prometheus", options->metricsFile, "Write metrics for Prometheus");
    metrics.expected(0, 1)->default_str("-");
    AddJson(verb, options->isJson).excludes(&metrics);
    AddFolder(verb, options->selection);
}

} // namespace ctl
