// Report texts for the comparison of the document object models.
#pragma once

#include <cstdint>
#include <string>

namespace doms {

// The text of a seed, as it would come from the network: a report of drawn content, to most of which drawn things have
// been done that make them odd or break them. The same on every system that one compiler builds for: what is drawn for
// the arguments of a call comes in that compiler's order.
std::string DrawText(std::uint64_t seed);

// What one system is known to take otherwise than another, as a trait of texts.
enum class Trait {
    kEncoding, // the XML declaration names an encoding
    kPrefix,   // names with a colon
    kCdata,    // one CDATA section right after another
    kLineEnd,  // line ends, written as references too
    kCount,
};

// The text without that trait, otherwise as it is: no encoding named, '_' for the colons, sections joined, a
// space for each line end.
std::string Without(Trait trait, const std::string& text);

} // namespace doms
