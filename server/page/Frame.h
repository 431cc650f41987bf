// What all pages have in common: head, title, language, notes at the end; and the pieces that they are put together
// from.
#pragma once

#include "chart/DayChartSvg.h"
#include "chart/Markup.h"
#include "server/page/DayView.h"
#include "server/page/Words.h"

#include <functional>

namespace reportd {

// What a page is made of. One page, one thread.
struct PageContext {
    CFigureSource& source;
    LocalTime now;
    Language language;
    std::chrono::minutes staleAfter;
    chart::CMarkup html = {};

    std::chrono::year_month_day Today() const { return DayOf(now); }
    bool IsSample() const { return source.Name() == "sample"; }
    std::string_view Text(TextId text) const { return TextOf(text, language); }
};

struct PageFrame {
    std::string title;           // of the document
    std::string path;            // of the page: "/company/tokyo"
    std::string query = {};      // what it asks for besides the language: "date=2026-11-22"; empty for nothing
    bool changesWithTime = true; // whether it is to be renewed while it is shown
};

// The whole document; writeMain writes what stands in its main element.
std::string WritePage(PageContext& page, const PageFrame& frame, const std::function<void()>& writeMain);

// The address of a page in a language: path, query and language.
std::string AddressOf(std::string_view path, std::string_view query, Language language);

// "/company/tokyo".
std::string CompanyPath(int siteNumber);

// A time for people and for programs.
void WriteTime(PageContext& page, LocalTime time, std::string_view text);

// "87.3 %" with the band in words and colour; a word for a rate that is not known.
void WriteRate(PageContext& page, std::optional<unsigned> tenths);

// When a reading was made and how long ago that is: "at 14:55, 3 minutes ago".
std::string MomentText(const PageContext& page, const Reading& reading);

// What stands for a value that there is not.
void WriteMissing(PageContext& page);

// A line that says when the figures of a day were published and confirmed, and marks those that are not current.
void WriteFreshness(PageContext& page, const DayView& day);

// The curves of a day with the demand of the day before.
chart::DayCurves CurvesOf(const DayView& day, const DayView& dayBefore, LocalTime now);

} // namespace reportd
