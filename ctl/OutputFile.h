// Files that a verb writes where its user says.
#pragma once

#include "ctl/CommandLine.h"

namespace ctl {

// Adds an option that names such a file; file, which stays empty without it, must live as long as the verb.
CLI::Option& AddOutputFile(CLI::App& verb, const std::string& option, std::string& file,
                           const std::string& description);

// Writes content to standard output when file is "-", else to that file, UTF-8. A regular file appears whole or stays
// as it was: a new one beside it takes its place. Anything else of that name, such as a device, is written to. Throws
// CFailure when it cannot be written.
void WriteOutputFile(const std::string& file, const std::string& content, const Console& console);

} // namespace ctl
