// What only the Linux program can meet: links, modes, limits and rights of its file system.
#include "testing/system/SystemTest.h"

#include <filesystem>
#include <fstream>

namespace system_test {
namespace {

namespace fs = std::filesystem;
using testing_support::TraceLine;

constexpr const char* kGetSaveFolder = "CAmporaGoolgeSiteConfig::GetSaveFolderPath";
constexpr int kAllFiles = 21;
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

    // From here on the program runs as somebody whom file rights hold, which they do not hold the superuser. The rig's
    // own folders are open to everybody then.
    void RunAsNobody()
    {
        if (RunProcess({"id", "-u"}, {}, std::chrono::seconds(10)).out != "0\n") {
            return;
        }
        LinuxRig().RunAs(65534);
    }

    // A pass while nothing can be made in this folder.
    CopyOutput RunWithReadOnlyFolder(const fs::path& folder)
    {
        fs::permissions(folder, fs::perms(0555));
        CopyOutput pass = RunPass();
        fs::permissions(folder, fs::perms(0777)); // so that it can be deleted
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(CountLines(pass, kUpdated), 1);
        return pass;
    }
};

TEST_F(SystemLinux, LinkInPlaceOfAFileIsNotFollowed)
{
    const fs::path target = WriteScratch("precious", "precious");
    fs::create_directories(Rig().DataFolder());
    fs::create_symlink(target, DataFile("tokyo", 1));
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    EXPECT_EQ(FileBytes(target), "precious");
    EXPECT_TRUE(fs::is_symlink(DataFile("tokyo", 1)));
    ExpectOthersHealthy("tokyo", 1);
}

TEST_F(SystemLinux, LinkToNothingMakesNothing)
{
    const fs::path target = LinuxRig().ScratchFolder() / "nothing";
    fs::create_directories(Rig().DataFolder());
    fs::create_symlink(target, DataFile("tokyo", 1));
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    EXPECT_FALSE(fs::exists(target));
    ExpectOthersHealthy("tokyo", 1);
}

TEST_F(SystemLinux, PipeInPlaceOfAFileDoesNotHoldThePassUp)
{
    fs::create_directories(Rig().DataFolder());
    ASSERT_EQ(RunProcess({"mkfifo", DataFile("tokyo", 1).string()}, {}, std::chrono::seconds(10)).exitCode, 0);
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    ExpectOthersHealthy("tokyo", 1);
}

TEST_F(SystemLinux, CommonFolderThatCannotBeMadeKeepsEveryFileFromBeingWritten)
{
    const fs::path file = WriteScratch("file", "in the way");
    LinuxRig().SetCommonFolder(file / "common");
    const CopyOutput pass = RunPass();
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(CountLines(pass, {"ERR", kGetSaveFolder, "Get Common App Folder Fail."}), kAllFiles);
    for (const TestCompany& company : kTestCompanies) {
        EXPECT_EQ(CountLines(pass, {"ERR", company.className + "::OutData", "Save Folder Path Get Fail."}),
                  static_cast<int>(KindsOf(company.word).size()));
    }
    EXPECT_EQ(FileBytes(file), "in the way");
}

TEST_F(SystemLinux, EverybodyMayUseFolderAndFilesWhateverTheMask)
{
    LinuxRig().SetWrapper({"sh", "-c", "umask 077; exec \"$0\" \"$@\""});
    RunPass();
    EXPECT_EQ(fs::status(Rig().DataFolder()).permissions(), fs::perms(0777));
    for (const fs::directory_entry& file : fs::directory_iterator(Rig().DataFolder())) {
        EXPECT_EQ(file.status().permissions(), fs::perms(0666)) << file.path();
    }
    ExpectOthersHealthy("");
}

TEST_F(SystemLinux, FileWithoutWriteRightStaysAsItIs)
{
    RunAsNobody();
    PutOldFile("kansai", 4);
    fs::permissions(DataFile("kansai", 4), fs::perms(0444));
    fs::permissions(Rig().DataFolder(), fs::perms(0777));
    const CopyOutput pass = RunPass();
    EXPECT_EQ(CountLines(pass, kOpenFail), 1);
    ExpectOldFile("kansai", 4);
    ExpectOthersHealthy("kansai", 4);
}

TEST_F(SystemLinux, SaveFolderThatCannotBeMadeKeepsEveryFileFromBeingWritten)
{
    RunAsNobody();
    const CopyOutput pass = RunWithReadOnlyFolder(Rig().CommonFolder());
    EXPECT_EQ(CountLines(pass, {"WAR", kGetSaveFolder, "Save Folder Create Fail"}), kAllFiles);
    EXPECT_EQ(CountLines(pass, kOpenFail), kAllFiles);
    EXPECT_FALSE(fs::exists(Rig().DataFolder()));
}

TEST_F(SystemLinux, ReadOnlyFolderCostsTheFilesThatAreNotThere)
{
    RunAsNobody();
    PutOldFile("kansai", 4);
    fs::permissions(DataFile("kansai", 4), fs::perms(0666));
    const CopyOutput pass = RunWithReadOnlyFolder(Rig().DataFolder());
    EXPECT_EQ(CountLines(pass, kOpenFail), kAllFiles - 1);
    ExpectHealthyFile("kansai", 4);
    EXPECT_EQ(std::distance(fs::directory_iterator(Rig().DataFolder()), {}), 1);
}

// A limit on the size of files stands in for a full disk: writes fail after 50 bytes, 18 of them in the first record.
TEST_F(SystemLinux, WriteThatFailsCostsItsFileAlone)
{
    SetAnswer("tohoku", [](const Request&) { return testing_support::HttpAnswer{.status = 503}; });
    LinuxRig().SetWrapper({"sh", "-c", "trap '' XFSZ; exec prlimit --fsize=50 \"$0\" \"$@\""});
    const CopyOutput pass = RunPass("", kEveryLine);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_TRUE(ScopesBalance(pass));
    EXPECT_EQ(CountLines(pass, kUpdated), 1);
    EXPECT_EQ(CountLines(pass, {"TRA", "CAmporaGoolgeSiteConfig::OutData", "Leave"}), 21);
    EXPECT_EQ(CountLines(pass, kOpenFail), 0);
    for (const TestCompany& company : kTestCompanies) {
        for (const unsigned dataType : KindsOf(company.word)) {
            if (company.word == "tohoku") {
                ExpectEmptyFile(company.word, dataType); // a header alone still fits
                continue;
            }
            const std::string records = Healthy().RecordBytes(company.word, dataType, Dates());
            const std::string bytes = FileBytes(DataFile(company.word, dataType));
            EXPECT_EQ(bytes.substr(0, 16), HeaderBytes(dataType, records.size() / 40)) << bytes.size();
            EXPECT_EQ(Records(company.word, dataType), records.substr(0, 18));
        }
    }
}

TEST_F(SystemLinux, StalledBodyEndsAfter30Seconds)
{
    SetAnswer("tokyo", [this](const Request& request) {
        testing_support::HttpAnswer answer = Healthy().Answer(request);
        if (request.dataType == 8 && request.date == Dates().front()) {
            answer.fault = testing_support::HttpFault::kStalledBody;
        }
        return answer;
    });
    const std::time_t before = std::time(nullptr);
    const CopyOutput pass = RunPass();
    EXPECT_GE(std::time(nullptr) - before, 29);
    EXPECT_EQ(CountLines(pass, {"WAR", "CAmporaHttpClient::GetData", "Exception!"}), 1);
    EXPECT_EQ(CountLines(pass, {"ERR", "CAmporaUpdater::UpdateOnePowerCompany", "Get Data Fail"}), 1);
    EXPECT_EQ(Records("tokyo", 8), Healthy().RecordBytes("tokyo", 8, {Dates().at(1)}));
    ExpectOthersHealthy("tokyo", 8);
}

} // namespace
} // namespace system_test
