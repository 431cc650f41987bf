// What the real amporactl does with the real amporasrv.
#include "testing/system/SystemTest.h"

#include <nlohmann/json.hpp>
#include <sstream>

namespace system_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

class SystemControl : public CSystemTest {
protected:
    // Ends what amporactl has started.
    ~SystemControl() override { Rig().RunControl({"exit", "--wait"}); }

    // What a command prints that has to end with this code.
    std::string Control(const std::vector<std::string>& arguments, int exitCode = 0)
    {
        const ProcessResult result = Rig().RunControl(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << testing::PrintToString(arguments) << result.out << result.err;
        return exitCode == 0 ? result.out : result.err;
    }
    json Status(int exitCode) // printed on standard output with either code
    {
        const ProcessResult result = Rig().RunControl({"status", "--json"});
        EXPECT_EQ(result.exitCode, exitCode) << result.out << result.err;
        return json::parse(result.out);
    }
};

TEST_F(SystemControl, StartsRestartsAndEndsACopy)
{
    Rig().PutSettings("");
    const std::string first = Control({"start"});
    EXPECT_THAT(first, StartsWith("amporasrv runs (process "));
    EXPECT_EQ(Control({"start"}), first) << "the same process";
    const std::string second = Control({"restart"});
    EXPECT_THAT(second, StartsWith("amporasrv runs (process "));
    EXPECT_NE(second, first);
    EXPECT_EQ(Status(1)["running"], true);
    EXPECT_EQ(Control({"exit", "--wait"}), "");
    EXPECT_EQ(Status(1)["running"], false);
    EXPECT_EQ(Control({"exit"}), "amporasrv was not running\n");
    EXPECT_THAT(Control({"update", "--wait"}, 1), HasSubstr("updating is off"));
}

TEST_F(SystemControl, UpdateWaitsUntilAllFilesAreRenewed)
{
    const std::unique_ptr<CCopy> copy = StartCopy();
    AwaitArmed(*copy);
    const std::size_t requests = Requests().size();
    EXPECT_EQ(Control({"update", "--wait"}), "");
    EXPECT_EQ(Requests().size(), 2 * requests);
    AwaitArmed(*copy, 2);
    ExpectHealthyFiles("tokyo");
    SetAnswer(
        "kyushu", [](const Request&) { return testing_support::HttpAnswer{.status = 404}; }, 8);
    EXPECT_EQ(Control({"update", "--wait"}, 1), "amporactl: Kyushu peak supply has not been renewed\n");
    SetAnswerForAll([](const Request&) { return testing_support::HttpAnswer{.status = 404}; });
    EXPECT_EQ(Control({"update", "--wait"}, 1), "amporactl: no file has been renewed; 'amporactl status' tells why\n");
    EndCopy(*copy);
}

TEST_F(SystemControl, UpdateDuringThePassAtTheStartIsFollowedByItsOwn)
{
    // Symptom: "no file has been renewed", for both passes had ended before amporactl got the mutex between them.
    Rig().PutSettings(BaseSettings(Port(), kMessages));
    for (int i = 0; i < 5; ++i) {
        Control({"start"});
        EXPECT_EQ(Control({"update", "--wait"}), "");
        Control({"exit", "--wait"});
    }
}

TEST_F(SystemControl, StatusTellsTheCopyItsFilesAndWhyThereAreNone)
{
    SetAnswerForAll([](const Request&) { return testing_support::HttpAnswer{.status = 503}; });
    const std::unique_ptr<CCopy> copy = StartCopy();
    AwaitArmed(*copy);
    json status = Status(1);
    EXPECT_EQ(status["processId"], copy->ProcessId());
    EXPECT_TRUE(status["since"].is_string());
    EXPECT_TRUE(status["nextPass"].is_object());
    EXPECT_EQ(status["causes"][0]["code"], "apiNoData") << status["causes"];
    EXPECT_EQ(status["causes"][1]["code"], "empty");
    SetAnswerForAll(nullptr);
    EXPECT_EQ(Control({"update", "--wait"}), "");
    status = Status(0);
    EXPECT_EQ(status["causes"], json::array());
    EndCopy(*copy);
    SetPort(1); // where nobody listens
    Rig().PutSettings(BaseSettings(Port(), kMessages));
    std::filesystem::remove(DataFile("tokyo", 1));
    status = Status(1);
    EXPECT_EQ(status["causes"][0]["code"], "notRunning") << status["causes"];
    EXPECT_EQ(status["causes"][1]["code"], "apiRefused");
    EXPECT_EQ(status["causes"][2]["code"], "missing");
}

// On a pseudo terminal, which script(1) makes.
TEST(SystemLinuxControl, StatusFitsATerminalOf40Columns)
{
    const testing_support::CScratchFolder scratch;
    const std::string folder = scratch.Path().string();
    const ProcessResult result =
        RunProcess({"script", "-qec", "stty cols 40; '" AMPORA_LINUX_CONTROL "' status --offline", "/dev/null"},
                   {{"XDG_RUNTIME_DIR", folder},
                    {"XDG_CONFIG_DIRS", folder},
                    {"XDG_CONFIG_HOME", folder},
                    {"AMPORA_LOCK_DIR", folder},
                    {"AMPORA_COMMON_APPDATA", folder}},
                   std::chrono::seconds(60));
    EXPECT_EQ(result.exitCode, 1) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("- amporasrv is not running: start it\r\n  with 'amporactl start'\r\n"));
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        const bool isPath = line.find(folder) != std::string::npos; // of one word, which stays whole
        EXPECT_TRUE(isPath || line.size() <= 41) << line << "(a carriage return counts)";
    }
}

} // namespace
} // namespace system_test
