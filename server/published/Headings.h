// Headings of published files and what they mean.
#pragma once

#include "server/published/PublishedFile.h"

namespace reportd {

// What stands below a heading.
enum class Column {
    kUnknown, // a heading that means nothing to us
    kAside,   // a known one whose values we do not keep
    kDate,    // day of a row
    kTime,    // start of a row's interval
    kWeekday, // only in tables that compare with other days
    kSlot,    // hour of a peak
    kValue,   // values of a series
};

struct Meaning {
    Column column = Column::kUnknown;
    Series series = Series::kInstantUsage; // kValue only
    bool isTomorrow = false;               // a peak of the day after
};

// Looks headings up by name. Not changed once made: any thread.
class CHeadings {
public:
    explicit CHeadings(const ExtraHeadings& extra);

    // heading: as FoldCell gives it.
    Meaning Of(const std::string& heading) const;

private:
    std::map<std::string, Series, std::less<>> m_values;
};

} // namespace reportd
