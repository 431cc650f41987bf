#include "ctl/DataFiles.h"
#include "ctl/Table.h"
#include "ctl/TimeText.h"
#include "ctl/Verbs.h"
#include "platform/Text.h"

#include <algorithm>
#include <memory>

namespace ctl {

namespace {

void AddFile(CTable& table, const KnownFile& known)
{
    CString first = L"-";
    CString last = L"-";
    CString value = L"-";
    const DataFile& file = known.content;
    if (!file.records.empty()) {
        // The file keeps the order of the reports, which need not be that of time.
        const auto [earliest, latest] = std::minmax_element(file.records.begin(), file.records.end(), StartsEarlier);
        first = PeriodText(earliest->stStart, earliest->stEnd);
        last = PeriodText(latest->stStart, latest->stEnd);
        value = platform::FormatText(L"%u", latest->ullValue);
    }
    table.AddRow({known.company.name.Wide(), known.kind.name.Wide(), platform::FormatText(L"%u", file.header.count),
                  first, last, value, SecondText(file.header.writeTime)});
}

int Show(const Selection& selection, const Console& console)
{
    CTable table({{L"COMPANY", false},
                  {L"KIND", false},
                  {L"RECORDS", true},
                  {L"FIRST PERIOD", false},
                  {L"LAST PERIOD", false},
                  {L"NEWEST VALUE", true},
                  {L"WRITTEN", false}});
    int exitCode = kExitSuccess;
    for (const KnownFile& known : ReadDataFiles(selection)) {
        if (known.content.fault == DataFileFault::kNone) {
            AddFile(table, known);
        } else if (known.content.fault != DataFileFault::kMissing) {
            console.err << platform::EncodeUtf8(L"amporactl: " + known.path + L": " + known.content.reason + L"\n");
            exitCode = kExitFailure;
        }
    }
    if (!table.IsEmpty()) {
        console.out << platform::EncodeUtf8(table.Text());
    } else if (exitCode == kExitSuccess) {
        throw CFailure(L"no data files in " + FolderOf(selection));
    }
    return exitCode;
}

} // namespace

void AddShow(CCommandLine& program)
{
    const auto selection = std::make_shared<Selection>();
    CLI::App& verb = program.AddVerb("show", "Print a table of the data files", "", "show\nshow tokyo actual",
                                     [selection](const Console& console) { return Show(*selection, console); });
    AddCompany(verb, *selection);
    AddKind(verb, *selection);
    AddFolder(verb, *selection);
}

} // namespace ctl
