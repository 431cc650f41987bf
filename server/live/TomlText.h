// What must hold of a settings file before the TOML library may see it.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace reportd {

// The line, from 1, of the first character beyond ASCII that is neither in a comment nor in a text of one line whose
// opening quote follows a blank, a comma or "["; none when there is no such character. A byte order mark at the
// beginning does not count. Version 3.3.0 of the library behaves in an undefined way when it takes some of these
// characters for possible blanks: at keys and numbers, valid or not, and at the ends of lines in texts of several. Any
// thread.
std::optional<std::size_t> FindStrayCharacter(std::string_view toml);

} // namespace reportd
