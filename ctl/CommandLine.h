// The command line of amporactl: its verbs, their options and their help.
#pragma once

#include "platform/Terminal.h"
#include "platform/Types.h"

#include <CLI/App.hpp>

#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ctl {

// Exit codes that all verbs share.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2; // the command line is not understood

// What a verb writes to, UTF-8.
struct Console {
    std::ostream& out; // standard output, for what was asked for
    std::ostream& err; // standard error, for everything else
    const platform::CTerminal& terminal;
};

// Ends a verb: what() is written to standard error in a line "amporactl: ...", and the program ends with exitCode.
class CFailure : public std::runtime_error {
public:
    explicit CFailure(const CString& message, int exitCode = kExitFailure);

    int ExitCode() const { return m_exitCode; }

private:
    int m_exitCode;
};

// Refuses a word that is none of these, for a parameter that the command line's user knows by this name. The help and
// the completion of shells list the words.
CLI::Validator OneOf(const std::string& name, const std::vector<std::string>& words);

// The verbs and options that the program knows, and what the arguments ask for. One thread.
class CCommandLine {
public:
    // What a verb does once all of its options have their values. Returns the exit code; may throw CFailure.
    using Action = std::function<int(const Console& console)>;

    // Knows all verbs.
    CCommandLine();
    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    // Adds a verb. summary: one sentence without a full stop; details: further sentences, or empty; example: a command
    // line, or several with a line feed between them, each shown in the help after the program's name. The options that
    // the caller adds to the result must be stored where action finds them.
    CLI::App& AddVerb(const std::string& name, const std::string& summary, const std::string& details,
                      const std::string& example, Action action);

    // Sets the exit code for arguments of this verb that are not understood; kExitUsage unless set.
    void SetMisuseCode(const CLI::App& verb, int exitCode) { m_misuseCodes[&verb] = exitCode; }

    // Does what the arguments (without the program's name) ask for; its exit code. Throws what the verb throws, and
    // nothing when the arguments are not understood: then it tells why on console.err.
    int Run(const std::vector<CString>& arguments, const Console& console);

    // The whole model, for manual pages and completion.
    const CLI::App& Model() const { return m_program; }

private:
    int ReportMisuse(const CLI::ParseError& error, const Console& console) const;

    CLI::App m_program;
    std::map<const CLI::App*, int> m_misuseCodes; // of verbs that have their own
    Action m_action;                              // of the verb that the arguments name
};

} // namespace ctl
