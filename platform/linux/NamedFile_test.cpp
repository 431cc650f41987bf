#include "platform/linux/NamedFile.h"

#include "platform/contract/linux/RefusedCall.h"
#include "platform/contract/linux/ScratchSession.h"
#include "platform/LastError.h"
#include "platform/linux/SessionFolder.h"
#include "platform/Sync.h"
#include "testing/ScratchFolder.h"

#include <cerrno>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>

namespace platform::linux {
namespace {

using testing_support::CScratchSession;

namespace fs = std::filesystem;

// The files behind named objects.
class NamedFile : public testing::Test {
protected:
    NamedFile() : m_umask(::umask(077)), m_openToAll(InitializeDescriptor()) { SetNullDacl(m_openToAll); }
    ~NamedFile() override { ::umask(m_umask); }

    static mode_t ModeOf(const fs::path& path)
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        return status.st_mode;
    }
    static WaitHandle MakeMutex(const wchar_t* name) { return CreateNamedMutex(name, FALSE, nullptr); }
    static WaitHandle MakeEvent(const wchar_t* name) { return CreateNamedEvent(name, nullptr); }
    // The last error of an operation that gives no handle.
    static DWORD CodeOfFailure(const WaitHandle& handle)
    {
        EXPECT_EQ(handle, nullptr);
        return GetLastErrorCode();
    }

    CScratchSession m_session;
    mode_t m_umask;
    SecurityDescriptorPtr m_openToAll;
};

TEST_F(NamedFile, ModesAreAsTheRightsSayWhateverTheUmask)
{
    const WaitHandle objects[] = {CreateNamedMutex(L"Global\\Open", FALSE, m_openToAll.get()),
                                  CreateNamedEvent(L"Open", m_openToAll.get()), MakeMutex(L"Global\\Plain"),
                                  MakeEvent(L"Plain")};
    EXPECT_THAT(objects, testing::Each(testing::NotNull()));
    EXPECT_EQ(ModeOf(m_session.LockFolder() / "Open"), static_cast<mode_t>(S_IFREG | 0666));
    EXPECT_EQ(ModeOf(m_session.SessionFolder() / "Open"), static_cast<mode_t>(S_IFIFO | 0666));
    EXPECT_EQ(ModeOf(m_session.LockFolder() / "Plain"), static_cast<mode_t>(S_IFREG | 0600));
    EXPECT_EQ(ModeOf(m_session.SessionFolder() / "Plain"), static_cast<mode_t>(S_IFIFO | 0600));
    EXPECT_EQ(ModeOf(m_session.SessionFolder()), static_cast<mode_t>(S_IFDIR | 0700));
}

TEST_F(NamedFile, AnExistingFileKeepsItsMode)
{
    MakeMutex(L"Mutex");
    ASSERT_NE(CreateNamedMutex(L"Mutex", FALSE, m_openToAll.get()), nullptr);
    EXPECT_EQ(ModeOf(m_session.SessionFolder() / "Mutex"), static_cast<mode_t>(S_IFREG | 0600));
}

TEST_F(NamedFile, StaleFilesAreUsedAgain)
{
    MakeMutex(L"Mutex");
    MakeEvent(L"Event");
    EXPECT_TRUE(fs::exists(m_session.SessionFolder() / "Mutex"));
    EXPECT_TRUE(fs::exists(m_session.SessionFolder() / "Event"));
    ASSERT_NE(MakeMutex(L"Mutex"), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    ASSERT_NE(MakeEvent(L"Event"), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
}

TEST_F(NamedFile, AnEventThatAnotherProcessHasExists)
{
    MakeEvent(L"Event");
    const CFileDescriptor file(::open((m_session.SessionFolder() / "Event").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(ShareExistence(file));
    EXPECT_NE(MakeEvent(L"Event"), nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ALREADY_EXISTS);
}

TEST_F(NamedFile, ASymbolicLinkIsNeverFollowed)
{
    const fs::path victim = m_session.Folder() / "victim";
    std::ofstream(victim) << "kept";
    for (const char* target : {"victim", "missing"}) {
        fs::create_symlink(m_session.Folder() / target, m_session.LockFolder() / target);
        const std::wstring name = L"Global\\" + std::wstring(target, target + std::string(target).size());
        EXPECT_EQ(CodeOfFailure(MakeMutex(name.c_str())), ERROR_INVALID_HANDLE);
        EXPECT_EQ(CodeOfFailure(MakeEvent(name.c_str())), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(testing_support::FileBytes(victim), "kept");
    EXPECT_FALSE(fs::exists(m_session.Folder() / "missing"));
}

TEST_F(NamedFile, AFileWithASecondNameIsNotWrittenTo)
{
    const fs::path victim = m_session.Folder() / "victim";
    std::ofstream(victim) << "kept";
    fs::create_hard_link(victim, m_session.LockFolder() / "Mutex");
    EXPECT_EQ(CodeOfFailure(MakeMutex(L"Global\\Mutex")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(fs::file_size(victim), 4U);
}

TEST_F(NamedFile, WhatIsOfAnotherKindIsRefused)
{
    MakeEvent(L"Event");
    EXPECT_EQ(CodeOfFailure(MakeMutex(L"Event")), ERROR_INVALID_HANDLE);
    MakeMutex(L"Mutex");
    EXPECT_EQ(CodeOfFailure(MakeEvent(L"Mutex")), ERROR_INVALID_HANDLE);
    fs::create_directory(m_session.SessionFolder() / "Folder");
    EXPECT_EQ(CodeOfFailure(MakeMutex(L"Folder")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(CodeOfFailure(MakeEvent(L"Folder")), ERROR_INVALID_HANDLE);
}

TEST_F(NamedFile, ANameIsOneFileName)
{
    for (const wchar_t* name :
         {L"", L"Global\\", L".", L"..", L"Global\\..", L"a/b", L"a\\b", L"Global\\a\\b", L"/a"}) {
        EXPECT_EQ(CodeOfFailure(MakeMutex(name)), ERROR_PATH_NOT_FOUND);
        EXPECT_EQ(CodeOfFailure(MakeEvent(name)), ERROR_PATH_NOT_FOUND);
    }
    EXPECT_EQ(CodeOfFailure(MakeMutex(std::wstring(300, L'x').c_str())), 206U);
}

TEST_F(NamedFile, AMissingLockFolderFails)
{
    ASSERT_EQ(::mkfifo((m_session.Folder() / "fifo").c_str(), 0600), 0); // which would be waited for
    for (const char* name : {"missing", "fifo"}) {
        m_session.SetVariable("AMPORA_LOCK_DIR", (m_session.Folder() / name).c_str());
        EXPECT_EQ(CodeOfFailure(MakeMutex(L"Global\\Mutex")), ERROR_PATH_NOT_FOUND) << name;
    }
}

TEST_F(NamedFile, ALockOnTheFirstByteIsNotWaitedForWithoutLimit)
{
    // Symptom: a lock of another user on one byte made the program hang at its start and ignore /Exit and signals.
    MakeMutex(L"Mutex");
    const CFileDescriptor file(::open((m_session.SessionFolder() / "Mutex").c_str(), O_RDWR | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 1;
    ASSERT_EQ(::fcntl(file.Get(), F_OFD_SETLK, &lock), 0);
    EXPECT_NE(MakeMutex(L"Mutex"), nullptr) << "only the first byte counts";
    lock.l_start = 0;
    ASSERT_EQ(::fcntl(file.Get(), F_OFD_SETLK, &lock), 0);
    EXPECT_EQ(CodeOfFailure(MakeMutex(L"Mutex")), 1460U);
}

TEST_F(NamedFile, ALockIsHeldByAnotherAlsoWhereTheFileSystemSaysAccessDenied)
{
    std::thread([] {
        testing_support::RefuseCall(SYS_fcntl, EACCES, F_OFD_SETLK);
        EXPECT_EQ(CodeOfFailure(MakeMutex(L"Mutex")), 1460U);
    }).join();
}

TEST_F(NamedFile, ALockOfTheFileAloneDoesNotMakeAMutexExist)
{
    MakeMutex(L"Mutex");
    std::fstream stream;
    const fs::path path = m_session.SessionFolder() / "Mutex";
    const CFileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(file.Get(), LOCK_EX | LOCK_NB), 0);
    const WaitHandle mutex = MakeMutex(L"Mutex");
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForOne(mutex, 0, FALSE), WAIT_TIMEOUT) << "but it is owned";
}

TEST_F(NamedFile, ALockedFileGivesNoInitialOwnership)
{
    MakeMutex(L"Mutex");
    const CFileDescriptor file(::open((m_session.SessionFolder() / "Mutex").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(file.Get(), LOCK_EX | LOCK_NB), 0);
    const WaitHandle mutex = CreateNamedMutex(L"Mutex", TRUE, nullptr);
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(GetLastErrorCode(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(ReleaseOwnedMutex(mutex));
}

class SessionFolder : public NamedFile {
protected:
    // Whether objects are refused in the folder as it is.
    static void ExpectRefused()
    {
        EXPECT_FALSE(OpenSessionFolder());
        EXPECT_EQ(CodeOfFailure(MakeMutex(L"Mutex")), ERROR_ACCESS_DENIED);
        EXPECT_EQ(CodeOfFailure(MakeEvent(L"Event")), ERROR_ACCESS_DENIED);
    }
};

TEST_F(SessionFolder, FallsBackToOneOfTheUsersNumber)
{
    const std::string fallback = "/tmp/AmporaSrv-" + std::to_string(::geteuid());
    EXPECT_EQ(SessionFolderPath(), m_session.SessionFolder());
    for (const char* runtime : {static_cast<const char*>(nullptr), "", "run/user"}) {
        m_session.SetVariable("XDG_RUNTIME_DIR", runtime);
        EXPECT_EQ(SessionFolderPath(), fallback);
    }
}

TEST_F(SessionFolder, IsRefusedWhenOthersMayEnter)
{
    fs::create_directory(m_session.SessionFolder());
    for (const mode_t mode : {0710, 0701, 0770, 0755, 0777}) {
        ASSERT_EQ(::chmod(m_session.SessionFolder().c_str(), mode), 0);
        ExpectRefused();
    }
    ASSERT_EQ(::chmod(m_session.SessionFolder().c_str(), 0700), 0);
    EXPECT_TRUE(OpenSessionFolder());
    EXPECT_TRUE(fs::is_empty(m_session.SessionFolder()));
}

TEST_F(SessionFolder, IsRefusedWhenItIsAnothers)
{
    fs::create_directory(m_session.SessionFolder());
    ASSERT_EQ(::chmod(m_session.SessionFolder().c_str(), 0700), 0);
    if (::chown(m_session.SessionFolder().c_str(), 65534, 65534) == 0) {
        ExpectRefused();
    } else {
        // Nobody but the superuser can give a folder away; what remains one's own is taken.
        EXPECT_EQ(errno, EPERM);
        EXPECT_TRUE(OpenSessionFolder());
    }
}

TEST_F(SessionFolder, IsRefusedWhenItIsALinkOrAFile)
{
    fs::create_directory(m_session.Folder() / "elsewhere");
    fs::create_symlink(m_session.Folder() / "elsewhere", m_session.SessionFolder());
    EXPECT_FALSE(OpenSessionFolder());
    EXPECT_EQ(MakeMutex(L"Mutex"), nullptr);
    EXPECT_TRUE(fs::is_empty(m_session.Folder() / "elsewhere"));
    fs::remove(m_session.SessionFolder());
    std::ofstream(m_session.SessionFolder()) << "x";
    EXPECT_FALSE(OpenSessionFolder());
    EXPECT_EQ(MakeMutex(L"Mutex"), nullptr);
}

TEST_F(SessionFolder, FailsWithoutTheRuntimeFolder)
{
    m_session.SetVariable("XDG_RUNTIME_DIR", (m_session.Folder() / "missing").c_str());
    EXPECT_EQ(CodeOfFailure(MakeMutex(L"Mutex")), ERROR_PATH_NOT_FOUND);
}

} // namespace
} // namespace platform::linux
