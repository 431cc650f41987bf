// What the tests of watched folders share.
#pragma once

#include "platform/contract/ContractTest.h"
#include "platform/Files.h"
#include "platform/FolderWatch.h"
#include "platform/LastError.h"

namespace contract {

// A test with a folder that holds a file.
class FolderWatchContract : public ContractTest {
protected:
    void SetUp() override
    {
        ContractTest::SetUp();
        m_folder = ScratchFolder() + platform::kPathSeparator + L"data";
        m_path = m_folder + platform::kPathSeparator + L"tokyo_00000001.dat";
        m_other = m_folder + platform::kPathSeparator + L"tokyo_00000002.dat";
        m_security = platform::InitializeDescriptor();
        ASSERT_NE(m_security, nullptr);
        Make(m_folder);
        Write(m_path);
    }

    void Make(const CString& folder) { ASSERT_TRUE(platform::MakeFolder(folder, m_security.get())); }
    void Write(const CString& path)
    {
        const platform::OutputFilePtr file = platform::OpenForReplace(path, m_security.get());
        ASSERT_NE(file, nullptr);
        platform::WriteFileBytes(file, "content", 7);
    }
    // Takes the changes that there have been, however often the system tells of them.
    static void ExpectChanged(const platform::FolderWatchPtr& watch)
    {
        EXPECT_EQ(platform::WaitForFolderChange(watch, kLongMs), WAIT_OBJECT_0);
        int more = 0;
        while (platform::WaitForFolderChange(watch, 50) == WAIT_OBJECT_0) {
            ASSERT_LT(++more, 10);
        }
    }

    CString m_folder; // with the file m_path in it
    CString m_path;
    CString m_other;
    platform::SecurityDescriptorPtr m_security;
};

} // namespace contract
