// What a document may be so that parsing it cannot cost much, whatever it holds. The same on every system.
#pragma once

#include <string_view>

namespace platform::portable {

// Whether a document may be parsed. Refused are
// - a document type: no report has one, and what one declares may stand for any amount of text;
// - more than 500,000 '<' and '=' altogether: a document has at most twice as many nodes, and a node takes some 128
//   bytes. A report has four for each usage;
// - more than 256 '=' between two '<': parsers compare each attribute of an element with all others;
// - more than 100 "xmlns": parsers look through all declarations for each name.
// Each counts wherever it stands, in a comment too. True for what is no well-formed document, unless one of these is
// found in it. The length is the caller's affair. Never throws. Any thread.
bool IsWithinLimits(std::wstring_view text);

} // namespace platform::portable
