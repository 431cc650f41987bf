// Runs the real amporasrv: on this system, or the Windows one under wine.
#pragma once

#include "testing/system/Process.h"
#include "testing/Trace.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace system_test {

enum class Platform { kLinux, kWindows };

// The platform that this run tests: Windows when the environment names a Windows build (AMPORA_WINDOWS_BUILD).
Platform PlatformUnderTest();

// One trace line with what it says about who wrote it.
struct Line {
    testing_support::TraceLine trace;
    unsigned process = 0;
    unsigned thread = 0;
};

// What one run of amporasrv gave.
struct Pass {
    int exitCode = -1;
    std::string text;        // all that it wrote to the trace log
    std::vector<Line> lines; // the same, taken apart; lines that are no trace lines are not in it
    int brokenLines = 0;     // how many those are
};

// A place to run amporasrv in: settings, folders and nothing of the machine's own. On Windows there is one such place,
// which every rig empties first; on Linux each rig has its own. Functions throw std::system_error or
// std::filesystem::filesystem_error when the place cannot be had.
class CRig {
public:
    CRig() = default;
    virtual ~CRig() = default;
    CRig(const CRig&) = delete;
    CRig& operator=(const CRig&) = delete;

    // Replaces all settings. text: sections as in an exported registry file, without its first line.
    virtual void PutSettings(const std::string& text) = 0;

    // Runs amporasrv to its end.
    virtual Pass RunPass() = 0;

    // The common application-data folder; it exists.
    virtual std::filesystem::path CommonFolder() const = 0;

    // Opens a file as another program does that reads it, for as long as the result lives.
    virtual std::unique_ptr<CBackgroundProcess> HoldOpen(const std::filesystem::path& file) = 0;

    // The folder of the data files; made by amporasrv.
    std::filesystem::path DataFolder() const { return CommonFolder() / "AmporaSrv"; }
};

std::unique_ptr<CRig> MakeRig(Platform platform);

// What only Linux can show.
class CLinuxRig : public CRig {
public:
    CLinuxRig();
    ~CLinuxRig() override;

    void PutSettings(const std::string& text) override;
    Pass RunPass() override;
    std::filesystem::path CommonFolder() const override;
    std::unique_ptr<CBackgroundProcess> HoldOpen(const std::filesystem::path& file) override;

    // Lets amporasrv use another common application-data folder.
    void SetCommonFolder(const std::filesystem::path& folder);
    // Puts arguments before amporasrv's path: a program that runs it.
    void SetWrapper(std::vector<std::string> wrapper);
    // The scratch folder of this rig and the program as a file in it, which every user can reach.
    std::filesystem::path ScratchFolder() const;
    std::filesystem::path CopyProgram() const;
    // Runs this file instead.
    void SetProgram(const std::filesystem::path& program);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace system_test
