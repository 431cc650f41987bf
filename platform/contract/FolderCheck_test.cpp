#include "platform/FolderCheck.h"

#include "platform/contract/ContractTest.h"
#include "platform/Files.h"

#include <gmock/gmock.h>

using namespace platform;

namespace contract {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class FolderCheckContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_mutexName = L"Global\\" + ObjectName(L"FolderCheck");
    }
    std::vector<CString> Find(const CString& folder) const { return FindUnusableFolders(folder, m_mutexName.c_str()); }

    CString m_mutexName;
};

TEST_F(FolderCheckContract, FolderThatIsThereOrCanBeMadeIsUsableAndNothingIsMade)
{
    const CString missing = ScratchFolder() + kPathSeparator + L"missing";
    EXPECT_THAT(Find(ScratchFolder()), IsEmpty());
    EXPECT_THAT(Find(missing), IsEmpty());
    EXPECT_FALSE(PathExists(missing));
    EXPECT_TRUE(FailsWith(ERROR_FILE_NOT_FOUND, [&] { return OpenNamedMutex(m_mutexName.c_str()) != nullptr; }));
    const WaitHandle mutex = CreateNamedMutex(m_mutexName.c_str(), FALSE, nullptr);
    EXPECT_THAT(Find(ScratchFolder()), IsEmpty());
}

TEST_F(FolderCheckContract, WhatPreventsStoringIsNamed)
{
    EXPECT_THAT(Find({}), testing::ElementsAre(HasSubstr(L"cannot store data")));
    const CString file = ScratchFolder() + kPathSeparator + L"file";
    EXPECT_NE(OpenForReplace(file, InitializeDescriptor().get()), nullptr);
    EXPECT_THAT(Find(file), testing::ElementsAre(HasSubstr(L"cannot write to the data folder " + file)));
}

} // namespace
} // namespace contract
