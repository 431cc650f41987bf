// What only the Linux program can meet: links, modes, limits and rights of its file system.
#include "testing/system/SystemTest.h"

#include <filesystem>
#include <fstream>

namespace system_test {
namespace {

namespace fs = std::filesystem;
using testing_support::TraceLine;

const TraceLine kOpenFail{"ERR", "CAmporaGoolgeSiteConfig::OutData", "Open Fail."};
const TraceLine kUpdated{"TRA", "CAmporaUpdater::ThreadProc", "Updated"};

class SystemLinux : public CSystemTest {
protected:
    SystemLinux() : CSystemTest(Platform::kLinux) {}

    CLinuxRig& LinuxRig() { return dynamic_cast<CLinuxRig&>(Rig()); }

    fs::path WriteScratch(const std::string& name, const std::string& text)
    {
        const fs::path path = LinuxRig().ScratchFolder() / name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
};

TEST_F(SystemLinux, LinkInPlaceOfAFileIsNotFollowed)
{
    const fs::path target = WriteScratch("precious", "precious");
    fs::create_directories(Rig().DataFolder());
    fs::create_symlink(target, DataFile("tokyo", 1));
    const Pass pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    EXPECT_EQ(FileBytes(target), "precious");
    EXPECT_TRUE(fs::is_symlink(DataFile("tokyo", 1)));
    ExpectHealthyFile("tokyo", 2);
    ExpectOthersHealthy("tokyo");
}

TEST_F(SystemLinux, LinkToNothingMakesNothing)
{
    const fs::path target = LinuxRig().ScratchFolder() / "nothing";
    fs::create_directories(Rig().DataFolder());
    fs::create_symlink(target, DataFile("tokyo", 1));
    const Pass pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    EXPECT_FALSE(fs::exists(target));
    ExpectOthersHealthy("tokyo");
}

TEST_F(SystemLinux, PipeInPlaceOfAFileDoesNotHoldThePassUp)
{
    fs::create_directories(Rig().DataFolder());
    ASSERT_EQ(RunProcess({"mkfifo", DataFile("tokyo", 1).string()}, {}, std::chrono::seconds(10)).exitCode, 0);
    const Pass pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    ExpectHealthyFile("tokyo", 2);
    ExpectOthersHealthy("tokyo");
}

TEST_F(SystemLinux, CommonFolderThatCannotBeMadeKeepsEveryFileFromBeingWritten)
{
    const fs::path file = WriteScratch("file", "in the way");
    LinuxRig().SetCommonFolder(file / "common");
    const Pass pass = RunPass();
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(CountLines(pass, {"ERR", "CAmporaGoolgeSiteConfig::GetSaveFolderPath", "Get Common App Folder Fail."}),
              21);
    EXPECT_EQ(FileBytes(file), "in the way");
}

TEST_F(SystemLinux, EverybodyMayUseFolderAndFilesWhateverTheMask)
{
    LinuxRig().SetWrapper({"sh", "-c", "umask 077; exec \"$0\""});
    RunPass();
    EXPECT_EQ(fs::status(Rig().DataFolder()).permissions(), fs::perms(0777));
    for (const fs::directory_entry& file : fs::directory_iterator(Rig().DataFolder())) {
        EXPECT_EQ(file.status().permissions(), fs::perms(0666)) << file.path();
    }
    ExpectOthersHealthy("");
}

// Runs the program as somebody whom file rights hold, which they do not hold the superuser.
TEST_F(SystemLinux, FileWithoutWriteRightStaysAsItIs)
{
    if (RunProcess({"id", "-u"}, {}, std::chrono::seconds(10)).out == "0\n") {
        LinuxRig().SetProgram(LinuxRig().CopyProgram());
        LinuxRig().SetWrapper({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
        for (const char* folder : {"", "common", "lock"}) {
            fs::permissions(LinuxRig().ScratchFolder() / folder, fs::perms(0777));
        }
        const std::string scratch = LinuxRig().ScratchFolder().string();
        ASSERT_EQ(RunProcess({"chown", "65534", scratch + "/run"}, {}, std::chrono::seconds(10)).exitCode, 0);
    }
    PutOldFile("kansai", 4);
    fs::permissions(DataFile("kansai", 4), fs::perms(0444));
    fs::permissions(Rig().DataFolder(), fs::perms(0777));
    const Pass pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    ExpectOldFile("kansai", 4);
    ExpectHealthyFile("kansai", 8);
    ExpectOthersHealthy("kansai");
}

// A limit on the size of files stands in for a full disk: writes fail after 50 bytes, inside the first record.
TEST_F(SystemLinux, WriteThatFailsCostsItsFileAlone)
{
    SetAnswer("tohoku", [](const Request&) { return platform::sim::HttpAnswer{.status = 503}; });
    LinuxRig().SetWrapper({"sh", "-c", "trap '' XFSZ; exec prlimit --fsize=50 \"$0\""});
    const Pass pass = RunPass("", kEveryLine);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_TRUE(ScopesBalance(pass));
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaGoolgeSiteConfig::OutData", "Leave"}), 21);
    for (const unsigned dataType : kDataTypes) {
        EXPECT_EQ(FileBytes(DataFile("tohoku", dataType)).size(), 32U); // a header alone still fits
    }
    EXPECT_LE(FileBytes(DataFile("tokyo", 1)).size(), 50U);
}

TEST_F(SystemLinux, StalledBodyEndsAfter30Seconds)
{
    SetAnswer("tokyo", [this](const Request& request) {
        platform::sim::HttpAnswer answer = Healthy().Answer(request);
        if (request.dataType == 8 && request.date == Dates().front()) {
            answer.fault = platform::sim::HttpFault::kStalledBody;
        }
        return answer;
    });
    const std::time_t before = std::time(nullptr);
    const Pass pass = RunPass();
    EXPECT_GE(std::time(nullptr) - before, 29);
    EXPECT_EQ(CountLines(pass, {"ERR", "CAmporaUpdater::UpdateOnePowerCompany", "Get Data Fail"}), 1);
    EXPECT_EQ(FileBytes(DataFile("tokyo", 8)).substr(32), Healthy().RecordBytes("tokyo", 8, {Dates().at(1)}));
    ExpectHealthyFile("tokyo", 4);
    ExpectHealthyFile("tokyo", 16);
    ExpectOthersHealthy("tokyo");
}

} // namespace
} // namespace system_test
