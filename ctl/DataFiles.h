// The data files that a verb is about.
#pragma once

#include "ctl/CommandLine.h"
#include "format/Catalogue.h"
#include "format/DataFileReader.h"

#include <optional>

namespace ctl {

// Which data files a verb is about, in the words of its command line.
struct Selection {
    std::string company; // key (Catalogue.h); empty: all companies
    std::string kind;    // last word of the report's path (Catalogue.h); empty: all kinds
    std::string folder;  // empty: the common one
};

// Add the options of a selection to a verb; what the command line gives is stored in the selection, which must live as
// long as the verb. A word that no company or kind has is refused.
CLI::Option& AddCompany(CLI::App& verb, Selection& selection, const std::string& option = "company");
void AddKind(CLI::App& verb, Selection& selection);
void AddFolder(CLI::App& verb, Selection& selection);

// One data file, which need not exist.
struct KnownFile {
    const catalogue::Company& company;
    const catalogue::Kind& kind;
    CString path;
    DataFile content;
};

// The folder of a selection. Throws CFailure when it names none and the common one is unknown.
CString FolderOf(const Selection& selection);

// Reads the selected data files in the order of the catalogue, companies first. Throws as FolderOf.
std::vector<KnownFile> ReadDataFiles(const Selection& selection);

// Writes a line with the reason to standard error for each file that is faulty, but for none that is missing. The exit
// code: kExitFailure when there was one, else kExitSuccess.
int ReportFaults(const std::vector<KnownFile>& files, const Console& console);

} // namespace ctl
