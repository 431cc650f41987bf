// What goes wrong with files. Only for backends that can be made to fail.
#include "platform/contract/ContractTest.h"
#include "platform/Files.h"

using namespace platform;

namespace contract {
namespace {

class FileFaultsContract : public ContractTest {};

TEST_F(FileFaultsContract, AnUnknownCommonFolderGivesFalseAndEmptiesTheText)
{
    ForgetCommonAppDataFolder();
    CString folder = L"before";
    EXPECT_FALSE(GetCommonAppDataFolder(&folder));
    EXPECT_EQ(folder, L"");
}

TEST_F(FileFaultsContract, AWriteThatDoesNotFitThrowsTheCode)
{
    const CString path = ScratchFolder() + kPathSeparator + L"file";
    const SecurityDescriptorPtr security = InitializeDescriptor();
    ASSERT_NE(security, nullptr);
    LimitFileSize(10);
    const OutputFilePtr file = OpenForReplace(path, security.get());
    ASSERT_NE(file, nullptr);
    WriteFileBytes(file, "12345678", 8);
    try {
        WriteFileBytes(file, "12345678", 8);
        FAIL() << "the write succeeded";
    } catch (const CFileException& exception) {
        EXPECT_NE(exception.Code(), 0U);
    }
}

} // namespace
} // namespace contract
