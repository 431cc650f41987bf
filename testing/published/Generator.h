// Synthetic files in the manner of the companies' published ones, and the figures that they hold.
//
// Everything is computed from the arguments: the same ones give the same bytes, on every machine. The figures do not go
// through the writer of the files, so that one can be held against the other.
#pragma once

#include "server/Figures.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace testing_support {

using reportd::days;
using reportd::hours;
using reportd::local_days;
using reportd::minutes;
using reportd::seconds;
using reportd::year_month_day;

// A company's form of the file. Names of headings, order of columns, form of dates, marks for "not yet" and delays
// differ.
enum class Layout { kTokyoD1, kTokyoS1, kTohoku, kChubu, kKansai, kKansaiOld, kKyushu };

inline constexpr std::array kAllLayouts = {Layout::kTokyoD1, Layout::kTokyoS1,   Layout::kTohoku, Layout::kChubu,
                                           Layout::kKansai,  Layout::kKansaiOld, Layout::kKyushu};

// For names of tests: "TokyoD1".
std::string NameOf(Layout layout);

// The company whose layout it is: its number in the catalogue.
int SiteNumberOf(Layout layout);

// What is wrong with a file.
enum class Damage {
    kNone,
    kEmpty,          // no bytes
    kHtml,           // a web page
    kTruncated,      // ends after CsvOptions::cutAt bytes
    kOtherDay,       // the complete file of the day before
    kFrozen,         // as it stood six hours before, or at the beginning of the day
    kFutureStamp,    // stamped a day later than published
    kUtf8,           // UTF-8 in the place of Shift_JIS
    kSwappedColumns, // the hourly table's columns in another order, each below its name: not wrong, if read by name
    kNewColumn,      // a further column in the middle of the hourly table: likewise
    kNegative,       // a value with a minus sign
    kAbsurd,         // a value that no grid carries
    kNotANumber,     // a word in the place of a value
    kMalformedTime,  // an hour 25
    kUnknownLayout,  // other headings in all tables
};

struct CsvOptions {
    Damage damage = Damage::kNone;
    std::size_t cutAt = 0;   // kTruncated: how many bytes remain
    unsigned revision = 0;   // of the measured values: other numbers, some other values
    bool hasPadding = false; // commas at the ends of lines, as in archived files
    bool hasLfOnly = false;  // LF in the place of CRLF
};

// The company's file of a day as it stands at a moment: values that are known and published by then. published: the
// stamp, in whole minutes, from the beginning of the day on, also on later days. Bytes as published: Shift_JIS, CRLF.
std::string PublishedCsv(Layout layout, year_month_day date, reportd::LocalTime published,
                         const CsvOptions& options = {});

// The figures that an undamaged file holds, in megawatts, in the order of PublishedFile::figures. The same arguments.
std::vector<reportd::Figure> TrueFigures(Layout layout, year_month_day date, reportd::LocalTime published,
                                         unsigned revision = 0);

// The text of such a file, UTF-8, lines ended by LF: for a test that changes it.
std::string PublishedText(Layout layout, year_month_day date, reportd::LocalTime published, unsigned revision = 0);

// The text with the first occurrence of a piece replaced. Throws std::invalid_argument when there is none.
std::string Changed(std::string text, const std::string& from, const std::string& to);

// Text (UTF-8, LF) as the companies encode it: Shift_JIS, CRLF. Throws std::runtime_error for what that cannot say.
std::string AsPublished(const std::string& text);

} // namespace testing_support
