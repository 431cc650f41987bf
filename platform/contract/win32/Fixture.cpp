// Windows as the contract suite drives it.
#include "platform/contract/Fixture.h"

#include "platform/contract/NativeFixture.h"
#include "platform/Thread.h"
#include "platform/win32/DebugListener.h"
#include "platform/win32/Handle.h"

#include <aclapi.h>
#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>

namespace contract {

namespace {

using namespace platform;
using win32::CKernelHandle;
using win32::CRegistryKey;

// The registry: while this lives, this process sees its hives below a scratch key, which leaves nothing behind.
class CScratchHives {
public:
    CScratchHives()
    {
        EXPECT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                    KEY_ALL_ACCESS, nullptr, m_root.Receive(), nullptr),
                  ERROR_SUCCESS);
        Override(HKEY_CURRENT_USER, L"User");
        Override(HKEY_LOCAL_MACHINE, L"Machine");
    }
    ~CScratchHives()
    {
        ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        m_root.Reset();
        EXPECT_EQ(::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str()), ERROR_SUCCESS);
    }
    CScratchHives(const CScratchHives&) = delete;
    CScratchHives& operator=(const CScratchHives&) = delete;

private:
    void Override(HKEY hive, const wchar_t* name)
    {
        CRegistryKey key;
        EXPECT_EQ(::RegCreateKeyExW(m_root.Get(), name, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                                    key.Receive(), nullptr),
                  ERROR_SUCCESS);
        EXPECT_EQ(::RegOverridePredefKey(hive, key.Get()), ERROR_SUCCESS);
    }

    const CString m_path = L"Software\\AmporaContract" + std::to_wstring(::GetCurrentProcessId());
    CRegistryKey m_root;
};

HKEY RootOf(Hive hive) { return hive == Hive::kPerUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE; }

// Collects what this process writes to the debugger output, on a thread of its own.
class CDebugCollector {
public:
    CDebugCollector() : m_listener(win32::CDebugListener::Open(kOpenTimeoutMs))
    {
        EXPECT_NE(m_listener, nullptr) << "somebody else listens to the debugger output";
        m_thread = StartThread(Collect, this);
    }
    ~CDebugCollector() { Finish(); }
    CDebugCollector(const CDebugCollector&) = delete;
    CDebugCollector& operator=(const CDebugCollector&) = delete;

    // Ends the collection; everything written before has arrived then.
    const CString& Finish()
    {
        if (m_thread) {
            ::OutputDebugStringW(kEnd);
            EXPECT_EQ(WaitForThread(m_thread, kOpenTimeoutMs), WAIT_OBJECT_0);
            m_thread.reset();
        }
        return m_text;
    }

private:
    static constexpr DWORD kOpenTimeoutMs = 50000;
    static constexpr const wchar_t* kEnd = L"end of contract test";

    static DWORD Collect(void* collector)
    {
        static_cast<CDebugCollector*>(collector)->CollectToEnd();
        return 0;
    }
    void CollectToEnd()
    {
        win32::DebugMessage message;
        while (m_listener && m_listener->Next(kOpenTimeoutMs, &message)) {
            if (message.processId != ::GetCurrentProcessId()) {
                continue;
            }
            if (message.text == kEnd) {
                return;
            }
            m_text += message.text;
        }
    }

    std::unique_ptr<win32::CDebugListener> m_listener;
    ThreadPtr m_thread;
    CString m_text; // the thread's until it has ended
};

// What one test has made.
struct State {
    std::optional<CScratchHives> hives;
    std::unique_ptr<CDebugCollector> debug;
    std::filesystem::path scratch;
};
std::optional<State> g_state;

// Whether a file's DACL lets everybody read and write: none at all does, or one that says so.
bool OpensToAll(PACL dacl)
{
    if (!dacl) {
        return true;
    }
    // wine reads the DACL back from the file's mode, from which the user's umask has taken the right to write.
    const bool isWine = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    const ACCESS_MASK wanted = isWine ? FILE_READ_DATA : FILE_READ_DATA | FILE_WRITE_DATA;
    ACCESS_MASK given = 0;
    for (DWORD i = 0; i < dacl->AceCount; ++i) {
        void* entry = nullptr;
        EXPECT_TRUE(::GetAce(dacl, i, &entry));
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE && ::IsWellKnownSid(&allowed->SidStart, WinWorldSid)) {
            given |= allowed->Mask;
        }
    }
    return (given & wanted) == wanted;
}

} // namespace

void SetUp() { g_state.emplace(); }

void TearDown()
{
    OtherProcess().Kill();
    const std::filesystem::path scratch = g_state->scratch;
    g_state.reset();
    if (!scratch.empty()) {
        std::error_code error;
        std::filesystem::remove_all(scratch, error);
        EXPECT_FALSE(error) << error.message();
    }
}

void LetPass(unsigned timeMs) { ::Sleep(timeMs); }

void PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value)
{
    if (!g_state->hives) {
        g_state->hives.emplace();
    }
    CRegistryKey key;
    ASSERT_EQ(::RegCreateKeyExW(RootOf(hive), keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                                key.Receive(), nullptr),
              ERROR_SUCCESS);
    // The system adds a terminator to a text when a zero happens to follow its bytes.
    std::vector<BYTE> bytes = value.data;
    bytes.insert(bytes.end(), 4, 0xFF);
    EXPECT_EQ(::RegSetValueExW(key.Get(), valueName.c_str(), 0, value.type, bytes.data(),
                               static_cast<DWORD>(value.data.size())),
              ERROR_SUCCESS);
}

void RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName)
{
    EXPECT_EQ(::RegDeleteKeyValueW(RootOf(hive), keyPath.c_str(), valueName.c_str()), ERROR_SUCCESS);
}

void WatchDebugOutput() { g_state->debug = std::make_unique<CDebugCollector>(); }

CString DebugOutput() { return g_state->debug->Finish(); }

bool IsNamedObjectOpenToAll(const CString& name)
{
    CKernelHandle object(::OpenMutexW(READ_CONTROL, FALSE, name.c_str()));
    if (!object) {
        object.Reset(::OpenEventW(READ_CONTROL, FALSE, name.c_str()));
    }
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD status = ::GetSecurityInfo(object.Get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                           &dacl, nullptr, &descriptor);
    const bool open = status == ERROR_SUCCESS && !dacl;
    ::LocalFree(descriptor);
    return open;
}

CString ScratchFolder()
{
    g_state->scratch =
        std::filesystem::temp_directory_path() / (L"AmporaContract" + std::to_wstring(::GetCurrentProcessId()));
    std::filesystem::create_directories(g_state->scratch);
    return g_state->scratch.wstring();
}

CString CommonAppDataFolder()
{
    std::array<wchar_t, MAX_PATH> path = {};
    EXPECT_NE(::GetEnvironmentVariableW(L"ProgramData", path.data(), path.size()), 0U);
    return path.data();
}

bool IsPathOpenToAll(const CString& path)
{
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD status = ::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                                 nullptr, &dacl, nullptr, &descriptor);
    const bool open = status == ERROR_SUCCESS && OpensToAll(dacl);
    ::LocalFree(descriptor);
    return open;
}

} // namespace contract
