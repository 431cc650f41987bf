#include "ctl/DataFiles.h"

#include "format/DataFilePath.h"
#include "platform/Text.h"

#include <algorithm>
#include <iterator>

namespace ctl {

namespace {

// One word of each row of a table of the catalogue.
template <class Table, class Row>
std::vector<std::string> WordsOf(const Table& table, catalogue::CWord Row::*word)
{
    std::vector<std::string> words;
    std::transform(table.begin(), table.end(), std::back_inserter(words),
                   [word](const Row& row) { return std::string((row.*word).Narrow()); });
    return words;
}

} // namespace

CLI::Option& AddCompany(CLI::App& verb, Selection& selection, const std::string& option)
{
    return *verb.add_option(option, selection.company, "The company; without it, all")
                ->check(OneOf("company", WordsOf(catalogue::kCompanies, &catalogue::Company::key)));
}

void AddKind(CLI::App& verb, Selection& selection)
{
    verb.add_option("kind", selection.kind, "The kind of data; without it, all")
        ->check(OneOf("kind", WordsOf(catalogue::kKinds, &catalogue::Kind::word)));
}

void AddFolder(CLI::App& verb, Selection& selection)
{
    verb.add_option("--folder", selection.folder, "Look for the data files in this folder, not in the common one")
        ->type_name("DIR")
        ->check([](const std::string& folder) {
            return folder.empty() ? std::string("the name of a folder is needed") : std::string();
        });
}

CString FolderOf(const Selection& selection)
{
    CString folder = selection.folder.empty() ? DataFolder() : platform::DecodeUtf8(selection.folder);
    if (folder.empty()) {
        throw CFailure(L"the common application-data folder is unknown; name one with --folder");
    }
    return folder;
}

std::vector<KnownFile> ReadDataFiles(const Selection& selection)
{
    const CString folder = FolderOf(selection);
    std::vector<KnownFile> files;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        for (const catalogue::Kind& kind : catalogue::kKinds) {
            if ((selection.company.empty() || selection.company == company.key.Narrow()) &&
                (selection.kind.empty() || selection.kind == kind.word.Narrow())) {
                const CString path = DataFileIn(folder, company.siteNumber, kind.dataType);
                files.push_back({company, kind, path, ReadDataFile(path, kind.dataType)});
            }
        }
    }
    return files;
}

int ReportFaults(const std::vector<KnownFile>& files, const Console& console)
{
    int exitCode = kExitSuccess;
    for (const KnownFile& known : files) {
        if (known.content.fault != DataFileFault::kNone && known.content.fault != DataFileFault::kMissing) {
            console.err << platform::EncodeUtf8(L"amporactl: " + known.path + L": " + known.content.reason + L"\n");
            exitCode = kExitFailure;
        }
    }
    return exitCode;
}

} // namespace ctl
