#include "format/DataFilePath.h"

#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/sim/Machine.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using platform::kPathSeparator;
using platform::sim::Call;
using platform::sim::CMachine;

CString ExpectedFolder() { return CString(L"C:") + kPathSeparator + L"ProgramData" + kPathSeparator + L"AmporaSrv"; }

class DataFilePath : public testing::Test {
protected:
    CString PathOf(int siteNumber, DWORD dataType)
    {
        wchar_t buffer[MAX_PATH];
        EXPECT_TRUE(GetFilePath(buffer, siteNumber, dataType));
        return buffer;
    }

    CMachine m_machine;
};

TEST_F(DataFilePath, FolderLiesBelowTheCommonOne) { EXPECT_EQ(DataFolder(), ExpectedFolder()); }

TEST_F(DataFilePath, FolderIsEmptyWhenTheCommonOneIsUnknown)
{
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(DataFolder(), L"");
}

TEST_F(DataFilePath, NameHasTheCompanysKeyAndTheDataTypeInUpperCaseHexadecimal)
{
    const struct {
        int siteNumber;
        DWORD dataType;
        const wchar_t* name;
    } files[] = {
        {3, 1, L"tokyo_00000001.dat"}, {3, 2, L"tokyo_00000002.dat"},   {2, 4, L"tohoku_00000004.dat"},
        {5, 8, L"chubu_00000008.dat"}, {6, 16, L"kansai_00000010.dat"}, {9, 0xABCDEF01, L"kyushu_ABCDEF01.dat"},
    };
    for (const auto& file : files) {
        EXPECT_EQ(PathOf(file.siteNumber, file.dataType), ExpectedFolder() + kPathSeparator + file.name);
    }
}

TEST_F(DataFilePath, SiteWithoutCompanyFailsWithNotSupported)
{
    for (const int siteNumber : {-1, 0, 1, 4, 7, 8, 10, 0x7FFFFFFF}) {
        wchar_t buffer[MAX_PATH] = L"untouched";
        platform::SetLastErrorCode(ERROR_SUCCESS);
        EXPECT_FALSE(GetFilePath(buffer, siteNumber, 1)) << siteNumber;
        EXPECT_EQ(platform::GetLastErrorCode(), 50U) << siteNumber;
        EXPECT_STREQ(buffer, L"untouched");
    }
}

TEST_F(DataFilePath, UnknownCommonFolderLeavesTheFolderPartEmpty)
{
    m_machine.FailEvery(Call::kGetCommonAppDataFolder, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(PathOf(3, 1), CString(kPathSeparator) + L"tokyo_00000001.dat");
}

TEST_F(DataFilePath, PathBeyondTheBufferIsCut)
{
    const CString folder = CString(L"C:") + kPathSeparator + CString(297, L'f');
    m_machine.SetCommonAppDataFolder(folder);
    EXPECT_EQ(PathOf(3, 1), folder.substr(0, 259));
}

TEST_F(DataFilePath, CreatesNothing)
{
    const std::vector<CString> before = m_machine.FilePaths();
    PathOf(3, 1);
    EXPECT_EQ(m_machine.FilePaths(), before);
}

TEST_F(DataFilePath, FileInAnyFolderIsNotCut)
{
    const CString folder(400, L'f');
    EXPECT_EQ(DataFileIn(folder, 2, 8), folder + kPathSeparator + L"tohoku_00000008.dat");
    EXPECT_EQ(DataFileIn(folder, 4, 8), L"");
}

TEST(CutPath, KeepsAPathThatFits)
{
    wchar_t buffer[MAX_PATH];
    const CString longest(MAX_PATH - 1, L'p');
    CutPath(longest, buffer);
    EXPECT_EQ(buffer, longest);
    CutPath(L"", buffer);
    EXPECT_STREQ(buffer, L"");
}

TEST(CutPath, CutsALongerPathToTheBuffer)
{
    wchar_t buffer[MAX_PATH];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    CutPath(CString(MAX_PATH - 2, L'p') + L"qrs", buffer);
    EXPECT_EQ(buffer, CString(MAX_PATH - 2, L'p') + L"q");
}

} // namespace
