// renew_documents FOLDER: writes into the documents what the programs say of themselves.
// renew_documents --check FOLDER: fails when they say something else.
#include "ctl/CommandLine.h"
#include "testing/documents/Parts.h"

#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

namespace {

struct Part {
    const char* document;
    const char* name;
    std::function<std::string()> text;
};

const std::vector<Part>& Parts()
{
    static const std::vector<Part> kParts = {
        {"amporactl.md", "verbs", [] { return documents::VerbsText(ctl::CCommandLine().Model()); }},
        {"ampora-settings.md", "settings", documents::SettingsText},
        {"ampora-settings.md", "companies", documents::CompaniesText},
        {"ampora-reportd.md", "usage", documents::ReportdUsageText},
        {"ampora-reportd.md", "options", documents::ReportdOptionsText},
    };
    return kParts;
}

std::string ReadText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Whether the part was as it has to be.
bool Renew(const std::string& folder, const Part& part, bool isCheck)
{
    const std::string path = folder + "/" + part.document;
    const std::string present = ReadText(path);
    const std::string renewed = documents::Renewed(present, part.name, part.text());
    if (renewed == present) {
        return true;
    }
    if (isCheck) {
        std::cerr << path << ": the part \"" << part.name << "\" is not what the program says\n";
        return false;
    }
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << renewed << std::flush;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const bool isCheck = argc == 3 && std::string(argv[1]) == "--check";
    if (argc != 2 && !isCheck) {
        std::cerr << "usage: renew_documents [--check] FOLDER\n";
        return 2;
    }
    bool isRenewed = true;
    for (const Part& part : Parts()) {
        try {
            isRenewed = Renew(argv[argc - 1], part, isCheck) && isRenewed;
        } catch (const std::exception& error) {
            std::cerr << part.document << ": " << error.what() << "\n";
            isRenewed = false;
        }
    }
    if (!isRenewed && isCheck) {
        std::cerr << "This writes it: build/linux/tests/renew_documents docs\n";
    }
    return isRenewed ? 0 : 1;
}
