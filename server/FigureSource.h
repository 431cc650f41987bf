// Where the answers of the report server take their figures from.
#pragma once

#include "server/Figures.h"

#include <optional>
#include <vector>

namespace reportd {

// What a source tells of one company's day without its figures.
struct DayState {
    std::uint64_t revision = 0;              // changes whenever a figure of that day does; 0: there is none
    std::optional<LocalTime> published = {}; // the publisher's stamp of the newest file that counted; none for samples
    std::optional<LocalTime> observed = {};  // when that file was last found to be the current one; none for samples
};

// Figures by company, series and day. A source is used by one thread at a time. An operation that cannot be carried out
// throws std::runtime_error.
class CFigureSource {
public:
    CFigureSource() = default;
    virtual ~CFigureSource() = default;
    CFigureSource(const CFigureSource&) = delete;
    CFigureSource& operator=(const CFigureSource&) = delete;

    // "sample" or "live": what the header field X-Ampora-Source says.
    virtual std::string_view Name() const = 0;

    // The records of one series and day in order of time, as they were known at the moment asOf, or now when there is
    // none. siteNumber: as in the catalogue; date: must be a day of the calendar; now: the time at the companies. Empty
    // when there is nothing, and for a company that the catalogue does not have.
    virtual std::vector<ReportRecord> Read(int siteNumber, Series series, std::chrono::year_month_day date,
                                           LocalTime now, std::optional<LocalTime> asOf) = 0;

    // The same arguments; what is known of that day as a whole.
    virtual DayState State(int siteNumber, std::chrono::year_month_day date, LocalTime now) = 0;

    // Start of the newest interval that has a value; none when there is none, and for sample data.
    virtual std::optional<LocalTime> Newest(int siteNumber, Series series) = 0;

    // Whether the place where the figures are kept can be read now. Throws nothing.
    virtual bool IsReady() = 0;
};

} // namespace reportd
