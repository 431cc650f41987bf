#include "ctl/CommandLine.h"

#include "ctl/Nearest.h"
#include "ctl/Verbs.h"
#include "platform/Text.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <sstream>

namespace ctl {

namespace {

// In the order of the help.
constexpr void (*kAddVerbs[])(CCommandLine&) = {
    AddStatus, AddShow,    AddChart,  AddWatch, AddUpdate, AddStart,
    AddExit,   AddRestart, AddConfig, AddTrace, AddCheck,  AddCompletion,
};

// Lists a verb by the first line of its description; the verb's own help has the others.
class CFormatter : public CLI::Formatter {
    std::string make_subcommand(const CLI::App* verb) const override
    {
        const std::string description = verb->get_description();
        std::ostringstream line;
        CLI::detail::format_help(line, verb->get_name(), description.substr(0, description.find('\n')),
                                 get_column_width());
        return line.str();
    }
};

// Text with line feeds in place of blanks, so that lines fit a usual terminal.
std::string Folded(std::string text)
{
    constexpr std::size_t kColumns = 79;
    for (std::size_t start = 0; text.size() - start > kColumns;) {
        const std::size_t blank = text.rfind(' ', start + kColumns);
        if (blank == std::string::npos || blank <= start) {
            break; // a word that is longer stays as it is, with what follows
        }
        text[blank] = '\n';
        start = blank + 1;
    }
    return text;
}

// The verb that was given, or the program when there is none.
const CLI::App& Given(const CLI::App& program)
{
    const std::vector<const CLI::App*> verbs = program.get_subcommands(
        std::function<bool(const CLI::App*)>([](const CLI::App* verb) { return verb->parsed(); }));
    return verbs.empty() ? program : *verbs.front();
}

// All words that could stand in the place of one that the app does not know.
std::vector<std::string> KnownWords(const CLI::App& app)
{
    std::vector<std::string> words;
    for (const CLI::App* const verb : app.get_subcommands(std::function<bool(const CLI::App*)>())) {
        words.push_back(verb->get_name());
    }
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return words;
}

std::string Problem(const CLI::App& given, const CLI::ParseError& error)
{
    const std::vector<std::string> unknown = given.remaining();
    if (unknown.empty()) {
        return given.get_parent() == nullptr ? "a verb is needed" : error.what();
    }
    return "unknown argument '" + unknown.front() + "'" + Suggestion(unknown.front(), KnownWords(given));
}

} // namespace

CLI::Validator OneOf(const std::string& name, const std::vector<std::string>& words)
{
    return {[name, words](const std::string& word) {
                if (std::find(words.begin(), words.end(), word) != words.end()) {
                    return std::string();
                }
                return "there is no " + name + " '" + word + "'" + Suggestion(word, words);
            },
            CLI::detail::join(words, "|"), name};
}

CFailure::CFailure(const CString& message, int exitCode)
    : std::runtime_error(platform::EncodeUtf8(message)), m_exitCode(exitCode)
{
}

CCommandLine::CCommandLine() : m_program("Shows and controls AmporaSrv and the data that it keeps.", "amporactl")
{
    m_program.set_help_flag("-h,--help", "Print this text and end");
    m_program.set_version_flag("--version", "amporactl " AMPORA_VERSION, "Print the version and end");
    m_program.require_subcommand(1);
    m_program.formatter(std::make_shared<CFormatter>());
    m_program.get_formatter()->label("SUBCOMMAND", "VERB");
    m_program.get_formatter()->column_width(22);
    m_program.footer("'amporactl VERB --help' tells more about a verb.");
    for (const auto add : kAddVerbs) {
        add(*this);
    }
}

CLI::App& CCommandLine::AddVerb(const std::string& name, const std::string& summary, const std::string& details,
                                const std::string& example, Action action)
{
    CLI::App& verb = *m_program.add_subcommand(name, summary + (details.empty() ? "" : "\n\n" + Folded(details)));
    std::string footer = "Example:";
    for (std::string::size_type start = 0; start <= example.size();) {
        const auto end = std::min(example.find('\n', start), example.size());
        footer += "\n  amporactl " + example.substr(start, end - start);
        start = end + 1;
    }
    verb.group("Verbs");
    verb.footer(footer);
    verb.callback([this, action = std::move(action)] { m_action = action; });
    return verb;
}

int CCommandLine::Run(const std::vector<CString>& arguments, const Console& console)
{
    std::vector<std::string> words;
    // The library takes them from the end.
    std::transform(arguments.rbegin(), arguments.rend(), std::back_inserter(words), platform::EncodeUtf8);
    try {
        m_program.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        console.out << m_program.help();
        return kExitSuccess;
    } catch (const CLI::CallForVersion& version) {
        console.out << version.what() << "\n";
        return kExitSuccess;
    } catch (const CLI::ParseError& error) {
        return ReportMisuse(error, console);
    }
    return m_action(console);
}

int CCommandLine::ReportMisuse(const CLI::ParseError& error, const Console& console) const
{
    const CLI::App& given = Given(m_program);
    const std::string name = given.get_parent() == nullptr ? "amporactl" : "amporactl " + given.get_name();
    console.err << name << ": " << Problem(given, error) << "\n"
                << "'" << name << " --help' shows what it understands.\n";
    const auto code = m_misuseCodes.find(&given);
    return code == m_misuseCodes.end() ? kExitUsage : code->second;
}

} // namespace ctl
