// Takes saved files of the companies into the store.
#pragma once

#include "server/live/LiveSettings.h"

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace reportd {

class CFigureStore;

// The companies to whom a file of this name can belong, by the last parts of their addresses: their files' names, or
// those of their archives. ".gz" at its end does not count. In the catalogue's order.
std::vector<int> CompaniesOfName(const LiveSettings& settings, std::string_view name);

// Imports files: CSV as published, the same compressed by gzip, or ZIP archives of such CSV files. What a file is, is
// told by its bytes. Prints a line for each day that was taken or refused.
class CImport {
public:
    // All are used for as long as this lives. clock: Japan's time; out: takes the lines.
    CImport(const LiveSettings& settings, CFigureStore& store, std::function<LocalTime()> clock, std::ostream& out);

    // siteNumber: the company whose file it is; none: told by its name. True when all of it was taken. A store that
    // cannot be written throws std::runtime_error.
    bool ImportFile(const std::filesystem::path& file, std::optional<int> siteNumber);

private:
    bool ImportArchive(const std::string& bytes, const std::string& shownName, int siteNumber);
    bool ImportCsv(std::string_view bytes, const std::string& shownName, std::string_view name, int siteNumber);
    bool Refuse(const std::string& shownName, const std::string& why);

    const LiveSettings& m_settings;
    CFigureStore& m_store;
    std::function<LocalTime()> m_clock;
    std::ostream& m_out;
};

} // namespace reportd
