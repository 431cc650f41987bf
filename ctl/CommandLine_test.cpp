#include "ctl/CommandLine.h"
#include "testing/ControlTest.h"

#include <functional>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class CommandLine : public testing_support::CControlTest {};

TEST_F(CommandLine, HelpListsTheVerbs)
{
    for (const wchar_t* option : {L"--help", L"-h"}) {
        EXPECT_EQ(Run({option}), 0);
        EXPECT_THAT(m_out, AllOf(HasSubstr("Usage: amporactl [OPTIONS] VERB"), HasSubstr("\n  show  "),
                                 HasSubstr("'amporactl VERB --help' tells more about a verb.")));
        EXPECT_EQ(m_err, "");
    }
}

TEST_F(CommandLine, HelpOfTheProgramLeavesDetailsToTheVerbs)
{
    const std::string details = "The script completes";
    EXPECT_EQ(Run({L"--help"}), 0);
    EXPECT_THAT(m_out, AllOf(HasSubstr("  completion "), testing::Not(HasSubstr(details))));
    EXPECT_EQ(Run({L"completion", L"--help"}), 0);
    EXPECT_THAT(m_out, HasSubstr(details));
}

TEST_F(CommandLine, DetailsOfAVerbFitATerminal)
{
    const ctl::CCommandLine program; // has to outlive its verbs
    for (const CLI::App* const verb : program.Model().get_subcommands(std::function<bool(const CLI::App*)>())) {
        for (const std::string& line : CLI::detail::split(verb->get_description(), '\n')) {
            EXPECT_LE(line.size(), 79U) << verb->get_name() << ": " << line;
        }
    }
}

TEST_F(CommandLine, HelpOfAVerbHasAnExample)
{
    EXPECT_EQ(Run({L"show", L"--help"}), 0);
    EXPECT_THAT(m_out, AllOf(HasSubstr("Usage: amporactl show [OPTIONS] [company] [kind]"), HasSubstr("--folder"),
                             HasSubstr("Example:\n  amporactl show\n  amporactl show tokyo actual\n")));
}

TEST_F(CommandLine, VersionPrintsNameAndVersion)
{
    EXPECT_EQ(Run({L"--version"}), 0);
    EXPECT_EQ(m_out, "amporactl " AMPORA_VERSION "\n");
    EXPECT_EQ(m_err, "");
}

TEST_F(CommandLine, MisuseIsExplainedOnStandardError)
{
    const struct {
        std::vector<CString> arguments;
        std::string problem;
    } cases[] = {
        {{}, "amporactl: a verb is needed\n'amporactl --help' shows"},
        {{L"list"}, "amporactl: unknown argument 'list'\n'amporactl --help' shows"},
        {{L"shwo"}, "amporactl: unknown argument 'shwo'; did you mean 'show'?\n"},
        {{L"Show"}, "amporactl: unknown argument 'Show'; did you mean 'show'?\n"},
        {{L"--verson"}, "amporactl: unknown argument '--verson'; did you mean '--version'?\n"},
        {{L""}, "amporactl: unknown argument ''\n"},
        {{L"\x6771\x4EAC"}, "amporactl: unknown argument '\xE6\x9D\xB1\xE4\xBA\xAC'\n"},
        {{L"show", L"--fodler", L"x"}, "amporactl show: unknown argument '--fodler'; did you mean '--folder'?\n"},
        {{L"show", L"--all"}, "amporactl show: unknown argument '--all'\n'amporactl show --help' shows"},
        {{L"show", L"tokio"}, "amporactl show: company: there is no company 'tokio'; did you mean 'tokyo'?\n"},
        {{L"show", L"tokyo", L"usage"}, "amporactl show: kind: there is no kind 'usage'\n"},
        {{L"show", L"tokyo", L"actual", L"tohoku"}, "amporactl show: unknown argument 'tohoku'\n"},
        {{L"show", L"--format", L"cvs"}, "amporactl show: --format: there is no format 'cvs'; did you mean 'csv'?\n"},
        {{L"show", L"--json", L"--format=csv"}, "amporactl show: --format excludes --json\n"},
        {{L"show", L"--folder"}, "amporactl show: --folder: 1 required DIR missing\n"},
        {{L"show", L"--folder", L""}, "amporactl show: --folder: the name of a folder is needed\n"},
        {{L"update", L"--folder", L"x"}, "amporactl update: unknown argument '--folder'\n"},
        {{L"update", L"show"}, "amporactl update: unknown argument 'show'\n"},
    };
    for (const auto& misuse : cases) {
        EXPECT_EQ(Run(misuse.arguments), 2);
        EXPECT_EQ(m_out, "");
        EXPECT_THAT(m_err, StartsWith(misuse.problem));
    }
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure)
{
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(RunControl({L"--version"}, out, err), 1);
    EXPECT_EQ(err.str(), "amporactl: standard output cannot be written\n");
}

} // namespace
