// Settings that amporactl stores, as the programs read them.
#include "testing/system/SystemTest.h"

#include <filesystem>
#include <fstream>

namespace system_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class SystemSettings : public CSystemTest {
protected:
    explicit SystemSettings(Platform platform = PlatformUnderTest()) : CSystemTest(platform) {}

    // What "amporactl config ..." prints, which has to succeed.
    std::string Config(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "config");
        const ProcessResult result = Rig().RunControl(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }
};

TEST_F(SystemSettings, WhatIsSetIsWhatAmporasrvDoes)
{
    Rig().PutSettings("");
    EXPECT_EQ(Config({"set", "Enable", "on"}), "Enable = 1 (machine)\n");
    EXPECT_EQ(Config({"set", "LogLevel", "err,war,tra"}), "LogLevel = 11 (user)\n");
    Config({"set", "ApiHost", "127.0.0.1:" + std::to_string(Port()), "--machine"});
    for (const char* const company : {"tohoku", "chubu", "kansai", "kyushu"}) {
        Config({"set", std::string(company) + ".Enable", "0"});
    }
    Config({"set", "tokyo.SupportDataType", "actual,demand"});
    const std::unique_ptr<CCopy> copy = Rig().Start();
    AwaitArmed(*copy);
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
    EXPECT_EQ(Requests().size(), 4U) << "two kinds of one company, two days each";
    Config({"unset", "tokyo.SupportDataType"});
    EXPECT_EQ(Config({"get", "tokyo.SupportDataType"}), "31\n");
    EXPECT_THAT(Config({"get", "ApiHost", "--json"}), HasSubstr("\"hive\": \"machine\""));
    EXPECT_EQ(Rig().RunControl({"config", "set", "Enable", "1", "--user"}).exitCode, 2);
}

class SystemLinuxSettings : public SystemSettings {
protected:
    SystemLinuxSettings() : SystemSettings(Platform::kLinux) {}

    fs::path File(const std::string& hive)
    {
        return dynamic_cast<CLinuxRig&>(Rig()).ScratchFolder() / hive / "AmporaSrv/settings.reg";
    }
};

TEST_F(SystemLinuxSettings, DamagedFileKeepsItsDamage)
{
    const std::string damaged =
        "Windows Registry\n[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv\n\"Interval\"=dword:\n\xFF";
    std::ofstream(File("user"), std::ios::binary) << damaged;
    EXPECT_EQ(Config({"get", "Interval"}), "30\n");
    EXPECT_EQ(Config({"set", "Interval", "60"}), "Interval = 60 (user)\n");
    EXPECT_EQ(FileBytes(File("user")), damaged + "\n\n[HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv]\n"
                                                 "\"Interval\"=dword:0000003c\n");
}

TEST_F(SystemLinuxSettings, WithoutRightsTheCommandToUseIsNamed)
{
    // File rights do not hold the superuser, so another user runs a copy of the program that he can reach.
    const fs::path scratch = File("machine").parent_path().parent_path().parent_path();
    const fs::path program = scratch / "amporactl";
    fs::copy_file(AMPORA_LINUX_CONTROL, program);
    fs::permissions(scratch, fs::perms(0755));
    fs::permissions(scratch / "user/AmporaSrv", fs::perms(0555));
    std::vector<std::string> command = {program.string(), "config", "set", "Enable", "1"};
    if (RunProcess({"id", "-u"}, {}, std::chrono::seconds(10)).out == "0\n") {
        command.insert(command.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    } else {
        fs::permissions(scratch / "machine/AmporaSrv", fs::perms(0555));
    }
    const EnvironmentChanges environment = {{"XDG_CONFIG_HOME", (scratch / "user").string()},
                                            {"XDG_CONFIG_DIRS", (scratch / "machine").string()}};
    const ProcessResult machine = RunProcess(command, environment, std::chrono::seconds(60));
    EXPECT_EQ(machine.exitCode, 1);
    EXPECT_EQ(machine.err,
              "amporactl: " + File("machine").string() +
                  ": only administrators may change it; on Linux run 'sudo amporactl config set Enable 1', "
                  "on Windows 'amporactl config set Enable 1' in a prompt opened with 'Run as "
                  "administrator'\n");
    command[command.size() - 2] = "Interval";
    const ProcessResult user = RunProcess(command, environment, std::chrono::seconds(60));
    EXPECT_EQ(user.exitCode, 1);
    EXPECT_EQ(user.err, "amporactl: " + File("user").string() + ": you have no right to change it\n");
    fs::permissions(scratch / "user/AmporaSrv", fs::perms(0755));
    fs::permissions(scratch / "machine/AmporaSrv", fs::perms(0755));
}

} // namespace
} // namespace system_test
