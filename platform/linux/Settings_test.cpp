#include "platform/Settings.h"

#include "platform/contract/linux/ScratchSession.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace platform {
namespace {

// Where the settings files are and which of them is read.
class LinuxSettings : public testing::Test {
protected:
    static void Write(const std::filesystem::path& file, const std::string& text)
    {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    static std::string UserFile(int number)
    {
        return "[HKEY_CURRENT_USER\\Software\\Test]\n\"N\"=dword:" + std::to_string(number) + "\n";
    }
    static std::string MachineFile(int number)
    {
        return "[HKEY_LOCAL_MACHINE\\Software\\Test]\n\"N\"=dword:" + std::to_string(number) + "\n";
    }
    // The value "N" below the hive's key "Software\Test", or another one; -1 for none.
    static int Number(Hive hive, const CString& key = L"Software\\Test", const wchar_t* name = L"N")
    {
        SettingsValue value;
        return QuerySettingsValue(hive, key, name, &value) ? value.data.at(0) : -1;
    }

    testing_support::CScratchSession m_session;
};

TEST_F(LinuxSettings, AFileHoldsKeysOfItsOwnHiveOnly)
{
    Write(m_session.UserSettings(), UserFile(1) + MachineFile(2));
    EXPECT_EQ(Number(Hive::kPerUser), 1);
    EXPECT_EQ(Number(Hive::kMachine), -1);
    Write(m_session.MachineSettings(), UserFile(3) + MachineFile(4));
    EXPECT_EQ(Number(Hive::kPerUser), 1);
    EXPECT_EQ(Number(Hive::kMachine), 4);
}

TEST_F(LinuxSettings, ConfigHomeDefaultsToTheHomeFolder)
{
    Write(m_session.Folder() / "home/.config/AmporaSrv/settings.reg", UserFile(5));
    m_session.SetVariable("HOME", (m_session.Folder() / "home").c_str());
    EXPECT_EQ(Number(Hive::kPerUser), -1);
    m_session.SetVariable("XDG_CONFIG_HOME", nullptr);
    EXPECT_EQ(Number(Hive::kPerUser), 5);
    m_session.SetVariable("XDG_CONFIG_HOME", "");
    EXPECT_EQ(Number(Hive::kPerUser), 5);
    m_session.SetVariable("HOME", nullptr);
    EXPECT_EQ(Number(Hive::kPerUser), -1);
}

TEST_F(LinuxSettings, TheFirstConfigFolderThatHasTheFileCounts)
{
    // Symptom: on a desktop that puts a folder of its own in front, the machine's settings were not found.
    Write(m_session.Folder() / "first/AmporaSrv/settings.reg", MachineFile(6));
    Write(m_session.MachineSettings(), MachineFile(7));
    const std::string first = m_session.Folder() / "first";
    const std::string second = m_session.Folder() / "machine";
    m_session.SetVariable("XDG_CONFIG_DIRS",
                          ("/missing:relative::" + m_session.Folder().string() + ":" + second).c_str());
    EXPECT_EQ(Number(Hive::kMachine), 7);
    m_session.SetVariable("XDG_CONFIG_DIRS", (first + ":" + second).c_str());
    EXPECT_EQ(Number(Hive::kMachine), 6);
    m_session.SetVariable("XDG_CONFIG_DIRS", (second + "/:" + first).c_str());
    EXPECT_EQ(Number(Hive::kMachine), 7);
    std::filesystem::remove(m_session.MachineSettings());
    std::filesystem::create_directory(m_session.MachineSettings());
    EXPECT_EQ(Number(Hive::kMachine), -1) << "but it cannot be read";
}

TEST_F(LinuxSettings, ARelativeFolderCountsAsMissing)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_session.Folder());
    Write(m_session.UserSettings(), UserFile(1));
    Write(m_session.MachineSettings(), MachineFile(2));
    m_session.SetVariable("XDG_CONFIG_HOME", "user");
    m_session.SetVariable("XDG_CONFIG_DIRS", "machine:/etc/xdg");
    EXPECT_EQ(Number(Hive::kPerUser), -1);
    EXPECT_EQ(Number(Hive::kMachine), -1);
    std::filesystem::current_path(before);
}

TEST_F(LinuxSettings, AFileMayBeASymbolicLink)
{
    Write(m_session.Folder() / "elsewhere.reg", UserFile(8));
    std::filesystem::create_symlink(m_session.Folder() / "elsewhere.reg", m_session.UserSettings());
    EXPECT_EQ(Number(Hive::kPerUser), 8);
}

TEST_F(LinuxSettings, AFileWhoseContentIsKeptGivesWayToAnother)
{
    // Old enough to be kept, as no file that a test writes is.
    std::filesystem::create_symlink(AMPORA_SOURCE_DIR "/fuzz/seeds/settings/values.reg", m_session.MachineSettings());
    const CString key = L"Software\\Halvex\\AmporaSrv";
    EXPECT_EQ(Number(Hive::kMachine, key, L"Enable"), 1);
    EXPECT_EQ(Number(Hive::kMachine, key, L"enable"), 1);
    EXPECT_EQ(Number(Hive::kMachine, key, L"Missing"), -1);
    std::filesystem::remove(m_session.MachineSettings());
    Write(m_session.MachineSettings(), "[HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv]\n\"Enable\"=dword:2\n");
    EXPECT_EQ(Number(Hive::kMachine, key, L"Enable"), 2);
    std::filesystem::remove(m_session.MachineSettings());
    EXPECT_EQ(Number(Hive::kMachine, key, L"Enable"), -1);
}

TEST_F(LinuxSettings, WhatIsNoRegularFileCountsAsMissing)
{
    std::filesystem::create_directory(m_session.UserSettings());
    ASSERT_EQ(::mkfifo(m_session.MachineSettings().c_str(), 0600), 0);
    EXPECT_EQ(Number(Hive::kPerUser), -1);
    EXPECT_EQ(Number(Hive::kMachine), -1) << "and is not waited for";
}

TEST_F(LinuxSettings, AFileTooLongCountsAsMissing)
{
    constexpr std::uintmax_t kLimit = 16U << 20;
    Write(m_session.UserSettings(), UserFile(1) + ";");
    std::filesystem::resize_file(m_session.UserSettings(), kLimit);
    EXPECT_EQ(Number(Hive::kPerUser), 1);
    std::filesystem::resize_file(m_session.UserSettings(), kLimit + 1);
    EXPECT_EQ(Number(Hive::kPerUser), -1);
}

} // namespace
} // namespace platform
