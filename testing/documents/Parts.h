// The parts of the documents that the programs themselves say, in Markdown.
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace documents {

// The verbs of a program: for each its command line, what it does, its options, examples.
std::string VerbsText(const CLI::App& program);

// The table of all settings, and the one of the companies' numbers and kinds of data.
std::string SettingsText();
std::string CompaniesText();

// The command lines of ampora-reportd, and the table of its options.
std::string ReportdUsageText();
std::string ReportdOptionsText();

// The document with a part renewed: what stands between the lines "<!-- made by renew_documents: NAME -->" and
// "<!-- end of NAME -->". Throws std::runtime_error when it does not have these lines.
std::string Renewed(const std::string& document, const std::string& name, const std::string& text);

} // namespace documents
