// Limits on documents that bound the time and memory of parsing. The same on every system.
#pragma once

#include <string_view>

namespace platform::portable {

// Whether a document may be parsed. Refused are
// - a document type: no report has one, and what one declares may stand for any amount of text;
// - more than 500,000 '<' and '=' altogether: a document has at most twice as many nodes. A report has four for each
//   usage;
// - more than 256 '=' between two '<': parsers compare each attribute of an element with all others;
// - more than 100 "xmlns": parsers look through all declarations for each name.
// Each counts wherever it occurs, in comments too. Nothing else is checked: text that is not well-formed may pass. The
// caller limits the length. Never throws. Any thread.
bool IsWithinLimits(std::wstring_view text);

} // namespace platform::portable
