#include "platform/SettingsWriter.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/contract/linux/ScratchSession.h"
#include "platform/LastError.h"
#include "platform/linux/FileReplacement.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kKey[] = L"Software\\Test";
const SettingsValue kOne{REG_DWORD, {1, 0, 0, 0}};

// The file as it is with the value "N" and nothing else.
std::string FileWith(const std::string& root)
{
    return "Windows Registry Editor Version 5.00\n\n[" + root + "\\Software\\Test]\n\"N\"=dword:00000001\n";
}

class LinuxSettingsWriter : public testing::Test {
protected:
    static void Write(const fs::path& file, const std::string& text)
    {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    static std::string Read(const fs::path& file)
    {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }
    static BOOL Store(Hive hive, const wchar_t* name = L"N") { return StoreSettingsValue(hive, kKey, name, kOne); }
    // The code with which the file of the user cannot be changed.
    static DWORD Failure()
    {
        SetLastErrorCode(0);
        EXPECT_FALSE(Store(Hive::kPerUser));
        return GetLastErrorCode();
    }
    std::vector<fs::path> UserFiles() const
    {
        return {fs::directory_iterator(m_session.UserSettings().parent_path()), fs::directory_iterator()};
    }

    testing_support::CScratchSession m_session;
};

TEST_F(LinuxSettingsWriter, MakesFoldersAndFile)
{
    fs::remove_all(m_session.Folder() / "user");
    fs::remove_all(m_session.Folder() / "machine");
    EXPECT_TRUE(Store(Hive::kPerUser));
    EXPECT_TRUE(Store(Hive::kMachine));
    EXPECT_EQ(Read(m_session.UserSettings()), FileWith("HKEY_CURRENT_USER"));
    EXPECT_EQ(Read(m_session.MachineSettings()), FileWith("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ(fs::status(m_session.Folder() / "user").permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(m_session.MachineSettings()).permissions(), fs::perms(0644));
}

TEST_F(LinuxSettingsWriter, TheMachinesFileIsTheOneThatIsReadElseBelowTheLastFolder)
{
    const fs::path first = m_session.Folder() / "first/AmporaSrv/settings.reg";
    const fs::path last = m_session.Folder() / "last/AmporaSrv/settings.reg";
    const std::string folder = m_session.Folder();
    m_session.SetVariable("XDG_CONFIG_DIRS", (folder + "/first:relative:" + folder + "/last").c_str());
    EXPECT_EQ(SettingsPlace(Hive::kMachine, kKey), last.wstring());
    EXPECT_TRUE(Store(Hive::kMachine));
    EXPECT_TRUE(fs::exists(last));
    EXPECT_FALSE(fs::exists(first));
    Write(first, "");
    EXPECT_TRUE(Store(Hive::kMachine));
    EXPECT_EQ(Read(first), FileWith("HKEY_LOCAL_MACHINE"));
    m_session.SetVariable("XDG_CONFIG_DIRS", "relative");
    EXPECT_EQ(SettingsPlace(Hive::kMachine, kKey), L"");
    EXPECT_FALSE(Store(Hive::kMachine));
    EXPECT_FALSE(RemoveSettingsValue(Hive::kMachine, kKey, L"N"));
}

TEST_F(LinuxSettingsWriter, KeepsOwnerAndMode)
{
    Write(m_session.UserSettings(), "");
    ASSERT_EQ(::chmod(m_session.UserSettings().c_str(), 0640), 0);
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(::chown(m_session.UserSettings().c_str(), 65534, 65533), 0);
    }
    EXPECT_TRUE(Store(Hive::kPerUser));
    struct stat status = {};
    ASSERT_EQ(::stat(m_session.UserSettings().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(status.st_uid, isRoot ? 65534 : ::geteuid());
    EXPECT_EQ(status.st_gid, isRoot ? 65533 : ::getegid());
    std::thread([owner = status.st_uid] {
        testing_support::RefuseCall(SYS_fchown, EPERM, owner); // to whoever may not give files away
        EXPECT_TRUE(Store(Hive::kPerUser, L"M"));
    }).join();
    ASSERT_EQ(::stat(m_session.UserSettings().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, ::geteuid());
    EXPECT_EQ(status.st_gid, isRoot ? 65533 : ::getegid());
    std::thread([] {
        testing_support::RefuseCall(SYS_fchown, EPERM);
        EXPECT_TRUE(Store(Hive::kPerUser, L"O"));
        testing_support::RefuseCall(SYS_fchown, EIO);
        EXPECT_FALSE(Store(Hive::kPerUser, L"P"));
    }).join();
}

TEST_F(LinuxSettingsWriter, FollowsASymbolicLink)
{
    const fs::path target = m_session.Folder() / "elsewhere/mine.reg";
    Write(target, "; mine\n");
    fs::create_symlink(target, m_session.UserSettings());
    EXPECT_TRUE(Store(Hive::kPerUser));
    EXPECT_TRUE(fs::is_symlink(m_session.UserSettings()));
    EXPECT_THAT(Read(target), testing::StartsWith("; mine\n"));
    EXPECT_THAT(Read(target), testing::HasSubstr("\"N\"=dword:00000001\n"));
    fs::remove(target);
    EXPECT_EQ(Failure(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(fs::is_symlink(m_session.UserSettings())) << "a link to nothing is not replaced";
}

TEST_F(LinuxSettingsWriter, ReplacesTheFileAsAWholeAndLeavesNothingBeside)
{
    Write(m_session.UserSettings(), "; old\n");
    fs::create_hard_link(m_session.UserSettings(), m_session.Folder() / "reader"); // as one that has it open
    Write(m_session.UserSettings().string() + ".new", "left by a process that was killed");
    EXPECT_TRUE(Store(Hive::kPerUser));
    EXPECT_EQ(Read(m_session.Folder() / "reader"), "; old\n");
    EXPECT_THAT(UserFiles(), testing::ElementsAre(m_session.UserSettings()));
}

TEST_F(LinuxSettingsWriter, AFileThatCannotBeWrittenStaysAsItWas)
{
    const std::string old(5000, ';');
    Write(m_session.UserSettings(), old);
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit small = before;
    small.rlim_cur = 4096; // less than the new file has
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(Failure(), 223U);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(Read(m_session.UserSettings()), old);
    EXPECT_THAT(UserFiles(), testing::ElementsAre(m_session.UserSettings()));
}

TEST_F(LinuxSettingsWriter, WhatIsNoFileOfSettingsIsRefused)
{
    fs::create_directory(m_session.UserSettings());
    EXPECT_EQ(Failure(), ERROR_ACCESS_DENIED);
    fs::remove(m_session.UserSettings());
    ASSERT_EQ(::mkfifo(m_session.UserSettings().c_str(), 0600), 0);
    EXPECT_EQ(Failure(), ERROR_ACCESS_DENIED);
    fs::remove(m_session.UserSettings());
    Write(m_session.UserSettings(), "");
    fs::resize_file(m_session.UserSettings(), (16U << 20) + 1);
    EXPECT_EQ(Failure(), 223U);
    fs::resize_file(m_session.UserSettings(), 16U << 20);
    EXPECT_EQ(Failure(), ERROR_INVALID_PARAMETER) << "with the value it would be too long to be read";
    fs::remove_all(m_session.Folder() / "user");
    Write(m_session.Folder() / "user", "a file in the place of the folder");
    EXPECT_EQ(Failure(), ERROR_ALREADY_EXISTS);
}

TEST_F(LinuxSettingsWriter, AFileInPlaceOfTheFolderIsNotLocked)
{
    Write(m_session.Folder() / "file", "content");
    std::thread([this] {
        testing_support::RefuseCall(SYS_newfstatat, ENOENT); // as if it came only after the look at the path
        EXPECT_EQ(linux::CFileReplacement().Begin(m_session.Folder() / "file/settings.reg"), ENOTDIR);
    }).join();
}

TEST_F(LinuxSettingsWriter, AFolderThatAnotherProcessLocksIsWaitedForBriefly)
{
    const linux::CFileDescriptor folder(::open(m_session.UserSettings().parent_path().c_str(), O_RDONLY));
    ASSERT_EQ(::flock(folder.Get(), LOCK_EX), 0);
    EXPECT_EQ(Failure(), ERROR_SHARING_VIOLATION);
    ASSERT_EQ(::flock(folder.Get(), LOCK_UN), 0);
    EXPECT_TRUE(Store(Hive::kPerUser));
}

TEST_F(LinuxSettingsWriter, WritersAtTheSameTimeLoseNoChange)
{
    constexpr int kWriters = 4;
    constexpr int kValues = 25;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([writer] {
            for (int i = 0; i < kValues; ++i) {
                const std::wstring name = std::to_wstring(writer * kValues + i);
                // Who finds the others at work for too long is told so, and tries again.
                while (!Store(Hive::kPerUser, name.c_str())) {
                    ASSERT_EQ(GetLastErrorCode(), ERROR_SHARING_VIOLATION);
                }
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    for (int i = 0; i < kWriters * kValues; ++i) {
        SettingsValue value;
        EXPECT_TRUE(QuerySettingsValue(Hive::kPerUser, kKey, std::to_wstring(i).c_str(), &value)) << i;
    }
}

} // namespace
} // namespace platform
