#include "server/Routes.h"

#include "server/Target.h"

namespace reportd {
namespace {

std::optional<RouteMatch> MatchRoute(const Route& route, std::string_view path)
{
    RouteMatch match{.route = &route};
    std::size_t count = 0;
    std::string_view pattern = route.path;
    while (true) {
        const bool goesOn = pattern.find('/') != std::string_view::npos;
        if (goesOn != (path.find('/') != std::string_view::npos)) {
            return {};
        }
        const std::string_view wanted = TakeUpTo(pattern, '/');
        const std::string_view part = TakeUpTo(path, '/');
        if (wanted.starts_with('{')) {
            match.parts.at(count++) = part;
        } else if (wanted != part) {
            return {};
        }
        if (!goesOn) {
            return match;
        }
    }
}

} // namespace

std::optional<RouteMatch> FindRoute(std::string_view path)
{
    for (const Route& route : kRoutes) {
        if (const std::optional<RouteMatch> match = MatchRoute(route, path)) {
            return match;
        }
    }
    return {};
}

} // namespace reportd
