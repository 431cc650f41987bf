#include "platform/Files.h"

#include "platform/contract/linux/ScratchSession.h"
#include "platform/LastError.h"
#include "platform/Text.h"
#include "testing/ScratchFolder.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace platform {
namespace {

namespace fs = std::filesystem;
using testing_support::FileBytes;

class LinuxFiles : public testing::Test {
protected:
    LinuxFiles() : m_umask(::umask(077)), m_folder(m_session.Folder())
    {
        m_plain = InitializeDescriptor();
        m_openToAll = InitializeDescriptor();
        SetNullDacl(m_openToAll);
    }
    ~LinuxFiles() override { ::umask(m_umask); }

    static CString Wide(const fs::path& path) { return DecodeUtf8(path.string()); }
    static mode_t ModeOf(const fs::path& path)
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }
    static void Write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    OutputFilePtr Open(const fs::path& path) { return OpenForReplace(Wide(path), m_openToAll.get()); }
    void ExpectRefused(const fs::path& path)
    {
        SetLastErrorCode(0);
        EXPECT_EQ(Open(path), nullptr);
        EXPECT_EQ(GetLastErrorCode(), ERROR_ACCESS_DENIED);
        std::vector<BYTE> bytes = {1};
        EXPECT_EQ(ReadWholeFile(Wide(path), 100, &bytes), ERROR_ACCESS_DENIED);
        EXPECT_TRUE(bytes.empty());
    }

    testing_support::CScratchSession m_session;
    mode_t m_umask;
    fs::path m_folder;
    SecurityDescriptorPtr m_plain;
    SecurityDescriptorPtr m_openToAll;
};

TEST_F(LinuxFiles, ANullDaclOpensNewFilesWhateverTheUmask)
{
    ASSERT_NE(Open(m_folder / "file"), nullptr);
    EXPECT_EQ(ModeOf(m_folder / "file"), 0666U);
    ASSERT_TRUE(MakeFolder(Wide(m_folder / "folder"), m_openToAll.get()));
    EXPECT_EQ(ModeOf(m_folder / "folder"), 0777U);
}

TEST_F(LinuxFiles, TheDefaultRightsAreTheUsersAlone)
{
    ::umask(0);
    ASSERT_NE(OpenForReplace(Wide(m_folder / "file"), m_plain.get()), nullptr);
    EXPECT_EQ(ModeOf(m_folder / "file"), 0600U);
    ASSERT_TRUE(MakeFolder(Wide(m_folder / "folder"), m_plain.get()));
    EXPECT_EQ(ModeOf(m_folder / "folder"), 0700U);
}

TEST_F(LinuxFiles, AnExistingFileKeepsItsMode)
{
    Write(m_folder / "file", "old");
    ASSERT_EQ(::chmod((m_folder / "file").c_str(), 0640), 0);
    ASSERT_NE(Open(m_folder / "file"), nullptr);
    EXPECT_EQ(ModeOf(m_folder / "file"), 0640U);
    EXPECT_EQ(FileBytes(m_folder / "file"), "");
}

TEST_F(LinuxFiles, ASymbolicLinkIsNeverFollowed)
{
    Write(m_folder / "victim", "kept");
    fs::create_symlink(m_folder / "victim", m_folder / "link");
    ExpectRefused(m_folder / "link");
    EXPECT_EQ(FileBytes(m_folder / "victim"), "kept");

    fs::create_symlink(m_folder / "missing", m_folder / "dangling");
    ExpectRefused(m_folder / "dangling");
    EXPECT_FALSE(fs::exists(m_folder / "missing"));
}

TEST_F(LinuxFiles, AFileWithASecondNameIsNotWrittenTo)
{
    // Symptom: a hard link in the folder of the data files, where everybody may make one, let any file be overwritten.
    Write(m_folder / "victim", "kept");
    fs::create_hard_link(m_folder / "victim", m_folder / "link");
    EXPECT_EQ(Open(m_folder / "link"), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(FileBytes(m_folder / "victim"), "kept");
    fs::remove(m_folder / "victim");
    EXPECT_NE(Open(m_folder / "link"), nullptr);
}

TEST_F(LinuxFiles, OnlyRegularFilesAreOpened)
{
    ASSERT_EQ(::mkfifo((m_folder / "fifo").c_str(), 0600), 0);
    ExpectRefused(m_folder / "fifo");
    fs::create_directory(m_folder / "folder");
    ExpectRefused(m_folder / "folder");
    ExpectRefused("/dev/null");
}

TEST_F(LinuxFiles, AnythingExistsThatHasThePath)
{
    fs::create_symlink(m_folder / "missing", m_folder / "dangling");
    EXPECT_TRUE(PathExists(Wide(m_folder / "dangling")));
    EXPECT_FALSE(PathExists(Wide(m_folder / "missing")));
}

TEST_F(LinuxFiles, APathWithAZeroNamesNoFile)
{
    Write(m_folder / "file", "kept");
    const CString path = Wide(m_folder / "file") + CString(1, L'\0') + L"x";
    EXPECT_FALSE(PathExists(path));
    EXPECT_EQ(OpenForReplace(path, m_plain.get()), nullptr);
    EXPECT_FALSE(MakeFolder(path, m_plain.get()));
    std::vector<BYTE> bytes;
    EXPECT_NE(ReadWholeFile(path, 100, &bytes), ERROR_SUCCESS);
    EXPECT_EQ(FileBytes(m_folder / "file"), "kept");
}

TEST_F(LinuxFiles, AShortWriteIsAFullDisk)
{
    // Symptom: the file size limit ended the program (SIGXFSZ).
    const OutputFilePtr file = Open(m_folder / "file");
    ASSERT_NE(file, nullptr);
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit limit = before;
    limit.rlim_cur = 10;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::vector<DWORD> codes;
    for (int i = 0; i < 3; ++i) {
        try {
            WriteFileBytes(file, "12345678", 8);
            codes.push_back(ERROR_SUCCESS);
        } catch (const CFileException& exception) {
            codes.push_back(exception.Code());
        }
    }
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    // All of it, a part of it, and none of it because the file is as long as it may be.
    EXPECT_THAT(codes, testing::ElementsAre(ERROR_SUCCESS, ERROR_DISK_FULL, ERROR_WRITE_FAULT));
    EXPECT_EQ(FileBytes(m_folder / "file"), "1234567812");
}

TEST_F(LinuxFiles, TheCommonFolderComesFromTheEnvironment)
{
    const auto query = [this](const char* variable) {
        m_session.SetVariable("AMPORA_COMMON_APPDATA", variable);
        CString folder = L"before";
        const BOOL known = GetCommonAppDataFolder(&folder);
        EXPECT_EQ(known, folder.empty() ? FALSE : TRUE);
        return folder;
    };
    EXPECT_EQ(query(nullptr), L"/var/lib");
    EXPECT_EQ(query(""), L"/var/lib");
    EXPECT_EQ(query((m_folder / "new").c_str()), Wide(m_folder / "new"));
    EXPECT_TRUE(fs::is_directory(m_folder / "new"));
    EXPECT_EQ(query((m_folder.string() + "/new//").c_str()), Wide(m_folder / "new"));
    EXPECT_EQ(query("new"), L"") << "relative";
    EXPECT_EQ(query((m_folder / "one" / "two").c_str()), L"") << "one level only";
    Write(m_folder / "file", "");
    EXPECT_EQ(query((m_folder / "file").c_str()), L"") << "no folder";
}

TEST_F(LinuxFiles, TheCommonFolderMayBeMadeByTwoAtTheSameTime)
{
    m_session.SetVariable("AMPORA_COMMON_APPDATA", (m_folder / "new").c_str());
    for (int i = 0; i < 50; ++i) { // one of the first few is enough on two processors
        std::atomic<int> absent = 2;
        const auto make = [&absent] {
            CString folder;
            for (--absent; absent > 0;) {
                std::this_thread::yield();
            }
            EXPECT_TRUE(GetCommonAppDataFolder(&folder));
        };
        std::thread other(make);
        make();
        other.join();
        fs::remove(m_folder / "new");
    }
}

} // namespace
} // namespace platform
