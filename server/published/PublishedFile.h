// The CSV file that a power company publishes of a day: read as a whole, or refused with the reason.
//
// The companies document no format. What is read here is what their files have in common: a stamp on the first line,
// then blocks that are found by their headings, and columns that are found by their names. Nothing depends on where in
// the file a block stands or on the order of columns. What cannot be read for certain is refused, never guessed.
#pragma once

#include "server/Figures.h"

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace reportd {

// Why a file is refused.
enum class Refusal {
    kEmpty,            // no bytes, or nothing but blanks
    kHtml,             // a web page in the place of the file
    kNotText,          // neither Windows-31J (the companies' Shift_JIS) nor UTF-8, or with control characters
    kTruncated,        // ends too early: within a line, a block or a table
    kNoStamp,          // does not begin with the line that says when it was published
    kFutureStamp,      // published later than now
    kOtherDay,         // of another day than the one that was asked for
    kFrozen,           // today's, but not renewed for too long
    kUnknownLayout,    // no table that we know, or a heading that means two things
    kMalformedTime,    // a date, time or slot that is none or is not the one whose turn it is
    kImplausibleValue, // a value that is no whole number, negative or beyond what a company's grid can carry
};

// Name of a refusal for metrics and file names: of the characters a-z and _ only. Any thread, as everything here.
std::string_view KeyOf(Refusal reason);

// Thrown for a file that is refused. what() is one line of UTF-8 for people: "line 14: ..." where there is a line to
// name. It quotes at most a few characters of the file, never a control character.
class CRefusedFile : public std::runtime_error {
public:
    CRefusedFile(Refusal reason, const std::string& why) : std::runtime_error(why), m_reason(reason) {}
    Refusal Reason() const { return m_reason; }

private:
    Refusal m_reason;
};

// Headings of the owner's settings, which count besides the known ones, UTF-8. Widths, spaces and the kind of
// parentheses make no difference. A heading that is known keeps its meaning. A peak's heading means tomorrow's
// peak with the prefix 翌日の, as the known ones do.
struct ExtraHeadings {
    std::map<Series, std::vector<std::string>> names;

    bool operator==(const ExtraHeadings&) const = default;
};

struct PublishedFile {
    std::chrono::year_month_day date = {}; // of the tables' rows
    LocalTime published = {};              // the stamp, in whole minutes
    std::vector<Figure> figures;       // in the order of kAllSeries, each series in order of time: what was known at
                                       // the stamp, and tomorrow's two peaks once they are filled in
    std::vector<std::string> headings; // of all blocks in the order of the file, in one form whatever the widths, a
                                       // date in them as #: two files of one layout have the same. At most 256, of at
                                       // most 200 bytes each; longer ones are prose. UTF-8
    std::vector<std::string> unknown;  // those of them that mean nothing to us
};

// Reads a file. bytes: the whole of it. Throws CRefusedFile with a reason other than kFutureStamp, kOtherDay and
// kFrozen, which depend on what was asked for: see below.
//
// Values are published in units of 10 MW and come back in megawatts. An hour's actual usage counts once that hour has
// ended at the stamp, and never when it is 0, which stands for "not yet"; so it does for forecasts, supply and peaks. A
// five-minute value is labelled with the moment of measurement and comes back as the interval that starts then, unless
// that is later than the stamp; generation counts only together with the demand of its row, because 0 is a real value
// there. Percentages are left alone: they follow from the values.
PublishedFile ParsePublishedFile(std::string_view bytes, const ExtraHeadings& extra);

// Whether a file fits the day that was asked for and the time. now: the time in Japan. Throws CRefusedFile:
// - kFutureStamp: the stamp is more than 10 minutes ahead of now;
// - kOtherDay: the file is not of the day expected, or was published before that day began;
// - kFrozen: expected is today and the stamp is older than frozenAfter. The hour after midnight does not count, because
//   not every file is renewed then.
// The file of a day that has ended may be stamped on any later day: it is closed after midnight and may be revised.
void CheckTimeliness(const PublishedFile& file, std::chrono::year_month_day expected, LocalTime now,
                     std::chrono::minutes frozenAfter);

} // namespace reportd
