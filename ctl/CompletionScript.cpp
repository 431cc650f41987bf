#include "ctl/CompletionScript.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace ctl {

namespace {

// Each script follows the words up to the cursor: it knows the verb that it is in, how many parameters have passed, and
// whether the word before is an option that takes a value. These three make the key of a row.
constexpr const char* kBash = R"(# Completion of @NAME@ for bash, made by "@NAME@ completion bash".
_@NAME@() {
    local word option='' at='' place=0 i current=${COMP_WORDS[COMP_CWORD]}
    [[ $current != '=' ]] || current=''
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        [[ $word != '=' ]] || continue
        if [[ $option ]]; then
            option=''
            continue
        fi
        case "$at $word" in
            @VERBS@) at="${at:+$at }$word" place=0 ;;
            @VALUED@) option=$word ;;
            *' -'*) ;;
            *) ((++place)) ;;
        esac
    done
    local key="$at|${option:-$place}"
    [[ $option || $current != -* ]] || key="$at|-"
    local -a candidates=()
    COMPREPLY=()
    case $key in
@ROWS@    esac
    for word in "${candidates[@]}"; do
        [[ $word != "$current"* ]] || COMPREPLY+=("$word")
    done
}
complete -F _@NAME@ @NAME@
)";

constexpr const char* kZsh = R"(#compdef @NAME@
# Completion of @NAME@ for zsh, made by "@NAME@ completion zsh".
_@NAME@() {
    local word option='' at='' place=0
    for word in "${(@)words[2,CURRENT-1]}"; do
        if [[ -n $option ]]; then
            option=''
            continue
        fi
        case "$at $word" in
            @VERBS@) at="${at:+$at }$word" place=0 ;;
            @VALUED@) option=$word ;;
            *' -'*) ;;
            *) ((++place)) ;;
        esac
    done
    if [[ -z $option && $PREFIX == --*=* ]]; then
        option=${PREFIX%%=*}
        compset -P '*='
    fi
    local key="$at|${option:-$place}" is_option=''
    if [[ -z $option && $PREFIX == -* ]]; then
        key="$at|-" is_option=-o
    fi
    local -a candidates
    case $key in
@ROWS@    esac
    _describe $is_option '@NAME@' candidates
}
if [[ $funcstack[1] == _@NAME@ ]]; then
    _@NAME@ "$@"
else
    compdef _@NAME@ @NAME@
fi
)";

constexpr const char* kFish = R"(# Completion of @NAME@ for fish, made by "@NAME@ completion fish".
function __@NAME@_at
    set -l at ''
    set -l place 0
    set -l skip 0
    for word in (commandline -opc)[2..-1]
        if test $skip = 1
            set skip 0
            continue
        end
        switch "$at $word"
            case @VERBS@
                set at (string trim "$at $word")
                set place 0
            case @VALUED@
                set skip 1
            case '* -*'
            case '*'
                set place (math $place + 1)
        end
    end
    contains -- $argv[1] "$at" "$at|$place"
end
complete -c @NAME@ -f
@ROWS@)";

constexpr const char* kPowerShell = R"(# Completion of @NAME@ for PowerShell, made by "@NAME@ completion powershell".
Register-ArgumentCompleter -Native -CommandName @NAME@, @NAME@.exe -ScriptBlock {
    param($wordToComplete, $commandAst, $cursorPosition)
    $verbs = @@VERBS@
    $valued = @@VALUED@
    $rows = @{
@ROWS@    }
    $at = ''
    $option = ''
    $place = 0
    foreach ($element in @($commandAst.CommandElements | Select-Object -Skip 1)) {
        if ($element.Extent.EndOffset -ge $cursorPosition) { break }
        $word = $element.Extent.Text
        if ($option) { $option = '' }
        elseif ($verbs -ccontains "$at $word") { $at = "$at $word".Trim(); $place = 0 }
        elseif ($valued -ccontains "$at $word") { $option = $word }
        elseif (-not $word.StartsWith('-')) { ++$place }
    }
    if ($option) { $key = "$at|$option" }
    elseif ($wordToComplete.StartsWith('-')) { $key = "$at|-" }
    else { $key = "$at|$place" }
    if ($rows.ContainsKey($key)) {
        foreach ($entry in $rows[$key].GetEnumerator()) {
            if ($entry.Key.StartsWith($wordToComplete)) {
                [System.Management.Automation.CompletionResult]::new($entry.Key, $entry.Key, 'ParameterValue', $entry.Value)
            }
        }
    }
}
)";

struct Candidate {
    std::string word;
    std::string description; // empty: the word says it all
};

// What can stand in one place.
struct Row {
    std::string at;    // the verb
    std::string place; // the number of the parameter, the option whose value it is, or "-" for options
    std::string type;  // "DIR" or "FILE" for what the shell knows itself
    std::vector<Candidate> candidates = {}; // of every other type

    std::string Key() const { return at + "|" + place; }
};

struct Table {
    std::vector<std::string> verbs;  // each after the verb that it belongs to, and a blank
    std::vector<std::string> valued; // options that take a value, likewise
    std::vector<Row> rows;
};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string LongestName(const CLI::Option& option)
{
    return option.get_lnames().empty() ? "-" + option.get_snames().front() : "--" + option.get_lnames().front();
}

Row RowOfValue(const std::string& at, const std::string& place, const CLI::Option& option)
{
    // "TYPE", "TYPE:one|two" or "one|two".
    const std::string type = option.get_type_name();
    const std::string words = type.substr(type.rfind(':') + 1);
    Row row{at, place, type.substr(0, type.find(':'))};
    if (words.find('|') != std::string::npos) {
        for (const std::string& word : CLI::detail::split(words, '|')) {
            row.candidates.push_back({word, ""});
        }
    }
    return row;
}

// Adds what can follow these verbs.
void AddRows(const CLI::App& app, const std::string& at, Table& table)
{
    const std::string before = at + " ";
    Row options{at, "-", ""};
    int place = 0;
    for (const CLI::Option* const option : app.get_options()) {
        if (option->get_positional()) {
            table.rows.push_back(RowOfValue(at, std::to_string(place++), *option));
            continue;
        }
        const std::string name = LongestName(*option);
        options.candidates.push_back({name, FirstLine(option->get_description())});
        if (option->get_items_expected_max() > 0) {
            table.valued.push_back(before + name);
            table.rows.push_back(RowOfValue(at, name, *option));
        }
    }
    table.rows.push_back(options);

    Row verbs{at, "0", ""};
    for (const CLI::App* const verb : app.get_subcommands(std::function<bool(const CLI::App*)>())) {
        verbs.candidates.push_back({verb->get_name(), FirstLine(verb->get_description())});
        table.verbs.push_back(before + verb->get_name());
        AddRows(*verb, at.empty() ? verb->get_name() : before + verb->get_name(), table);
    }
    if (!verbs.candidates.empty()) {
        table.rows.push_back(verbs);
    }
}

// Text in single quotes. quote: what a quote within them is written as.
std::string Quoted(std::string text, const std::string& quote)
{
    return "'" + CLI::detail::find_and_replace(std::move(text), "'", quote) + "'";
}

using Quote = std::function<std::string(const std::string&)>;

std::string PosixQuoted(const std::string& text) { return Quoted(text, R"('\'')"); }
std::string FishQuoted(const std::string& text) { return Quoted(text, R"(\')"); }
std::string PowerShellQuoted(const std::string& text) { return Quoted(text, "''"); }

// A branch of a case statement; nothing for a row without candidates. write: a candidate, quoted.
std::string PosixRow(const Row& row, const std::string& folders, const std::string& files,
                     const std::function<std::string(const Candidate&)>& write)
{
    std::string action = row.type == "DIR" ? folders : row.type == "FILE" ? files : "";
    if (!row.candidates.empty()) {
        action = "candidates=(" + CLI::detail::join(row.candidates, write, " ") + ")";
    }
    return action.empty() ? "" : "        " + PosixQuoted(row.Key()) + ") " + action + " ;;\n";
}

std::string BashRow(const Row& row)
{
    const std::string complete = "compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen ";
    return PosixRow(row, complete + "-d -- \"$current\")", complete + "-f -- \"$current\")",
                    [](const Candidate& candidate) { return PosixQuoted(candidate.word); });
}

std::string ZshRow(const Row& row)
{
    return PosixRow(row, "_directories; return", "_files; return", [](const Candidate& candidate) {
        const std::string word = CLI::detail::find_and_replace(candidate.word, ":", "\\:");
        return PosixQuoted(candidate.description.empty() ? word : word + ":" + candidate.description);
    });
}

// What an option of fish needs besides its name. value: of the option; null when it takes none.
std::string FishValue(const Row* value)
{
    if (value == nullptr) {
        return "";
    }
    if (value->type == "FILE") {
        return " -r -F";
    }
    const auto word = [](const Candidate& candidate) { return candidate.word; };
    return " -x -a " + FishQuoted(value->type == "DIR" ? "(__fish_complete_directories)"
                                                       : CLI::detail::join(value->candidates, word, " "));
}

std::string FishRow(const Row& row, const Table& table)
{
    const bool areOptions = row.place == "-";
    if (!areOptions && row.place.starts_with("-")) {
        return ""; // a value, which its option's line names
    }
    std::string lines;
    for (const Candidate& candidate : row.candidates) {
        const auto value = std::find_if(table.rows.begin(), table.rows.end(), [&](const Row& other) {
            return other.at == row.at && other.place == candidate.word;
        });
        lines +=
            "complete -c @NAME@ -n " + FishQuoted("__@NAME@_at " + FishQuoted(areOptions ? row.at : row.Key())) +
            (areOptions ? " -l " + candidate.word.substr(2) + FishValue(value == table.rows.end() ? nullptr : &*value)
                        : " -a " + FishQuoted(candidate.word)) +
            (candidate.description.empty() ? "" : " -d " + FishQuoted(candidate.description)) + "\n";
    }
    return lines;
}

// Without candidates the shell offers files by itself.
std::string PowerShellRow(const Row& row)
{
    const auto entry = [](const Candidate& candidate) {
        return PowerShellQuoted(candidate.word) + " = " +
               PowerShellQuoted(candidate.description.empty() ? candidate.word : candidate.description);
    };
    return row.candidates.empty() ? ""
                                  : "        " + PowerShellQuoted(row.Key()) + " = [ordered]@{ " +
                                        CLI::detail::join(row.candidates, entry, "; ") + " }\n";
}

// A shell's script with what its template leaves open.
std::string Filled(const char* script, const std::string& name, const std::string& verbs, const std::string& valued,
                   const std::string& rows)
{
    std::string text = CLI::detail::find_and_replace(script, "@VERBS@", verbs);
    text = CLI::detail::find_and_replace(text, "@VALUED@", valued);
    text = CLI::detail::find_and_replace(text, "@ROWS@", rows);
    return CLI::detail::find_and_replace(text, "@NAME@", name);
}

std::string AllRows(const Table& table, const std::function<std::string(const Row&)>& write)
{
    return CLI::detail::join(table.rows, write, "");
}

} // namespace

std::string CompletionScript(const CLI::App& program, const std::string& shell)
{
    Table table;
    AddRows(program, "", table);
    const std::string& name = program.get_name();
    const auto fill = [&](const char* script, const Quote& quote, const std::string& separator,
                          const std::string& around, const std::string& rows) {
        const auto list = [&](const std::vector<std::string>& texts) {
            const std::string joined = CLI::detail::join(texts, quote, separator);
            return around.empty() ? joined : around.front() + joined + around.back();
        };
        return Filled(script, name, list(table.verbs), list(table.valued), rows);
    };
    if (shell == "bash") {
        return fill(kBash, PosixQuoted, " | ", "", AllRows(table, BashRow));
    }
    if (shell == "zsh") {
        return fill(kZsh, PosixQuoted, " | ", "", AllRows(table, ZshRow));
    }
    if (shell == "fish") {
        return fill(kFish, FishQuoted, " ", "",
                    AllRows(table, [&table](const Row& row) { return FishRow(row, table); }));
    }
    return fill(kPowerShell, PowerShellQuoted, ", ", "()", AllRows(table, PowerShellRow));
}

} // namespace ctl
