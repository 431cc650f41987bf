// What a mistyped word was probably meant to be.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// "; did you mean 'known'?" with the known word that the fewest changed, added, left out or swapped letters make of
// word, or nothing when no known word is near. ASCII letters compare without case. Any thread.
std::string Suggestion(std::string_view word, const std::vector<std::string>& known);

} // namespace ctl
