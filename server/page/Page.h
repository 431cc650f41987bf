// The pages of the report server: HTML for people, written from the figures of a source.
//
// A page loads nothing but /page.css and /page.js of the same server, works without its script and obeys
// kContentSecurityPolicy. It is well-formed XML as well. Values that the source does not have are shown as missing,
// values of a live source that have not been confirmed for a while are marked, sample data is called so. Everything
// that comes from the source or the request is escaped. A source that cannot be read throws what it throws. The
// functions may be called from any thread, one at a time for each source.
#pragma once

#include "server/FigureSource.h"
#include "server/page/Language.h"

#include <string>

namespace reportd {

// For how long live figures of today and tomorrow count as current without having been confirmed.
inline constexpr std::chrono::minutes kPageStaleAfter{15};

// The page "/": all companies at a glance. now: the time at the companies.
std::string OverviewPage(CFigureSource& source, LocalTime now, Language language,
                         std::chrono::minutes staleAfter = kPageStaleAfter);

// The page "/company/K?date=YYYY-MM-DD": a company's day with its chart and all values. siteNumber: one of the
// catalogue's; date: any day of the calendar, of which there need not be a value. Throws std::invalid_argument for a
// company that the catalogue does not have.
std::string CompanyPage(CFigureSource& source, int siteNumber, std::chrono::year_month_day date, LocalTime now,
                        Language language, std::chrono::minutes staleAfter = kPageStaleAfter);

// What /page.css and /page.js are: text/css and text/javascript, UTF-8.
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;

// Value of the header field Content-Security-Policy of both pages.
extern const std::string_view kContentSecurityPolicy;

} // namespace reportd
