#include "server/Options.h"

#include "server/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace reportd {
namespace {

// A number from low to high that takes up the whole text.
template <class Number>
Number ParseNumber(const std::string& option, const std::string& text, Number low, Number high)
{
    Number number{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < low || number > high) {
        throw COptionsError(option + " needs a number from " + std::to_string(low) + " to " + std::to_string(high) +
                            ", not \"" + text + "\"");
    }
    return number;
}

std::chrono::year_month_day ParseDay(const std::string& option, const std::string& text)
{
    const std::optional<std::chrono::year_month_day> date = ParseDate(text);
    if (!date) {
        throw COptionsError(option + " needs a day such as 2026-04-20, not \"" + text + "\"");
    }
    return *date;
}

SourceKind ParseSource(const std::string& text)
{
    if (text == "live") {
        return SourceKind::kLive;
    }
    if (text == "sample") {
        return SourceKind::kSample;
    }
    throw COptionsError("--source needs live or sample, not \"" + text + "\"");
}

struct NamedVerb {
    std::string_view name;
    Verb verb;
};
constexpr std::array kVerbs = {NamedVerb{"check", Verb::kCheck}, NamedVerb{"import", Verb::kImport},
                               NamedVerb{"backfill", Verb::kBackfill}};

// An option with a value: for which verbs it is meant, and what it does.
struct ValueOption {
    OptionHelp help;
    std::vector<Verb> verbs;
    void (*take)(Options* options, const std::string& option, const std::string& value);
};

const std::vector<ValueOption>& ValueOptions()
{
    using std::string;
    static const std::vector<ValueOption> kAll = {
        {{"--source", "KIND", "live or sample (default live; on Windows sample, which has nothing else)"},
         {Verb::kServe},
         [](Options* options, const string&, const string& value) { options->source = ParseSource(value); }},
        {{"--config", "FILE", "settings of live data (default /etc/ampora-reportd.toml where it exists)"},
         {Verb::kServe, Verb::kCheck, Verb::kImport, Verb::kBackfill},
         [](Options* options, const string&, const string& value) { options->config = value; }},
        {{"--listen", "ADDRESS",
          "numeric IPv4 or IPv6 address to listen on (default: as in the settings, else 127.0.0.1)"},
         {Verb::kServe},
         [](Options* options, const string&, const string& value) { options->listen = value; }},
        {{"--port", "N", "port to listen on, 0 for any free one (default: as in the settings, else 8470)"},
         {Verb::kServe},
         [](Options* options, const string& option, const string& value) {
             options->port = ParseNumber<unsigned short>(option, value, 0, 65535);
         }},
        {{"--company", "KEY",
          "whose files they are: tokyo, tohoku, chubu, kansai or kyushu (default: from their names)"},
         {Verb::kImport},
         [](Options* options, const string&, const string& value) { options->company = value; }},
        {{"--from", "DATE", "first day to fetch, such as 2026-04-20"},
         {Verb::kBackfill},
         [](Options* options, const string& option, const string& value) {
             options->firstDay = ParseDay(option, value);
         }},
        {{"--to", "DATE", "last day to fetch (default yesterday)"},
         {Verb::kBackfill},
         [](Options* options, const string& option, const string& value) {
             options->lastDay = ParseDay(option, value);
         }},
        {{"--pause", "SECONDS", "between two requests to a company, 5 to 3600 (default 5)"},
         {Verb::kBackfill},
         [](Options* options, const string& option, const string& value) {
             options->pause = std::chrono::seconds(ParseNumber(option, value, 5, 3600));
         }},
    };
    return kAll;
}

const ValueOption& FindValueOption(const std::string& name, Verb verb)
{
    for (const ValueOption& option : ValueOptions()) {
        if (option.help.name == name) {
            if (std::find(option.verbs.begin(), option.verbs.end(), verb) == option.verbs.end()) {
                throw COptionsError(name + " does not belong here");
            }
            return option;
        }
    }
    throw COptionsError("unknown option \"" + name + "\"");
}

void CheckComplete(const Options& options)
{
    if (options.help || options.version) {
        return;
    }
    if (options.verb == Verb::kImport && options.files.empty()) {
        throw COptionsError("import needs a file");
    }
    if (options.verb == Verb::kBackfill) {
        if (options.firstDay == std::chrono::year_month_day{}) {
            throw COptionsError("backfill needs --from");
        }
        if (options.lastDay.value_or(options.firstDay) < options.firstDay) {
            throw COptionsError("--to lies before --from");
        }
    }
}

} // namespace

const std::vector<std::string>& UsageLines()
{
    static const std::vector<std::string> kLines = {"ampora-reportd [--source live|sample] [--config FILE]",
                                                    "               [--listen ADDRESS] [--port N]",
                                                    "ampora-reportd check [--config FILE]",
                                                    "ampora-reportd import [--config FILE] [--company KEY] FILE...",
                                                    "ampora-reportd backfill --from DATE [--to DATE]",
                                                    "               [--pause SECONDS] [--config FILE]",
                                                    "ampora-reportd --help | --version"};
    return kLines;
}

std::vector<OptionHelp> OptionHelps()
{
    std::vector<OptionHelp> helps;
    for (const ValueOption& option : ValueOptions()) {
        helps.push_back(option.help);
    }
    helps.push_back({"--help", "", "print a short text and end"});
    helps.push_back({"--version", "", "print the version and end"});
    return helps;
}

std::string HelpText()
{
    std::string text;
    for (const std::string& line : UsageLines()) {
        text += (text.empty() ? "Usage: " : "       ") + line + "\n";
    }
    text += "\n"
            "Answers power reports over HTTP until it gets SIGINT or SIGTERM: from what five power\n"
            "companies publish, which it fetches and keeps (live, Linux only), or with computed sample\n"
            "data.\n"
            "\n"
            "  check     fetch each company's file once and tell what it holds; keeps nothing\n"
            "  import    keep the figures of saved files: CSV, also with .gz, and ZIP archives of them\n"
            "  backfill  fetch and keep the figures of past days\n"
            "\n";
    constexpr std::size_t kHelpColumn = 18;
    for (const OptionHelp& option : OptionHelps()) {
        std::string names(option.name);
        names += option.value.empty() ? "" : " " + std::string(option.value);
        names.resize(kHelpColumn, ' ');
        text += "  " + names + std::string(option.help) + "\n";
    }
    return text;
}

Options ParseOptions(const std::vector<std::string>& arguments)
{
    Options options;
    auto argument = arguments.begin();
    if (argument != arguments.end()) {
        const auto* const verb = std::find_if(kVerbs.begin(), kVerbs.end(),
                                              [&](const NamedVerb& candidate) { return candidate.name == *argument; });
        if (verb != kVerbs.end()) {
            options.verb = verb->verb;
            ++argument;
        }
    }
    for (; argument != arguments.end(); ++argument) {
        if (*argument == "--help") {
            options.help = true;
        } else if (*argument == "--version") {
            options.version = true;
        } else if (options.verb == Verb::kImport && !argument->starts_with("--") && !argument->empty()) {
            options.files.push_back(*argument);
        } else {
            const ValueOption& option = FindValueOption(*argument, options.verb);
            if (++argument == arguments.end()) {
                throw COptionsError(std::string(option.help.name) + " needs a value");
            }
            option.take(&options, std::string(option.help.name), *argument);
        }
    }
    CheckComplete(options);
    return options;
}

} // namespace reportd
