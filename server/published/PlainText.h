// Text of a published file: decoding, and the one form in which names are compared.
#pragma once

#include <string>
#include <string_view>

namespace reportd {

// The text of these bytes as UTF-8, without a byte order mark. Taken as UTF-8 when they are valid UTF-8, otherwise as
// Windows-31J. Throws CRefusedFile (kNotText) when they are neither, or hold a control character other than tab, CR
// and LF. Any thread, as the other function.
std::string DecodePublished(std::string_view bytes);

// A cell in the form in which cells are compared: Unicode compatibility composition (full-width digits, letters and
// parentheses become plain ones, half-width kana full ones), without blanks, and ~ for both of the dashes that stand
// between two times. cell: UTF-8.
std::string FoldCell(std::string_view cell);

} // namespace reportd
