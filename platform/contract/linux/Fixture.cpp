// Linux as the contract suite drives it.
#include "platform/contract/Fixture.h"

#include "platform/contract/linux/ScratchSession.h"
#include "platform/contract/NativeFixture.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/Text.h"
#include "testing/ScratchFolder.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

using namespace platform;

namespace contract {

namespace {

using linux::CFileDescriptor;

// Collects what is written to standard error, from when it is made.
class CErrorOutput {
public:
    explicit CErrorOutput(std::filesystem::path file) : m_file(std::move(file)), m_before(::dup(STDERR_FILENO))
    {
        const CFileDescriptor output(::open(m_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        EXPECT_EQ(::dup2(output.Get(), STDERR_FILENO), STDERR_FILENO);
    }
    ~CErrorOutput() { ::dup2(m_before.Get(), STDERR_FILENO); }
    CErrorOutput(const CErrorOutput&) = delete;
    CErrorOutput& operator=(const CErrorOutput&) = delete;

    CString Text() const { return DecodeUtf8(testing_support::FileBytes(m_file)); }

private:
    std::filesystem::path m_file;
    CFileDescriptor m_before;
};

// Key path and value name as they are in a file, and what follows the equals sign.
using SettingsLines = std::map<CString, std::map<CString, std::string>>;

// What one test has made.
struct State {
    testing_support::CScratchSession session;
    std::map<Hive, SettingsLines> settings;
    std::unique_ptr<CErrorOutput> errorOutput;
    std::optional<rlimit> fileSizeBefore;
};

std::unique_ptr<State> g_state;

std::string Hex(const std::vector<BYTE>& bytes)
{
    std::ostringstream text;
    text << std::hex;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text << (i == 0 ? "" : i % 25 == 0 ? ",\\\n  " : ",") << (bytes[i] >> 4) << (bytes[i] & 15);
    }
    return text.str();
}

std::string Quoted(const CString& text)
{
    std::string quoted = "\"";
    for (const char character : EncodeUtf8(text)) {
        quoted += character == '"' || character == '\\' ? "\\" : "";
        quoted += character;
    }
    return quoted + "\"";
}

// As the registry editor writes it: a number or a text by its own syntax where it is well-formed, else bytes.
std::string SettingsData(const SettingsValue& value)
{
    const std::size_t size = value.data.size();
    if (value.type == REG_DWORD && size == 4) {
        std::ostringstream text;
        text << "dword:" << std::hex;
        for (auto byte = value.data.rbegin(); byte != value.data.rend(); ++byte) {
            text << (*byte >> 4) << (*byte & 15);
        }
        return text.str();
    }
    const CString text = TextOfSetting(value);
    if (value.type == REG_SZ && size == (text.size() + 1) * 2) {
        return Quoted(text);
    }
    std::ostringstream type;
    type << "hex(" << std::hex << value.type << "):";
    return (value.type == REG_BINARY ? "hex:" : type.str()) + Hex(value.data);
}

void WriteSettings(Hive hive)
{
    const bool perUser = hive == Hive::kPerUser;
    std::ofstream file(perUser ? g_state->session.UserSettings() : g_state->session.MachineSettings(),
                       std::ios::binary);
    file << "Windows Registry Editor Version 5.00\n";
    for (const auto& [key, values] : g_state->settings[hive]) {
        file << "\n[" << (perUser ? "HKEY_CURRENT_USER\\" : "HKEY_LOCAL_MACHINE\\") << EncodeUtf8(key) << "]\n";
        for (const auto& [name, data] : values) {
            file << Quoted(name) << "=" << data << "\n";
        }
    }
}

// The file of a named object.
std::filesystem::path ObjectFile(const CString& name)
{
    constexpr std::wstring_view kGlobal = L"Global\\";
    if (name.starts_with(kGlobal)) {
        return g_state->session.LockFolder() / EncodeUtf8(name.substr(kGlobal.size()));
    }
    return g_state->session.SessionFolder() / EncodeUtf8(name);
}

mode_t ModeOf(const std::filesystem::path& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

} // namespace

void SetUp() { g_state = std::make_unique<State>(); }

void TearDown()
{
    OtherProcess().Kill();
    if (g_state->fileSizeBefore) {
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &*g_state->fileSizeBefore), 0);
        std::signal(SIGXFSZ, SIG_DFL);
    }
    g_state.reset();
}

void LetPass(unsigned timeMs) { std::this_thread::sleep_for(std::chrono::milliseconds(timeMs)); }

// The clock is the machine's own.
void PutSetting(Hive hive, const CString& keyPath, const CString& valueName, const SettingsValue& value)
{
    g_state->settings[hive][keyPath][valueName] = SettingsData(value);
    WriteSettings(hive);
}

void RemoveSetting(Hive hive, const CString& keyPath, const CString& valueName)
{
    g_state->settings[hive][keyPath].erase(valueName);
    WriteSettings(hive);
}

void WatchDebugOutput() { g_state->errorOutput = std::make_unique<CErrorOutput>(g_state->session.Folder() / "stderr"); }

CString DebugOutput() { return g_state->errorOutput->Text(); }

bool IsNamedObjectOpenToAll(const CString& name) { return (ModeOf(ObjectFile(name)) & 0666) == 0666; }

CString ScratchFolder()
{
    const std::filesystem::path folder = g_state->session.Folder() / "scratch";
    std::filesystem::create_directory(folder);
    return DecodeUtf8(folder.string());
}

CString CommonAppDataFolder() { return DecodeUtf8(g_state->session.DataFolder().string()); }

void ForgetCommonAppDataFolder() { g_state->session.SetVariable("AMPORA_COMMON_APPDATA", "relative"); }

bool IsPathOpenToAll(const CString& path)
{
    const mode_t mode = ModeOf(EncodeUtf8(path));
    const mode_t wanted = S_ISDIR(mode) ? 0777 : 0666;
    return (mode & wanted) == wanted;
}

void LimitFileSize(std::size_t bytes)
{
    rlimit limit = {};
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    g_state->fileSizeBefore = limit;
    limit.rlim_cur = bytes;
    std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
}

} // namespace contract
