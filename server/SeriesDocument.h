// A series over a range of days, as JSON or as a table (CSV).
#pragma once

#include "server/FigureSource.h"
#include "server/Target.h"

#include <stdexcept>
#include <string>

namespace reportd {

// No source has a figure of a day before this one.
inline constexpr std::chrono::year_month_day kFirstDay{std::chrono::year{1970}, std::chrono::January,
                                                       std::chrono::day{1}};

// The most days that one request may ask for.
inline constexpr std::chrono::days kMaxSeriesDays{366};

// The kind that is computed from others, in percent.
inline constexpr std::string_view kUsageRate = "usage_rate";

struct SeriesRequest {
    const catalogue::Company* company = nullptr; // one of the catalogue's
    const SeriesInfo* info = nullptr;            // one of kAllSeries; null: the usage rate
    std::chrono::year_month_day from;            // first day
    std::chrono::year_month_day to;              // last day, not before the first, at most kMaxSeriesDays with it
    std::optional<LocalTime> asOf;               // what was known then; none: now
    bool isTable = false;                        // CSV instead of JSON
};

// The name of its kind in URLs.
inline std::string_view KindOf(const SeriesRequest& request)
{
    return request.info == nullptr ? kUsageRate : request.info->key;
}

// A request that cannot be understood; what() says why in words that hold nothing of the request.
class CBadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// parameters: company, kind, from and to, each once; asof and format (json or csv) if wanted. prefersTable: what counts
// when there is no format. Throws CBadRequest. Any thread.
SeriesRequest ParseSeriesRequest(const Parameters& parameters, bool prefersTable);

// Writes the document piece by piece.
class CSeriesWriter {
public:
    // source: the figures, and what the document says of where they come from; must live as long as this object.
    CSeriesWriter(CFigureSource& source, const SeriesRequest& request, LocalTime now);

    // Adds the next day, and what stands before the first one and after the last one. False when that was the last day.
    // Throws what the source throws.
    bool PutDay();

    // The document, once PutDay has returned false; at most once.
    std::string Take() { return std::move(m_text); }

private:
    void PutStart();
    void PutRecords(std::chrono::year_month_day date);
    void PutUsageRates(std::chrono::year_month_day date);
    void PutRecord(LocalTime start, LocalTime end, std::string_view value);

    CFigureSource& m_source;
    const SeriesRequest m_request;
    const LocalTime m_now;
    std::chrono::local_days m_next;
    std::string m_text;
    bool m_isFirst = true;
};

// The companies with their kinds, how far each reaches, and how fresh today is (JSON). Throws what the source throws.
std::string CompaniesDocument(CFigureSource& source, LocalTime now);

} // namespace reportd
