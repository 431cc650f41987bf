// CSV output as RFC 4180 has it, UTF-8.
#pragma once

#include "platform/Types.h"

#include <ostream>
#include <vector>

namespace ctl {

// Writes one line, which ends with carriage return and line feed: fields with a comma between them, in quotation marks
// where their text needs that.
void WriteCsvLine(std::ostream& out, const std::vector<CString>& fields);

} // namespace ctl
