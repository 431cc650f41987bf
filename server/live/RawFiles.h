// Keeps the companies' files unchanged, so that one can look up later what a company published.
#pragma once

#include "server/Figures.h"

#include <filesystem>
#include <string_view>

namespace reportd {

// Keeps bytes in one folder per company, FOLDER/COMPANY/, compressed:
//   refused-YYYYMMDD-HHMMSS-REASON.csv.gz  a file that was not understood or not trusted; the newest 30 are kept
//   layout-YYYYMMDD-HHMMSS.csv.gz          the first file of a layout that was not there before; the newest 20 are kept
//   day-YYYYMMDD.csv.gz                    the last good file of each day; the newest 400 are kept
// A file of the same name is replaced. No part of a name comes from the bytes. A file is whole or not there: it is
// written under another name (".new" at its end) and then renamed. Every operation throws std::runtime_error, which
// says what could not be written, and std::invalid_argument for a site number that the catalogue does not have or a
// reason that is not made of a to z and _. One thread at a time.
class CRawFiles {
public:
    // Makes nothing yet; the first file makes the folders, for their owner alone (0700).
    explicit CRawFiles(std::filesystem::path folder);

    // at: when it came, Japan's time. reasonKey: 1 to 40 characters from a to z and _.
    void KeepRefused(int siteNumber, LocalTime at, std::string_view reasonKey, std::string_view bytes);
    void KeepLayout(int siteNumber, LocalTime at, std::string_view bytes);
    // date: a day of the calendar with a year of four digits.
    void KeepDay(int siteNumber, std::chrono::year_month_day date, std::string_view bytes);

private:
    std::filesystem::path m_folder;
};

} // namespace reportd
