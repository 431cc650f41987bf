// The parts of a request's target. Everything may be called from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace reportd {

// Path and query of a target that names the server as well ("http://host:port/path?query"); any other target as it is.
std::string_view WithoutServer(std::string_view target);

// Takes the text up to the separator, and the separator, off the front; all of it when there is no separator.
std::string_view TakeUpTo(std::string_view& text, char separator);

// Names and values of a query in its order, escapes (%41) decoded; a plus sign stays one. A parameter without "=" has
// an empty value. None when an escape is not one, or decodes to a control character.
using Parameters = std::vector<std::pair<std::string, std::string>>;
std::optional<Parameters> ParseQuery(std::string_view query);

} // namespace reportd
