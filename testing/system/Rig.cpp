#include "testing/system/Rig.h"

#include "testing/ScratchFolder.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace system_test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing_support::TraceLine;

// For what a test waits for in a program that does other things as well: passes, above all.
constexpr std::chrono::seconds kPassLimit{120};
constexpr std::chrono::seconds kCommandLimit{60};
constexpr std::chrono::seconds kKillLimit{10};
constexpr const char* kFirstLine = "Windows Registry Editor Version 5.00\n\n";

std::string Variable(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes this program's environment
    return value != nullptr ? value : "";
}

// Takes the trace log of a copy apart.
CopyOutput TakeApart(int exitCode, const std::string& text)
{
    CopyOutput pass{exitCode, text, {}, 0};
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const auto parsed = testing_support::ParseTraceLine(line);
        if (parsed && line.find('\r') == std::string::npos) {
            pass.lines.push_back(*parsed);
        } else {
            ++pass.brokenLines;
        }
    }
    return pass;
}

std::vector<std::string> Joined(std::vector<std::string> first, const std::vector<std::string>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Whether none of a process's threads runs or is about to.
bool AllSleep(int processId)
{
    std::error_code error;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(processId) + "/task", error)) {
        std::ifstream file(task.path() / "stat");
        std::string text;
        std::getline(file, text);
        const std::size_t name = text.rfind(") ");
        if (name != std::string::npos && text.at(name + 2) != 'S') {
            return false;
        }
    }
    return true;
}

// The value in kB of a line of a process's status.
double StatusOf(int processId, const std::string& name)
{
    std::ifstream file("/proc/" + std::to_string(processId) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name)) {
            return std::stod(line.substr(name.size()));
        }
    }
    return 0;
}

CopyUsage UsageOf(int processId)
{
    constexpr double kTicksPerSecond = 100;
    constexpr double kKilobytesPerMegabyte = 1024;
    std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
    file.ignore(std::numeric_limits<std::streamsize>::max(), ')');
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        file >> skipped;
    }
    double user = 0;
    double system = 0;
    file >> user >> system;
    return {(user + system) / kTicksPerSecond, StatusOf(processId, "VmHWM:") / kKilobytesPerMegabyte};
}

// The process in which wine runs a program of this prefix. -1 when there is none.
int FindWineProcess(const std::string& program, const fs::path& prefix)
{
    const std::string variable = "WINEPREFIX=" + prefix.string() + '\0';
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        if (testing_support::FileBytes(entry.path() / "comm") == program + "\n" &&
            testing_support::FileBytes(entry.path() / "environ").find(variable) != std::string::npos) {
            return std::stoi(entry.path().filename());
        }
    }
    return -1;
}

class CLinuxCopy : public CCopy {
public:
    CLinuxCopy(const std::vector<std::string>& command, const EnvironmentChanges& environment)
        : m_process(command, environment)
    {
    }

    unsigned ProcessId() const override { return static_cast<unsigned>(m_process.ProcessId()); }
    std::string Text() const override { return m_process.Err(); }
    std::optional<int> WaitForExit(milliseconds limit) override { return m_process.WaitForExit(limit); }
    void Kill() override
    {
        m_process.Signal(SIGKILL);
        m_process.WaitForExit(kKillLimit);
    }
    CopyUsage Usage() const override { return UsageOf(m_process.ProcessId()); }
    void WaitForRest() override
    {
        WaitUntil([this] { return AllSleep(m_process.ProcessId()); }, kCommandLimit);
    }

private:
    CBackgroundProcess m_process;
};

// What a line of procctl says after a word.
std::string After(const std::string& text, const std::string& word)
{
    const std::size_t start = text.find(word);
    return start == std::string::npos
               ? ""
               : text.substr(start + word.size(), text.find_first_of("\r\n", start) - start - word.size());
}

// A copy that procctl has started, and the listener that hears what it writes.
class CWindowsCopy : public CCopy {
public:
    CWindowsCopy(const std::vector<std::string>& command, const EnvironmentChanges& environment,
                 std::shared_ptr<const CBackgroundProcess> listener, fs::path prefix)
        : m_keeper(command, environment, kCommandLimit), m_listener(std::move(listener)), m_prefix(std::move(prefix)),
          m_processId(static_cast<unsigned>(std::stoul(After(m_keeper.Out(), "started "))))
    {
    }
    ~CWindowsCopy() override
    {
        m_keeper.CloseInput();
        m_keeper.WaitForExit(kKillLimit);
    }

    unsigned ProcessId() const override { return m_processId; }
    // The listener puts the writer's identifier before each text, which may have more lines than one.
    std::string Text() const override
    {
        const std::string own = std::to_string(m_processId) + "\t";
        std::istringstream stream(m_listener->Out());
        std::string text;
        bool isOwn = false;
        for (std::string line; std::getline(stream, line);) {
            std::erase(line, '\r');
            const std::size_t id = line.find_first_not_of("0123456789");
            const bool isFirst = id != 0 && id != std::string::npos && line[id] == '\t';
            isOwn = isFirst ? line.starts_with(own) : isOwn;
            if (isOwn) {
                text += (isFirst ? line.substr(own.size()) : line) + "\n";
            }
        }
        return text;
    }
    std::optional<int> WaitForExit(milliseconds limit) override
    {
        if (!m_keeper.WaitForExit(limit)) {
            return std::nullopt;
        }
        const std::string end = "\tended " + std::to_string(m_processId);
        WaitUntil([&] { return m_listener->Out().find(end) != std::string::npos; }, kKillLimit);
        const unsigned long code = std::stoul(After(m_keeper.Out(), "ended "), nullptr, 16);
        constexpr unsigned long kCrashed = 0xC0000000;
        return code >= kCrashed ? -1 : static_cast<int>(code);
    }
    void Kill() override
    {
        m_keeper.Write("terminate\n");
        m_keeper.WaitForExit(kKillLimit);
    }
    CopyUsage Usage() const override { return UsageOf(FindWineProcess("amporasrv.exe", m_prefix)); }
    void WaitForRest() override
    {
        constexpr milliseconds kPause{100};
        std::this_thread::sleep_for(kPause);
    }
    std::string ShowWindow()
    {
        m_keeper.Write("show Ampora\n");
        return m_keeper.ReadLine(kCommandLimit).value_or("no answer");
    }

private:
    CBackgroundProcess m_keeper;
    std::shared_ptr<const CBackgroundProcess> m_listener;
    fs::path m_prefix;
    unsigned m_processId;
};

} // namespace

Platform PlatformUnderTest()
{
    return Variable("AMPORA_WINDOWS_BUILD").empty() ? Platform::kLinux : Platform::kWindows;
}

std::unique_ptr<CRig> MakeRig(Platform platform)
{
    if (platform == Platform::kWindows) {
        return std::make_unique<CWindowsRig>();
    }
    return std::make_unique<CLinuxRig>();
}

int CountLines(const CopyOutput& pass, const TraceLine& line)
{
    return static_cast<int>(std::count_if(pass.lines.begin(), pass.lines.end(),
                                          [&](const StampedLine& written) { return written.trace == line; }));
}

CopyOutput CCopy::Trace()
{
    const int exitCode = WaitForExit(milliseconds(0)).value_or(-1);
    return TakeApart(exitCode, Text());
}

int CCopy::CountLine(const TraceLine& line) const { return CountLines(TakeApart(-1, Text()), line); }

bool CCopy::WaitForLine(const TraceLine& line, int count)
{
    bool hasEnded = false;
    const auto isWrittenOrOver = [&] {
        hasEnded = WaitForExit(milliseconds(0)).has_value();
        return CountLine(line) >= count || hasEnded;
    };
    return WaitUntil(isWrittenOrOver, kPassLimit) && CountLine(line) >= count;
}

bool CRig::Do(const std::string& command)
{
    if (!m_peer) {
        m_peer = MakePeer();
    }
    return m_peer->Do(command);
}

struct CWindowsRig::Impl {
    fs::path Built(const char* path) const { return fs::path(build) / path; }
    std::vector<std::string> Control() const { return {AMPORA_WINE, "run", Built("bin/amporactl.exe").string()}; }

    std::string build = Variable("AMPORA_WINDOWS_BUILD");
    testing_support::CScratchFolder scratch;
    fs::path prefix;
    std::shared_ptr<CBackgroundProcess> listener; // once a copy has been started
};

CWindowsRig::CWindowsRig() : m_impl(std::make_unique<Impl>())
{
    const ProcessResult path = RunProcess({AMPORA_WINE, "path"}, {}, kCommandLimit);
    m_impl->prefix = path.out.substr(0, path.out.find('\n'));
    Empty();
}

CWindowsRig::~CWindowsRig()
{
    EndPeer();
    if (m_impl->listener) {
        m_impl->listener->CloseInput();
        m_impl->listener->WaitForExit(kKillLimit);
    }
    Empty();
}

void CWindowsRig::Empty()
{
    fs::remove_all(DataFolder());
    PutSettings("");
}

void CWindowsRig::PutSettings(const std::string& text)
{
    const fs::path file = m_impl->scratch.Write("settings.reg", std::string(kFirstLine) +
                                                                    "[-HKEY_LOCAL_MACHINE\\Software\\Halvex]\n\n"
                                                                    "[-HKEY_CURRENT_USER\\Software\\Halvex]\n\n" +
                                                                    text);
    const ProcessResult result = RunProcess({AMPORA_WINE, "run", "regedit", "/S", file.string()}, {}, kCommandLimit);
    if (result.exitCode != 0) {
        throw std::runtime_error("regedit ended with " + std::to_string(result.exitCode) + ": " + result.err);
    }
}

std::unique_ptr<CCopy> CWindowsRig::Start(const std::vector<std::string>& arguments)
{
    if (!m_impl->listener) {
        m_impl->listener = std::make_shared<CBackgroundProcess>(
            std::vector<std::string>{AMPORA_WINE, "run", m_impl->Built("tests/tracecat.exe").string(), "--ids"},
            Variables(), kCommandLimit);
    }
    const std::vector<std::string> command = {AMPORA_WINE, "run", m_impl->Built("tests/procctl.exe").string(), "--",
                                              "Z:" + m_impl->Built("bin/amporasrv.exe").string()};
    return std::make_unique<CWindowsCopy>(Joined(command, arguments), Variables(), m_impl->listener, m_impl->prefix);
}

ProcessResult CWindowsRig::RunControl(const std::vector<std::string>& arguments)
{
    ProcessResult result = RunProcess(Joined(m_impl->Control(), arguments), Variables(), kCommandLimit);
    // Only of standard error: standard output leaves the program as it is.
    std::erase(result.err, '\r');
    return result;
}

std::unique_ptr<CBackgroundProcess> CWindowsRig::StartControl(const std::vector<std::string>& arguments)
{
    return std::make_unique<CBackgroundProcess>(Joined(m_impl->Control(), arguments), Variables());
}

fs::path CWindowsRig::CommonFolder() const { return m_impl->prefix / "drive_c" / "ProgramData"; }

std::string CWindowsRig::ShowWindow(CCopy& copy) { return dynamic_cast<CWindowsCopy&>(copy).ShowWindow(); }

std::unique_ptr<testing_support::CPeer> CWindowsRig::MakePeer() const
{
    return std::make_unique<testing_support::CPeer>(
        std::vector<std::string>{AMPORA_WINE, "run", m_impl->Built("tests/test_peer.exe").string()}, Variables());
}

struct CLinuxRig::Impl {
    testing_support::CScratchFolder scratch;
    std::vector<std::string> wrapper;
    std::string program = AMPORA_LINUX_PROGRAM;
    std::vector<std::string> peer = {AMPORA_LINUX_PEER};
    fs::path common = scratch.Path() / "common";
};

CLinuxRig::CLinuxRig() : m_impl(std::make_unique<Impl>())
{
    const fs::path& scratch = m_impl->scratch.Path();
    for (const char* folder : {"common", "lock", "run", "user/AmporaSrv", "machine/AmporaSrv"}) {
        fs::create_directories(scratch / folder);
    }
    fs::permissions(scratch / "run", fs::perms::owner_all);
}

CLinuxRig::~CLinuxRig() { EndPeer(); }

void CLinuxRig::PutSettings(const std::string& text)
{
    // Each hive's file holds the other one's keys as well: they are to be passed over.
    for (const char* hive : {"user", "machine"}) {
        m_impl->scratch.Write(std::string(hive) + "/AmporaSrv/settings.reg", kFirstLine + text);
    }
}

EnvironmentChanges CLinuxRig::ProgramEnvironment() const
{
    const std::string scratch = m_impl->scratch.Path().string();
    EnvironmentChanges environment = {{"XDG_CONFIG_HOME", scratch + "/user"},
                                      {"XDG_CONFIG_DIRS", scratch + "/machine"},
                                      {"XDG_RUNTIME_DIR", scratch + "/run"},
                                      {"XDG_SESSION_ID", ""},
                                      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + scratch + "/no-bus"},
                                      {"AMPORA_LOCK_DIR", LockFolder().string()},
                                      {"AMPORA_COMMON_APPDATA", m_impl->common.string()},
                                      {"AMPORA_CONNECTED_STATE", "2"},
                                      {"http_proxy", ""},
                                      {"all_proxy", ""},
                                      {"HTTP_PROXY", ""},
                                      {"ALL_PROXY", ""}};
    for (const auto& [name, value] : Variables()) {
        environment[name] = value;
    }
    return environment;
}

std::unique_ptr<CCopy> CLinuxRig::Start(const std::vector<std::string>& arguments)
{
    return std::make_unique<CLinuxCopy>(Joined(Joined(m_impl->wrapper, {m_impl->program}), arguments),
                                        ProgramEnvironment());
}

ProcessResult CLinuxRig::RunControl(const std::vector<std::string>& arguments)
{
    return RunProcess(Joined({AMPORA_LINUX_CONTROL}, arguments), ProgramEnvironment(), kCommandLimit);
}

std::unique_ptr<CBackgroundProcess> CLinuxRig::StartControl(const std::vector<std::string>& arguments)
{
    return std::make_unique<CBackgroundProcess>(Joined({AMPORA_LINUX_CONTROL}, arguments), ProgramEnvironment());
}

std::unique_ptr<testing_support::CPeer> CLinuxRig::MakePeer() const
{
    return std::make_unique<testing_support::CPeer>(m_impl->peer, ProgramEnvironment());
}

fs::path CLinuxRig::CommonFolder() const { return m_impl->common; }

void CLinuxRig::SetCommonFolder(const fs::path& folder) { m_impl->common = folder; }

void CLinuxRig::SetWrapper(std::vector<std::string> wrapper) { m_impl->wrapper = std::move(wrapper); }

fs::path CLinuxRig::ScratchFolder() const { return m_impl->scratch.Path(); }

fs::path CLinuxRig::CopyProgram() const
{
    const fs::path copy = m_impl->scratch.Path() / "amporasrv";
    fs::copy_file(m_impl->program, copy, fs::copy_options::overwrite_existing);
    return copy;
}

void CLinuxRig::SetProgram(const fs::path& program) { m_impl->program = program.string(); }

void CLinuxRig::RunAs(unsigned userId)
{
    SetProgram(CopyProgram());
    const std::string user = std::to_string(userId);
    SetWrapper({"setpriv", "--reuid=" + user, "--regid=" + user, "--clear-groups"});
    // The session's other processes are the user's, too.
    const fs::path peer = m_impl->scratch.Path() / "peer";
    fs::copy_file(AMPORA_LINUX_PEER, peer);
    m_impl->peer = Joined(m_impl->wrapper, {peer.string()});
    for (const char* folder : {"", "common", "lock"}) {
        fs::permissions(m_impl->scratch.Path() / folder, fs::perms(0777));
    }
    const ProcessResult result =
        RunProcess({"chown", user, (m_impl->scratch.Path() / "run").string()}, {}, kCommandLimit);
    if (result.exitCode != 0) {
        throw std::runtime_error(result.err);
    }
}

fs::path CLinuxRig::SessionFolder() const { return m_impl->scratch.Path() / "run" / "AmporaSrv"; }

fs::path CLinuxRig::LockFolder() const
{
    const auto chosen = Variables().find("AMPORA_LOCK_DIR");
    return chosen == Variables().end() ? m_impl->scratch.Path() / "lock" : fs::path(chosen->second);
}

} // namespace system_test
