// Which request gets which answer.
#pragma once

#include "server/SampleSource.h"

#include <string>
#include <string_view>

namespace reportd {

struct ReportAnswer {
    unsigned status = 404; // HTTP status code
    std::string body = {}; // an XML document in UTF-8; empty unless status is 200

    bool operator==(const ReportAnswer&) const = default;
};

// Answers one request.
// method: as on the wire; target: as on the wire, not decoded: path and query, which "http://" and the name of any
// server may precede; now: the local clock.
//
// 200 with a power_report document for GET of /usage/K/instant, /usage/K/actual, /usage/K/estimated, /peak/K/supply and
// /peak/K/demand, K one of tokyo, tohoku, chubu, kansai and kyushu, with the query date=YYYY-MM-DD&output=xml; 503 when
// there is no data for that day; 404 for every other target; 405 for every other method. Any thread.
ReportAnswer AnswerReportRequest(std::string_view method, std::string_view target, LocalTime now);

} // namespace reportd
