#include "testing/documents/Parts.h"

#include "config/SettingsTable.h"
#include "format/Catalogue.h"
#include "platform/Text.h"
#include "server/Options.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <vector>

namespace documents {

namespace {

std::string Code(const std::string& text) { return "`" + text + "`"; }

std::string Row(const std::vector<std::string>& cells) { return "| " + CLI::detail::join(cells, " | ") + " |\n"; }

// A value's type and the words that it may be; the model has "TYPE", "TYPE:one|two" or "one|two".
struct Value {
    std::string type;
    std::vector<std::string> words;
};

Value ValueOf(const CLI::Option& option)
{
    const std::string text = option.get_type_name();
    const std::string words = text.substr(text.rfind(':') + 1);
    Value value{text.substr(0, text.find(':')), {}};
    if (words.find('|') != std::string::npos) {
        value.words = CLI::detail::split(words, '|');
    }
    if (value.type == "TEXT" || !value.words.empty()) {
        value.type = CLI::detail::to_lower(option.get_single_name());
        std::transform(value.type.begin(), value.type.end(), value.type.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    }
    return value;
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

// "company", "-h, --help", "--folder DIR".
std::string NamesOf(const CLI::Option& option)
{
    if (option.get_positional()) {
        return option.get_single_name();
    }
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return CLI::detail::join(names, ", ") + (TakesValue(option) ? " " + ValueOf(option).type : "");
}

bool IsHelp(const CLI::App& app, const CLI::Option* option)
{
    return option == app.get_help_ptr() || option == app.get_version_ptr();
}

// The command line in lines of the width of a terminal, which a manual page indents by seven columns more.
std::string UsageOf(const CLI::App& verb, const std::string& name)
{
    constexpr std::size_t kColumns = 72;
    std::string usage;
    std::string line = "    " + name;
    for (const bool arePositional : {true, false}) {
        for (const CLI::Option* const option : verb.get_options()) {
            if (option->get_positional() != arePositional || IsHelp(verb, option)) {
                continue;
            }
            const std::string names = option->get_required() ? NamesOf(*option) : "[" + NamesOf(*option) + "]";
            if (line.size() + 1 + names.size() > kColumns) {
                usage += line + "\n";
                line = std::string(4 + name.size(), ' ');
            }
            line += " " + names;
        }
    }
    return usage + line + "\n";
}

std::string OptionsTable(const CLI::App& verb)
{
    std::string rows;
    for (const CLI::Option* const option : verb.get_options()) {
        if (IsHelp(verb, option)) {
            continue;
        }
        const std::vector<std::string> words = ValueOf(*option).words;
        rows += Row({Code(NamesOf(*option)),
                     option->get_description() + (words.empty() ? "" : ": " + CLI::detail::join(words, Code, ", "))});
    }
    return rows.empty() ? "" : "\n| Option | Meaning |\n|---|---|\n" + rows;
}

// The footer is the word "Example:" and then indented lines. One that is just the usage tells nothing.
std::string Examples(const CLI::App& verb, const std::string& usage)
{
    std::string lines;
    for (const std::string& line : CLI::detail::split(verb.get_footer(), '\n')) {
        lines += line.starts_with("  ") ? "  " + line + "\n" : "";
    }
    return lines.empty() || lines == usage ? "" : "\nFor example:\n\n" + lines;
}

void AddVerbs(const CLI::App& program, const std::string& name, std::string& text)
{
    for (const CLI::App* const verb : program.get_subcommands(std::function<bool(const CLI::App*)>())) {
        std::string whole = name;
        whole += " " + verb->get_name();
        if (!verb->get_subcommands(std::function<bool(const CLI::App*)>()).empty()) {
            AddVerbs(*verb, whole, text);
            continue;
        }
        std::string description = verb->get_description();
        const std::size_t end = std::min(description.find('\n'), description.size());
        description.insert(end, ".");
        const std::string usage = UsageOf(*verb, whole);
        text += "### ";
        text += whole + "\n\n";
        text += usage + "\n";
        text += description + "\n";
        text += OptionsTable(*verb);
        text += Examples(*verb, usage) + "\n";
    }
}

std::string Narrow(const wchar_t* text) { return platform::EncodeUtf8(text); }

std::string DefaultOf(const settings::Setting& setting)
{
    return setting.defaultText != nullptr ? Code(Narrow(setting.defaultText)) : std::to_string(setting.defaultNumber);
}

std::string RangeOf(const settings::Setting& setting)
{
    return setting.type == settings::Type::kText
               ? "text"
               : std::to_string(setting.minimum) + " to " + std::to_string(setting.maximum);
}

std::string SettingRow(const settings::Setting& setting, const std::string& key, const std::string& defaultText)
{
    return Row({Code(key + Narrow(setting.name)), defaultText, RangeOf(setting),
                Narrow(setting.meaning) +
                    (setting.isMachineOnly ? "; machine-wide only, a per-user value is ignored" : "") +
                    (setting.needsRestart ? "; read once, at the start" : "")});
}

} // namespace

std::string VerbsText(const CLI::App& program)
{
    std::string text;
    AddVerbs(program, program.get_name(), text);
    return text;
}

std::string SettingsText()
{
    std::string text = "| Value | Default | Range | Meaning |\n|---|---|---|---|\n";
    for (const settings::Setting& setting : settings::kMainSettings) {
        text += SettingRow(setting, "", DefaultOf(setting));
    }
    for (const settings::Setting& setting : settings::kSiteSettings) {
        const bool isOfCompany = setting.name == settings::kSupportDataType.name;
        text += SettingRow(setting, "site\\N\\", isOfCompany ? "see below" : DefaultOf(setting));
    }
    return text;
}

std::string CompaniesText()
{
    std::string text = "| N | Company | `SupportDataType` when not set |\n|---|---|---|\n";
    for (const catalogue::Company& company : catalogue::kCompanies) {
        text += Row({std::to_string(company.siteNumber), std::string(company.name.Narrow()),
                     std::to_string(company.defaultMask)});
    }
    return text;
}

std::string ReportdUsageText()
{
    std::string text;
    for (const std::string& line : reportd::UsageLines()) {
        text += "    " + line + "\n";
    }
    return text;
}

std::string ReportdOptionsText()
{
    std::string text = "| Option | Meaning |\n|---|---|\n";
    for (const reportd::OptionHelp& option : reportd::OptionHelps()) {
        const std::string name(option.name);
        text +=
            Row({Code(option.value.empty() ? name : name + " " + std::string(option.value)), std::string(option.help)});
    }
    return text;
}

std::string Renewed(const std::string& document, const std::string& name, const std::string& text)
{
    const std::string first = "<!-- made by renew_documents: " + name + " -->\n";
    const std::string last = "<!-- end of " + name + " -->\n";
    const std::size_t start = document.find(first);
    const std::size_t end = document.find(last);
    if (start == std::string::npos || end == std::string::npos || end < start) {
        throw std::runtime_error("it has no part \"" + name + "\"");
    }
    return document.substr(0, start + first.size()) + text + document.substr(end);
}

} // namespace documents
