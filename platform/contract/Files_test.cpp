#include "platform/Files.h"

#include "platform/contract/ContractTest.h"
#include "platform/LastError.h"
#include "testing/FailingMemory.h"

#include <string>

using namespace platform;

namespace contract {
namespace {

class FilesContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_folder = ScratchFolder();
        m_path = In(L"tokyo_00000001.dat");
        m_openToAll = InitializeDescriptor();
        ASSERT_NE(m_openToAll, nullptr);
        ASSERT_TRUE(SetNullDacl(m_openToAll));
    }

    CString In(const CString& name) const { return m_folder + kPathSeparator + name; }
    OutputFilePtr Open(const CString& path) { return OpenForReplace(path, m_openToAll.get()); }
    void Write(const CString& path, const std::string& content)
    {
        const OutputFilePtr file = Open(path);
        ASSERT_NE(file, nullptr);
        WriteFileBytes(file, content.data(), content.size());
    }
    static void ExpectContent(const CString& path, const std::string& content)
    {
        std::vector<BYTE> bytes;
        ASSERT_EQ(ReadWholeFile(path, 1U << 24, &bytes), 0U);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), content);
    }
    static void ExpectUnreadable(const CString& path, DWORD code)
    {
        std::vector<BYTE> bytes = {1, 2, 3};
        EXPECT_EQ(ReadWholeFile(path, 100, &bytes), code);
        EXPECT_TRUE(bytes.empty());
    }

    CString m_folder;
    CString m_path;
    SecurityDescriptorPtr m_openToAll;
};

TEST_F(FilesContract, TheCommonFolderIsThereAfterTheCall)
{
    CString folder = L"before";
    ASSERT_TRUE(GetCommonAppDataFolder(&folder));
    EXPECT_EQ(folder, CommonAppDataFolder());
    EXPECT_TRUE(PathExists(folder));
    EXPECT_NE(folder.back(), kPathSeparator[0]);
    CString again;
    EXPECT_TRUE(GetCommonAppDataFolder(&again));
    EXPECT_EQ(again, folder);
}

TEST_F(FilesContract, APathExistsForFilesAndFolders)
{
    EXPECT_TRUE(PathExists(m_folder));
    EXPECT_FALSE(PathExists(m_path));
    EXPECT_FALSE(PathExists(In(L"missing") + kPathSeparator + L"file"));
    Write(m_path, "");
    EXPECT_TRUE(PathExists(m_path));
    EXPECT_TRUE(MakeFolder(In(L"folder"), m_openToAll.get()));
    EXPECT_TRUE(PathExists(In(L"folder")));
}

TEST_F(FilesContract, LastWriteIsKnownWithoutOpeningTheFile)
{
    FILETIME first = {};
    EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [&] { return QueryLastWrite(m_path, &first); }));
    EXPECT_TRUE(FailsWith(ERROR_PATH_NOT_FOUND,
                          [&] { return QueryLastWrite(In(L"none") + kPathSeparator + L"file", &first); }));
    Write(m_path, "x");
    EXPECT_TRUE(QueryLastWrite(m_path, &first));
    FILETIME again = {};
    LetPass(50);
    EXPECT_TRUE(QueryLastWrite(m_path, &again));
    EXPECT_EQ(CountOf(again), CountOf(first));
    const OutputFilePtr file = Open(m_path);
    EXPECT_TRUE(QueryLastWrite(m_path, &again)) << "while a writer has it";
    WriteFileBytes(file, "y", 1);
    EXPECT_TRUE(QueryLastWrite(m_path, &again));
    EXPECT_GT(CountOf(again), CountOf(first));
}

TEST_F(FilesContract, MakeFolderMakesOneLevel)
{
    EXPECT_TRUE(FailsWith(ERROR_PATH_NOT_FOUND,
                          [&] { return MakeFolder(In(L"one") + kPathSeparator + L"two", m_openToAll.get()); }));
    EXPECT_FALSE(PathExists(In(L"one")));
    EXPECT_TRUE(MakeFolder(In(L"one"), m_openToAll.get()));
    EXPECT_TRUE(MakeFolder(In(L"one") + kPathSeparator + L"two", m_openToAll.get()));
    Write(In(L"one") + kPathSeparator + L"two" + kPathSeparator + L"file", "x");
}

TEST_F(FilesContract, MakeFolderFailsWhenThePathExists)
{
    EXPECT_TRUE(MakeFolder(In(L"folder"), m_openToAll.get()));
    Write(m_path, "x");
    for (const CString& path : {In(L"folder"), m_path}) {
        EXPECT_TRUE(FailsWith(ERROR_ALREADY_EXISTS, [&] { return MakeFolder(path, m_openToAll.get()); }));
    }
}

TEST_F(FilesContract, ANullDaclOpensNewFilesAndFoldersToAll)
{
    EXPECT_TRUE(MakeFolder(In(L"folder"), m_openToAll.get()));
    EXPECT_TRUE(IsPathOpenToAll(In(L"folder")));
    Write(m_path, "x");
    EXPECT_TRUE(IsPathOpenToAll(m_path));
}

TEST_F(FilesContract, OpenForReplaceMakesAnEmptyFile)
{
    EXPECT_NE(Open(m_path), nullptr);
    ExpectContent(m_path, "");
}

TEST_F(FilesContract, WritesAreAppended)
{
    {
        const OutputFilePtr file = Open(m_path);
        ASSERT_NE(file, nullptr);
        WriteFileBytes(file, "head", 4);
        WriteFileBytes(file, "", 0);
        WriteFileBytes(file, "re\0cord", 7);
    }
    ExpectContent(m_path, std::string("headre\0cord", 11));
}

TEST_F(FilesContract, OpenForReplaceEmptiesAnExistingFile)
{
    Write(m_path, "a longer content");
    Write(m_path, "short");
    ExpectContent(m_path, "short");
    Open(m_path).reset();
    ExpectContent(m_path, "");
}

TEST_F(FilesContract, TheDefaultRightsAllowOurOwnUse)
{
    const SecurityDescriptorPtr plain = InitializeDescriptor();
    ASSERT_NE(plain, nullptr);
    EXPECT_TRUE(MakeFolder(In(L"folder"), plain.get()));
    OutputFilePtr file = OpenForReplace(In(L"folder") + kPathSeparator + L"file", plain.get());
    ASSERT_NE(file, nullptr);
    WriteFileBytes(file, "x", 1);
    file.reset();
    ExpectContent(In(L"folder") + kPathSeparator + L"file", "x");
}

TEST_F(FilesContract, AFileOpenForWritingIsSharedWithNobody)
{
    OutputFilePtr file = Open(m_path);
    ASSERT_NE(file, nullptr);
    WriteFileBytes(file, "kept", 4);
    EXPECT_TRUE(FailsWith(ERROR_SHARING_VIOLATION, [&] { return Open(m_path); }));
    ExpectUnreadable(m_path, ERROR_SHARING_VIOLATION);

    const OutputFilePtr copy = file;
    file.reset();
    EXPECT_EQ(Open(m_path), nullptr) << "a copy holds it";
    WriteFileBytes(copy, " too", 4);
}

TEST_F(FilesContract, TheLastReferenceClosesTheFile)
{
    OutputFilePtr file = Open(m_path);
    WriteFileBytes(file, "kept", 4);
    file.reset();
    ExpectContent(m_path, "kept");
    EXPECT_NE(Open(m_path), nullptr);
}

TEST_F(FilesContract, AFileThatAnotherHasOpenIsLeftUnchanged)
{
    Write(m_path, "kept");
    HoldFileOpen(m_path);
    EXPECT_TRUE(FailsWith(ERROR_SHARING_VIOLATION, [&] { return Open(m_path); }));
    LetGoOfFile(m_path);
    ExpectContent(m_path, "kept");
    Write(m_path, "new");
    ExpectContent(m_path, "new");
}

TEST_F(FilesContract, ReadersShareAFile)
{
    Write(m_path, "shared");
    HoldFileOpen(m_path);
    ExpectContent(m_path, "shared");
    LetGoOfFile(m_path);
}

// A file was empty after the program had run out of memory just when it opened it.
TEST_F(FilesContract, OpenForReplaceWithoutMemoryLeavesTheFileAsItWas)
{
    Write(m_path, "old");
    OutputFilePtr file;
    for (unsigned nth = 1; file == nullptr; ++nth) {
        ExpectContent(m_path, "old");
        const testing_support::CFailingMemory memory(nth);
        try {
            file = Open(m_path);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(memory.HasFailed());
        }
    }
    file.reset();
    ExpectContent(m_path, "");
}

TEST_F(FilesContract, OpenForReplaceFailsWithoutItsFolder)
{
    EXPECT_TRUE(FailsWith(ERROR_PATH_NOT_FOUND, [&] { return Open(In(L"missing") + kPathSeparator + L"file"); }));
}

TEST_F(FilesContract, OpenForReplaceFailsForAFolder)
{
    EXPECT_TRUE(MakeFolder(In(L"folder"), m_openToAll.get()));
    SetLastErrorCode(0);
    EXPECT_EQ(Open(In(L"folder")), nullptr);
    EXPECT_FALSE(LastErrorIs(ERROR_SUCCESS));
}

TEST_F(FilesContract, ReadWholeFileTellsWhatIsMissing)
{
    ExpectUnreadable(m_path, ERROR_FILE_NOT_FOUND);
    ExpectUnreadable(In(L"missing") + kPathSeparator + L"file", ERROR_PATH_NOT_FOUND);
}

TEST_F(FilesContract, ReadWholeFileStopsAtItsLimit)
{
    Write(m_path, "0123456789");
    for (const std::size_t maxBytes : {0U, 1U, 9U, 10U, 11U}) {
        std::vector<BYTE> bytes;
        EXPECT_EQ(ReadWholeFile(m_path, maxBytes, &bytes), 0U);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), std::string("0123456789").substr(0, maxBytes));
    }
}

TEST_F(FilesContract, ALargeFileIsReadWhole)
{
    std::string content;
    for (int i = 0; content.size() < 3000000; ++i) {
        content += std::to_string(i);
    }
    Write(m_path, content);
    std::vector<BYTE> bytes;
    ASSERT_EQ(ReadWholeFile(m_path, content.size(), &bytes), 0U);
    EXPECT_TRUE(std::string(bytes.begin(), bytes.end()) == content);
}

TEST_F(FilesContract, PathsMayHaveAnyCharacters)
{
    const CString path = In(L"\u6771\u4EAC \u00E9 \U0001F600.dat");
    EXPECT_FALSE(PathExists(path));
    Write(path, "x");
    EXPECT_TRUE(PathExists(path));
    ExpectContent(path, "x");
}

TEST_F(FilesContract, AnyThreadMayWrite)
{
    CRunningThread([&] { Write(m_path, "x"); }).Join();
    ExpectContent(m_path, "x");
}

} // namespace
} // namespace contract
