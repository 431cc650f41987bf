// What the real amporactl prints for other programs.
#include "testing/system/SystemTest.h"

#include <sstream>

namespace system_test {
namespace {

using testing::HasSubstr;
using testing_support::CScratchFolder;

constexpr std::chrono::seconds kValidatorLimit{60};
constexpr std::chrono::seconds kOutputLimit{30};

class SystemControlOutput : public CSystemTest {
protected:
    // Runs a command, whose exit code is to be this, and validates what it prints.
    void ExpectValid(const std::vector<std::string>& command, int exitCode)
    {
        const std::string name = testing::PrintToString(command);
        const ProcessResult control = Rig().RunControl(command);
        EXPECT_EQ(control.exitCode, exitCode) << name << control.err;
        EXPECT_EQ(Complaints(control.out), "") << name;
    }

    std::string Complaints(const std::string& document)
    {
        const ProcessResult validator =
            RunProcess({AMPORA_VALIDATE_JSON, AMPORA_JSON_SCHEMA, m_scratch.Write("document", document).string()}, {},
                       kValidatorLimit);
        return validator.exitCode == 0 ? "" : validator.out + validator.err;
    }

private:
    CScratchFolder m_scratch;
};

TEST_F(SystemControlOutput, JsonIsAsTheSchemaSays)
{
    PutOldFile("tokyo", 2); // which this pass does not replace
    SetAnswer(
        "tokyo", [](const Request&) { return testing_support::HttpAnswer{.status = 404}; }, 2);
    RunPass();
    ExpectValid({"show", "--json"}, 1);
    ExpectValid({"show", "tokyo", "--json"}, 1);
    ExpectValid({"show", "kansai", "instant", "--format", "json"}, 0);
    ExpectValid({"chart", "kyushu", "--json"}, 0);
    ExpectValid({"check", "--json"}, 2);
    ExpectValid({"check", "--company", "kansai", "--json"}, 0);
    ExpectValid({"status", "--json"}, 1);
}

TEST_F(SystemControlOutput, JsonThatTheSchemaForbidsIsFound)
{
    EXPECT_THAT(Complaints(R"({"schema": "amporactl.show", "schemaVersion": 1, "folder": "x", "files": [{}]})"),
                HasSubstr("'company' is a required property"));
    EXPECT_THAT(Complaints(R"({"schema": "amporactl.none", "schemaVersion": 1})"), HasSubstr("none"));
    EXPECT_NE(Complaints(""), "");
}

TEST_F(SystemControlOutput, SchemaKnowsEveryVerbThatPrintsJson)
{
    const std::string schema = FileBytes(AMPORA_JSON_SCHEMA);
    std::istringstream help(Rig().RunControl({"--help"}).out);
    bool isVerb = false;
    int count = 0;
    for (std::string line; std::getline(help, line);) {
        isVerb = isVerb ? !line.empty() : line == "Verbs:";
        const std::string verb = line.starts_with("  ") ? line.substr(2, line.find(' ', 2) - 2) : "";
        if (isVerb && !verb.empty() &&
            Rig().RunControl({verb, "--help"}).out.find("\n  --json ") != std::string::npos) {
            EXPECT_THAT(schema, HasSubstr("\"amporactl." + verb + "\""));
            ++count;
        }
    }
    EXPECT_GE(count, 2);
}

TEST_F(SystemControlOutput, LineEndsAreTheSameOnBothSystems)
{
    RunPass(OnlySetting("tokyo", 16));
    EXPECT_THAT(Rig().RunControl({"show", "--format", "csv"}).out,
                testing::MatchesRegex("company,[a-z_,]*,written\r\n"
                                      "tokyo,demand,2,2012-07-02T14:00:00,2012-07-02T15:00:00,[^\r\n]*\r\n"));
    EXPECT_THAT(Rig().RunControl({"show", "--json"}).out, testing::Not(HasSubstr("\r")));
}

TEST_F(SystemControlOutput, WatchShowsTheFilesAgainWhenOneIsWritten)
{
    RunPass(OnlySetting("tokyo", 16));
    const auto watch = Rig().StartControl({"watch"});
    const auto expectLine = [&](const std::string& start) {
        EXPECT_EQ(watch->ReadLine(kOutputLimit).value_or("no line").substr(0, start.size()), start) << watch->Err();
    };
    expectLine("COMPANY  KIND         RECORDS  ");
    expectLine("Tokyo    peak demand        2  ");
    RunPass(OnlySetting("chubu", 16));
    expectLine("");
    expectLine("COMPANY  KIND         RECORDS  ");
    expectLine("Tokyo    peak demand        2  ");
    expectLine("Chubu    peak demand        2  ");
}

} // namespace
} // namespace system_test
