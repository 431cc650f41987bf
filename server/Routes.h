// The paths that the server knows.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace reportd {

enum class Resource {
    kUsageReport,
    kPeakReport,
    kCompanies,
    kSeries,
    kHealth,
    kReadiness,
    kMetrics,
    kOverview,
    kCompanyPage,
    kStyle,
    kScript,
};

struct Route {
    Resource resource;
    std::string_view path; // a part in braces stands for any one part: /usage/{company}/{kind}
    std::array<std::string_view, 6> parameters = {}; // of the query; unused places are empty
};

inline constexpr std::array kRoutes = {
    Route{Resource::kUsageReport, "/usage/{company}/{kind}", {"date", "output"}},
    Route{Resource::kPeakReport, "/peak/{company}/{kind}", {"date", "output"}},
    Route{Resource::kCompanies, "/v1/companies"},
    Route{Resource::kSeries, "/v1/series", {"company", "kind", "from", "to", "asof", "format"}},
    Route{Resource::kHealth, "/healthz"},
    Route{Resource::kReadiness, "/readyz"},
    Route{Resource::kMetrics, "/metrics"},
    Route{Resource::kOverview, "/", {"lang"}},
    Route{Resource::kCompanyPage, "/company/{company}", {"date", "lang"}},
    Route{Resource::kStyle, "/page.css"},
    Route{Resource::kScript, "/page.js"},
};

struct RouteMatch {
    const Route* route = nullptr;
    std::array<std::string_view, 2> parts = {}; // what stands in the place of the parts in braces, in their order
};

// path: without the query, not decoded. None when no route has it. Any thread.
std::optional<RouteMatch> FindRoute(std::string_view path);

} // namespace reportd
