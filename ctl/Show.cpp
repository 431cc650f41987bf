#include "ctl/Show.h"

#include "ctl/Csv.h"
#include "ctl/Json.h"
#include "ctl/Table.h"
#include "ctl/TimeText.h"
#include "ctl/Verbs.h"
#include "platform/Text.h"

#include <algorithm>
#include <memory>

namespace ctl {

namespace {

constexpr const char* kTable = "table";
constexpr const char* kCsv = "csv";
constexpr const char* kJson = "json";

struct ShowOptions {
    Selection selection;
    std::string format = kTable;
    bool isJson = false; // --json
};

// The records of a file that start first and last. The file keeps the order of the reports, which need not be that of
// time.
struct Ends {
    const _AmporaOneData* first = nullptr; // null without records
    const _AmporaOneData* last = nullptr;
};
Ends EndsOf(const DataFile& file)
{
    if (file.records.empty()) {
        return {};
    }
    const auto [first, last] = std::minmax_element(file.records.begin(), file.records.end(), StartsEarlier);
    return {&*first, &*last};
}

CString NumberText(ULONGLONG number) { return platform::FormatText(L"%u", number); }

bool IsSound(const KnownFile& known) { return known.content.fault == DataFileFault::kNone; }

// Of one company the records are shown, of all companies only the files.
bool WantsRecords(const Selection& selection) { return !selection.company.empty(); }

CTable TableOfFiles(const std::vector<KnownFile>& files)
{
    CTable table({{L"COMPANY", false},
                  {L"KIND", false},
                  {L"RECORDS", true},
                  {L"FIRST PERIOD", false},
                  {L"LAST PERIOD", false},
                  {L"NEWEST VALUE", true},
                  {L"WRITTEN", false}});
    for (const KnownFile& known : files) {
        if (IsSound(known)) {
            const auto [first, last] = EndsOf(known.content);
            table.AddRow({known.company.name.Wide(), known.kind.name.Wide(), NumberText(known.content.header.count),
                          first == nullptr ? L"-" : PeriodText(first->stStart, first->stEnd),
                          last == nullptr ? L"-" : PeriodText(last->stStart, last->stEnd),
                          last == nullptr ? L"-" : NumberText(last->ullValue),
                          SecondText(known.content.header.writeTime)});
        }
    }
    return table;
}

CTable TableOfRecords(const std::vector<KnownFile>& files)
{
    CTable table({{L"KIND", false}, {L"PERIOD", false}, {L"VALUE", true}});
    for (const KnownFile& known : files) {
        for (const _AmporaOneData& record : known.content.records) {
            table.AddRow(
                {known.kind.word.Wide(), PeriodText(record.stStart, record.stEnd), NumberText(record.ullValue)});
        }
    }
    return table;
}

void WriteFilesAsCsv(const std::vector<KnownFile>& files, std::ostream& out)
{
    WriteCsvLine(out, {L"company", L"kind", L"records", L"first_start", L"first_end", L"last_start", L"last_end",
                       L"newest_value", L"written"});
    for (const KnownFile& known : files) {
        if (IsSound(known)) {
            const auto [first, last] = EndsOf(known.content);
            WriteCsvLine(
                out, {known.company.key.Wide(), known.kind.word.Wide(), NumberText(known.content.header.count),
                      first == nullptr ? L"" : IsoText(first->stStart), first == nullptr ? L"" : IsoText(first->stEnd),
                      last == nullptr ? L"" : IsoText(last->stStart), last == nullptr ? L"" : IsoText(last->stEnd),
                      last == nullptr ? L"" : NumberText(last->ullValue), IsoText(known.content.header.writeTime)});
        }
    }
}

void WriteRecordsAsCsv(const std::vector<KnownFile>& files, std::ostream& out)
{
    WriteCsvLine(out, {L"company", L"kind", L"start", L"end", L"value"});
    for (const KnownFile& known : files) {
        for (const _AmporaOneData& record : known.content.records) {
            WriteCsvLine(out, {known.company.key.Wide(), known.kind.word.Wide(), IsoText(record.stStart),
                               IsoText(record.stEnd), NumberText(record.ullValue)});
        }
    }
}

Json JsonFile(const KnownFile& known, bool withRecords)
{
    Json file = {{"company", known.company.key.Narrow()},
                 {"kind", known.kind.word.Narrow()},
                 {"path", platform::EncodeUtf8(known.path)}};
    if (!IsSound(known)) {
        file["fault"] = platform::EncodeUtf8(known.content.reason);
        return file;
    }
    const auto [first, last] = EndsOf(known.content);
    file["fault"] = nullptr;
    file["written"] = JsonTime(known.content.header.writeTime);
    file["recordCount"] = known.content.records.size();
    file["first"] = first == nullptr ? Json(nullptr) : JsonRecord(*first);
    file["last"] = last == nullptr ? Json(nullptr) : JsonRecord(*last);
    if (withRecords) {
        file["records"] = Json::array();
        std::transform(known.content.records.begin(), known.content.records.end(), std::back_inserter(file["records"]),
                       JsonRecord);
    }
    return file;
}

void WriteFilesAsJson(const std::vector<KnownFile>& files, const Selection& selection, const Console& console)
{
    Json list = Json::array();
    for (const KnownFile& known : files) {
        if (known.content.fault != DataFileFault::kMissing) {
            list.push_back(JsonFile(known, WantsRecords(selection)));
        }
    }
    WriteJson(console, "show", {{"folder", platform::EncodeUtf8(FolderOf(selection))}, {"files", std::move(list)}});
}

// The selected files, and the exit code that their faults make. Throws CFailure when there is none.
std::pair<std::vector<KnownFile>, int> ReadSome(const Selection& selection, const Console& console)
{
    std::vector<KnownFile> files = ReadDataFiles(selection);
    const int exitCode = ReportFaults(files, console);
    if (exitCode == kExitSuccess && std::none_of(files.begin(), files.end(), IsSound)) {
        throw CFailure(L"no data files in " + FolderOf(selection));
    }
    return {std::move(files), exitCode};
}

int Show(const ShowOptions& options, const Console& console)
{
    if (!options.isJson && options.format == kTable) {
        return ShowTable(options.selection, console);
    }
    const auto [files, exitCode] = ReadSome(options.selection, console);
    if (options.isJson || options.format == kJson) {
        WriteFilesAsJson(files, options.selection, console);
    } else if (WantsRecords(options.selection)) {
        WriteRecordsAsCsv(files, console.out);
    } else {
        WriteFilesAsCsv(files, console.out);
    }
    return exitCode;
}

} // namespace

int ShowTable(const Selection& selection, const Console& console)
{
    const auto [files, exitCode] = ReadSome(selection, console);
    if (std::any_of(files.begin(), files.end(), IsSound)) {
        const CTable table = WantsRecords(selection) ? TableOfRecords(files) : TableOfFiles(files);
        console.out << platform::EncodeUtf8(table.Text(static_cast<std::size_t>(console.terminal.Columns())));
    }
    return exitCode;
}

void AddShow(CCommandLine& program)
{
    const auto options = std::make_shared<ShowOptions>();
    CLI::App& verb = program.AddVerb("show", "Print a table of the data files, or the records of one company", "",
                                     "show\nshow tokyo actual\nshow tokyo --format csv",
                                     [options](const Console& console) { return Show(*options, console); });
    AddCompany(verb, options->selection);
    AddKind(verb, options->selection);
    AddFolder(verb, options->selection);
    CLI::Option* const format = verb.add_option("--format", options->format, "How to print it; without it, as a table")
                                    ->type_name("FORMAT")
                                    ->check(OneOf("format", {kTable, kCsv, kJson}));
    AddJson(verb, options->isJson).excludes(format);
}

} // namespace ctl
