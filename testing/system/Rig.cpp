#include "testing/system/Rig.h"

#include "testing/ScratchFolder.h"

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

namespace system_test {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kPassLimit{120};
constexpr std::chrono::seconds kCommandLimit{60};
constexpr const char* kFirstLine = "Windows Registry Editor Version 5.00\n\n";

std::string Variable(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes this program's environment
    return value != nullptr ? value : "";
}

// What a trace line says before " : " and its message, which can be too long for an expression. Made before there are
// threads: two threads that compile expressions race for tables of the standard library.
const std::regex kTraceHead(R"(\[(ERR|WAR|TRA)\] \d{4}/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} (\d+)\((\d+)\) (\S{1,100}))");

// Takes the trace log of a run apart.
Pass MakePass(int exitCode, const std::string& text)
{
    Pass pass{exitCode, text, {}, 0};
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const std::size_t end = line.find(" : ");
        const std::string start = line.substr(0, end);
        std::smatch parts;
        if (end != std::string::npos && line.find('\r') == std::string::npos &&
            std::regex_match(start, parts, kTraceHead)) {
            pass.lines.push_back({{parts[1], parts[4], line.substr(end + 3)},
                                  static_cast<unsigned>(std::stoul(parts[2])),
                                  static_cast<unsigned>(std::stoul(parts[3]))});
        } else {
            ++pass.brokenLines;
        }
    }
    return pass;
}

void WriteText(const fs::path& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << text;
}

class CWindowsRig : public CRig {
public:
    CWindowsRig()
    {
        const ProcessResult path = RunProcess({AMPORA_WINE, "path"}, {}, kCommandLimit);
        m_commonFolder = fs::path(path.out.substr(0, path.out.find('\n'))) / "drive_c" / "ProgramData";
        Empty();
    }
    ~CWindowsRig() override { Empty(); }

    void PutSettings(const std::string& text) override
    {
        const fs::path file = m_scratch.Write("settings.reg", std::string(kFirstLine) +
                                                                  "[-HKEY_LOCAL_MACHINE\\Software\\Halvex]\n\n"
                                                                  "[-HKEY_CURRENT_USER\\Software\\Halvex]\n\n" +
                                                                  text);
        const ProcessResult result =
            RunProcess({AMPORA_WINE, "run", "regedit", "/S", file.string()}, {}, kCommandLimit);
        if (result.exitCode != 0) {
            throw std::runtime_error("regedit: " + result.err);
        }
    }

    Pass RunPass() override
    {
        const fs::path build = Variable("AMPORA_WINDOWS_BUILD");
        const ProcessResult result = RunProcess({AMPORA_WINE, "run", (build / "platform/win32/tracecat.exe").string(),
                                                 "--", "Z:" + (build / "app/amporasrv.exe").string()},
                                                {}, kPassLimit);
        // The listener's own first line and the carriage returns of its standard output are not part of the log.
        std::string text = result.out;
        std::erase(text, '\r');
        if (!text.starts_with("ready\n")) {
            throw std::runtime_error("tracecat: " + result.out + result.err);
        }
        return MakePass(result.exitCode, text.substr(text.find('\n') + 1));
    }

    fs::path CommonFolder() const override { return m_commonFolder; }

    std::unique_ptr<CBackgroundProcess> HoldOpen(const fs::path& file) override
    {
        const fs::path build = Variable("AMPORA_WINDOWS_BUILD");
        return std::make_unique<CBackgroundProcess>(
            std::vector<std::string>{AMPORA_WINE, "run", (build / "testing/system/hold-open.exe").string(),
                                     "Z:" + file.string()},
            Environment{}, kCommandLimit);
    }

private:
    void Empty()
    {
        fs::remove_all(DataFolder());
        PutSettings("");
    }

    testing_support::CScratchFolder m_scratch;
    fs::path m_commonFolder;
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

struct CLinuxRig::Impl {
    testing_support::CScratchFolder scratch;
    std::vector<std::string> wrapper;
    std::string program = AMPORA_LINUX_PROGRAM;
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

CLinuxRig::~CLinuxRig() = default;

void CLinuxRig::PutSettings(const std::string& text)
{
    // Each hive's file holds the other one's keys as well: they are to be passed over.
    for (const char* hive : {"user", "machine"}) {
        WriteText(m_impl->scratch.Path() / hive / "AmporaSrv/settings.reg", kFirstLine + text);
    }
}

Pass CLinuxRig::RunPass()
{
    const std::string scratch = m_impl->scratch.Path().string();
    const Environment environment = {{"XDG_CONFIG_HOME", scratch + "/user"},
                                     {"XDG_CONFIG_DIRS", scratch + "/machine"},
                                     {"XDG_RUNTIME_DIR", scratch + "/run"},
                                     {"AMPORA_LOCK_DIR", scratch + "/lock"},
                                     {"AMPORA_COMMON_APPDATA", m_impl->common.string()},
                                     {"AMPORA_CONNECTED_STATE", "2"},
                                     {"http_proxy", ""},
                                     {"all_proxy", ""},
                                     {"HTTP_PROXY", ""},
                                     {"ALL_PROXY", ""}};
    std::vector<std::string> command = m_impl->wrapper;
    command.push_back(m_impl->program);
    const ProcessResult result = RunProcess(command, environment, kPassLimit);
    return MakePass(result.exitCode, result.err);
}

fs::path CLinuxRig::CommonFolder() const { return m_impl->common; }

std::unique_ptr<CBackgroundProcess> CLinuxRig::HoldOpen(const fs::path& file)
{
    return std::make_unique<CBackgroundProcess>(
        std::vector<std::string>{"flock", "-s", file.string(), "sh", "-c", "echo held; exec sleep 600"}, Environment{},
        kCommandLimit);
}

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

} // namespace system_test
