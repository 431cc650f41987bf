#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/sim/Machine.h"

#include <gmock/gmock.h>

namespace platform::sim {
namespace {

using testing::ElementsAre;

class SimFiles : public testing::Test {
protected:
    SimFiles()
    {
        GetCommonAppDataFolder(&m_folder);
        m_path = m_folder + kPathSeparator + L"file.dat";
    }

    DWORD OpenErrorOf(const CString& path)
    {
        SetLastErrorCode(0);
        EXPECT_EQ(OpenForReplace(path, m_descriptor.get()), nullptr);
        return GetLastErrorCode();
    }

    // The code of the exception that a write throws, 0 when it does not.
    static DWORD WriteErrorOf(const OutputFilePtr& file, const std::string& bytes)
    {
        try {
            WriteFileBytes(file, bytes.data(), bytes.size());
            return 0;
        } catch (const CFileException& exception) {
            return exception.Code();
        }
    }

    CMachine m_machine;
    SecurityDescriptorPtr m_descriptor = InitializeDescriptor();
    CString m_folder;
    CString m_path;
};

TEST_F(SimFiles, CommonFolderIsMadeWhenAsked)
{
    EXPECT_EQ(m_folder, CString(L"C:") + kPathSeparator + L"ProgramData");
    EXPECT_TRUE(PathExists(m_folder));
    m_machine.RemoveFile(m_folder);
    EXPECT_FALSE(PathExists(m_folder));
    CString folder;
    EXPECT_TRUE(GetCommonAppDataFolder(&folder));
    EXPECT_TRUE(PathExists(m_folder));
    EXPECT_TRUE(m_machine.FilePaths().empty());
    m_machine.FailCall(Call::kGetCommonAppDataFolder, 1, 2);
    EXPECT_FALSE(GetCommonAppDataFolder(&folder));
    EXPECT_TRUE(folder.empty());
}

TEST_F(SimFiles, MakeFolderFailsWhenAskedTo)
{
    m_machine.FailCall(Call::kMakeFolder, 1, 5);
    EXPECT_FALSE(MakeFolder(m_path, m_descriptor.get()));
    EXPECT_EQ(GetLastErrorCode(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(MakeFolder(m_path, m_descriptor.get()));
    EXPECT_TRUE(m_machine.FindFile(m_path)->isFolder);
}

TEST_F(SimFiles, WritesAreAppendedAndTheirSizesKept)
{
    SetNullDacl(m_descriptor);
    OutputFilePtr file = OpenForReplace(m_path, m_descriptor.get());
    ASSERT_NE(file, nullptr);
    WriteFileBytes(file, "abc", 3);
    WriteFileBytes(file, "de", 2);
    const SimFile* found = m_machine.FindFile(m_path);
    EXPECT_THAT(found->bytes, ElementsAre('a', 'b', 'c', 'd', 'e'));
    EXPECT_THAT(found->writes, ElementsAre(3, 2));
    EXPECT_TRUE(found->nullDacl);
    EXPECT_THAT(m_machine.FilePaths(), ElementsAre(m_path));
    file.reset();
    file = OpenForReplace(m_path, m_descriptor.get());
    EXPECT_TRUE(found->bytes.empty());
    EXPECT_TRUE(found->writes.empty());
}

TEST_F(SimFiles, RightsOfAnExistingFileStay)
{
    m_machine.PutFile(m_path, {.nullDacl = true});
    EXPECT_NE(OpenForReplace(m_path, m_descriptor.get()), nullptr);
    EXPECT_TRUE(m_machine.FindFile(m_path)->nullDacl);
}

TEST_F(SimFiles, OpenFailsWithTheReasonAndLeavesTheFile)
{
    EXPECT_EQ(OpenErrorOf(m_path + kPathSeparator + L"below"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(OpenErrorOf(m_folder), ERROR_ACCESS_DENIED);
    m_machine.PutFile(m_path, {.bytes = {1}, .readOnly = true});
    EXPECT_EQ(OpenErrorOf(m_path), ERROR_ACCESS_DENIED);
    m_machine.PutFile(m_path, {.bytes = {1}, .heldOpen = true});
    EXPECT_EQ(OpenErrorOf(m_path), ERROR_SHARING_VIOLATION);
    m_machine.PutFile(m_path, {.bytes = {1}});
    m_machine.FailCall(Call::kOpenForReplace, 1, 1234);
    EXPECT_EQ(OpenErrorOf(m_path), 1234U);
    EXPECT_THAT(m_machine.FindFile(m_path)->bytes, ElementsAre(1));
}

TEST_F(SimFiles, FullDiskTakesWhatStillFits)
{
    m_machine.SetFreeBytes(5);
    const OutputFilePtr file = OpenForReplace(m_path, m_descriptor.get());
    WriteFileBytes(file, "abc", 3);
    EXPECT_EQ(WriteErrorOf(file, "def"), ERROR_DISK_FULL);
    EXPECT_THAT(m_machine.FindFile(m_path)->bytes, ElementsAre('a', 'b', 'c', 'd', 'e'));
}

TEST_F(SimFiles, InjectedWriteFaultWritesNothing)
{
    const OutputFilePtr file = OpenForReplace(m_path, m_descriptor.get());
    m_machine.FailCall(Call::kWriteFileBytes, 2, ERROR_WRITE_FAULT);
    WriteFileBytes(file, "abc", 3);
    EXPECT_EQ(WriteErrorOf(file, "def"), ERROR_WRITE_FAULT);
    EXPECT_EQ(m_machine.FindFile(m_path)->bytes.size(), 3U);
}

TEST_F(SimFiles, AFolderIsNotRead)
{
    std::vector<BYTE> bytes;
    EXPECT_EQ(ReadWholeFile(m_folder, 2, &bytes), ERROR_ACCESS_DENIED);
}

TEST_F(SimFiles, PutFileMakesItsFoldersAndRemoveFileTakesWhatIsBelow)
{
    const CString folder = m_folder + kPathSeparator + L"a";
    const CString file = folder + kPathSeparator + L"b" + kPathSeparator + L"c.dat";
    m_machine.PutFile(file, {});
    EXPECT_TRUE(m_machine.FindFile(folder)->isFolder);
    m_machine.PutFile(folder + L"2", {});
    m_machine.RemoveFile(folder);
    EXPECT_FALSE(PathExists(folder));
    EXPECT_FALSE(PathExists(file));
    EXPECT_TRUE(PathExists(folder + L"2"));
}

TEST_F(SimFiles, RootNeedsNoFolder)
{
    EXPECT_NE(OpenForReplace(CString(kPathSeparator) + L"file.dat", m_descriptor.get()), nullptr);
}

} // namespace
} // namespace platform::sim
