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

constexpr int kSitesWithoutCompany[] = {-1, 0, 1, 4, 7, 8, 10, 11, 259, 0x7FFFFFFF};

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

TEST_F(DataFilePath, EachDataTypeHasAFileOfItsOwn)
{
    const CString stem = ExpectedFolder() + kPathSeparator + L"tokyo_";
    EXPECT_EQ(PathOf(3, 1), stem + L"00000001.dat");
    EXPECT_EQ(PathOf(3, 2), stem + L"00000002.dat");
    EXPECT_EQ(PathOf(3, 4), stem + L"00000004.dat");
    EXPECT_EQ(PathOf(3, 8), stem + L"00000008.dat");
}

TEST_F(DataFilePath, DataType16IsWrittenInHexadecimal)
{
    EXPECT_EQ(PathOf(6, 16), ExpectedFolder() + kPathSeparator + L"kansai_00000010.dat");
}

TEST_F(DataFilePath, HexadecimalDigitsAreUpperCase)
{
    EXPECT_EQ(PathOf(9, 0xABCDEF01), ExpectedFolder() + kPathSeparator + L"kyushu_ABCDEF01.dat");
}

TEST_F(DataFilePath, SiteWithoutCompanyFailsWithNotSupported)
{
    for (const int siteNumber : kSitesWithoutCompany) {
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
