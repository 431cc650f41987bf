// A look at an XML document before a parser gets it, for what parsers let pass. The same on every system.
#pragma once

#include <string_view>

namespace platform::portable {

// Whether a document may be parsed. bytes: the document, up to the first zero character, in UTF-8, in UTF-16 or in
// another encoding that keeps ASCII. Refused are
// - names with a prefix that no element around them declares, as MSXML does; libxml2 (in wine's MSXML too) drops such a
//   prefix, and the name would pass for another one;
// - references to entities that stand for more than 10,000,000 bytes altogether, which is the most that one text has.
//   What an entity stands for is parsed once, but made anew for every reference when a text is read;
// - references to entities beside parameter entities that have a text, in which declarations can be hidden.
// True for what is no well-formed document, unless one of these is found in it. Throws std::bad_alloc. Any thread.
bool MayBeParsed(std::string_view bytes);

} // namespace platform::portable
