#include "ctl/CompletionScript.h"
#include "testing/ControlTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CompletionScript : public testing_support::CControlTest {};

// A program with a verb below a verb, a value of known words, and one that the shell knows.
void Fill(CLI::App& program, std::string* value)
{
    program.set_help_flag("--help", "It's the help");
    CLI::App& pot = *program.add_subcommand("pot", "What it holds\n\nMore.")->add_subcommand("fill", "Fill it");
    pot.set_help_flag();
    pot.add_option("tea", *value, "The tea")->type_name("TEXT:green|black");
    pot.add_option("-l,--log", *value, "A file")->type_name("FILE");
}

// What the other shells' scripts offer is tried in the shells (completion_test.sh). Debian has no PowerShell.
TEST_F(CompletionScript, ListsForPowerShellWhatCanStandInEachPlace)
{
    std::string value;
    CLI::App program("", "kettle");
    Fill(program, &value);
    const std::string script = ctl::CompletionScript(program, "powershell");
    EXPECT_THAT(script, HasSubstr("-CommandName kettle, kettle.exe -ScriptBlock {\n"));
    EXPECT_THAT(script, HasSubstr("    $verbs = @(' pot', 'pot fill')\n    $valued = @('pot fill --log')\n"));
    EXPECT_THAT(script, HasSubstr("    $rows = @{\n"
                                  "        '|-' = [ordered]@{ '--help' = 'It''s the help' }\n"
                                  "        'pot|-' = [ordered]@{ '--help' = 'It''s the help' }\n"
                                  "        'pot fill|0' = [ordered]@{ 'green' = 'green'; 'black' = 'black' }\n"
                                  "        'pot fill|-' = [ordered]@{ '--log' = 'A file' }\n"
                                  "        'pot|0' = [ordered]@{ 'fill' = 'Fill it' }\n"
                                  "        '|0' = [ordered]@{ 'pot' = 'What it holds' }\n"
                                  "    }\n"));
    EXPECT_THAT(script, Not(HasSubstr("@NAME@")));
}

TEST_F(CompletionScript, IsPrintedForAShellThatIsKnown)
{
    EXPECT_EQ(Run({L"completion", L"fish"}), 0);
    EXPECT_THAT(m_out, HasSubstr("complete -c amporactl -f\n"));
    EXPECT_EQ(Run({L"completion", L"tcsh"}), 2);
    EXPECT_THAT(m_err, HasSubstr("there is no shell 'tcsh'"));
}

} // namespace
