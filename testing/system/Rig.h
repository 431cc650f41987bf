// Runs the real amporasrv: on this system, or the Windows one under wine.
#pragma once

#include "testing/process/Peer.h"
#include "testing/Trace.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace system_test {

using testing_support::CBackgroundProcess;
using testing_support::EnvironmentChanges;
using testing_support::ProcessResult;
using testing_support::RunProcess;
using testing_support::StampedLine;
using testing_support::WaitUntil;

enum class Platform { kLinux, kWindows };

// The platform that this run tests: Windows when the environment names a Windows build (AMPORA_WINDOWS_BUILD).
Platform PlatformUnderTest();

// What a copy of amporasrv has given.
struct CopyOutput {
    int exitCode = -1;
    std::string text;               // all that it wrote to the trace log
    std::vector<StampedLine> lines; // the same, taken apart; without what is no trace line
    int brokenLines = 0;            // how many those are
};
// What a copy has taken of this machine so far; under wine, its process with the parts of wine that are in it.
struct CopyUsage {
    double processorSeconds = 0;
    double peakMegabytes = 0;
};
// How often a line was written.
int CountLines(const CopyOutput& pass, const testing_support::TraceLine& line);

// A copy of amporasrv that has been started; killed when this object goes.
class CCopy {
public:
    CCopy() = default;
    virtual ~CCopy() = default;
    CCopy(const CCopy&) = delete;
    CCopy& operator=(const CCopy&) = delete;

    virtual unsigned ProcessId() const = 0;
    // All that it has written to the trace log so far; on Linux, whatever it has written to standard error.
    virtual std::string Text() const = 0;
    // Its exit code, -1 when it was killed by a signal or by a crash; none while it runs, after waiting at most this
    // long for its end.
    virtual std::optional<int> WaitForExit(std::chrono::milliseconds limit) = 0;
    // Ends it as a crash does, and waits until it has gone.
    virtual void Kill() = 0;
    virtual CopyUsage Usage() const = 0;
    // Waits until its threads are at rest in their waits, as far as that can be told from outside.
    virtual void WaitForRest() = 0;

    // The same taken apart. The exit code is -1 as long as it runs.
    CopyOutput Trace();
    // Waits until it has written this line so often. False when the time is up, or it has ended, before that.
    bool WaitForLine(const testing_support::TraceLine& line, int count = 1);
    // How often it has written this line so far.
    int CountLine(const testing_support::TraceLine& line) const;
};

// A place to run amporasrv in: settings, folders and nothing of the machine's own. On Windows there is one such place,
// which every rig empties first; on Linux each rig has its own. Functions throw std::system_error, std::runtime_error
// or std::filesystem::filesystem_error when the place cannot be made.
class CRig {
public:
    CRig() = default;
    virtual ~CRig() = default;
    CRig(const CRig&) = delete;
    CRig& operator=(const CRig&) = delete;

    // Replaces all settings. text: sections as in an exported registry file, without its first line.
    virtual void PutSettings(const std::string& text) = 0;

    // Starts a copy of amporasrv. It must go before the rig.
    virtual std::unique_ptr<CCopy> Start(const std::vector<std::string>& arguments = {}) = 0;

    // Runs amporactl to its end.
    virtual ProcessResult RunControl(const std::vector<std::string>& arguments) = 0;
    // Starts amporactl, for a verb that does not end by itself. It must go before the rig.
    virtual std::unique_ptr<CBackgroundProcess> StartControl(const std::vector<std::string>& arguments) = 0;

    // The common application-data folder; it exists.
    virtual std::filesystem::path CommonFolder() const = 0;

    // Lets another process of the session do one thing, as its program (testing/process/TestPeer.cpp) describes. False
    // when it could not.
    bool Do(const std::string& command);
    // Lets it open a file as a reader of the data files does, until the rig goes.
    bool HoldOpen(const std::filesystem::path& file) { return Do("hold " + NameForPeer(file)); }

    // A variable of the environment of everything that is started from here on.
    void SetVariable(const std::string& name, const std::string& value) { m_variables[name] = value; }

    // The folder of the data files; made by amporasrv.
    std::filesystem::path DataFolder() const { return CommonFolder() / "AmporaSrv"; }

protected:
    const EnvironmentChanges& Variables() const { return m_variables; }
    virtual std::unique_ptr<testing_support::CPeer> MakePeer() const = 0;
    // A path as that process knows it.
    virtual std::string NameForPeer(const std::filesystem::path& file) const { return file.string(); }
    void EndPeer() { m_peer.reset(); }

private:
    EnvironmentChanges m_variables;
    std::unique_ptr<testing_support::CPeer> m_peer; // once it has been told something
};

std::unique_ptr<CRig> MakeRig(Platform platform);

// What only Windows can show.
class CWindowsRig : public CRig {
public:
    CWindowsRig();
    ~CWindowsRig() override;

    void PutSettings(const std::string& text) override;
    std::unique_ptr<CCopy> Start(const std::vector<std::string>& arguments = {}) override;
    ProcessResult RunControl(const std::vector<std::string>& arguments) override;
    std::unique_ptr<CBackgroundProcess> StartControl(const std::vector<std::string>& arguments) override;
    std::filesystem::path CommonFolder() const override;

    // Lets another process show the window of a copy that this rig has started, in each way that there is. What it says
    // of that: "visible 0" or "visible 1", "no window" when there is none.
    std::string ShowWindow(CCopy& copy);

protected:
    std::unique_ptr<testing_support::CPeer> MakePeer() const override;
    std::string NameForPeer(const std::filesystem::path& file) const override { return "Z:" + file.string(); }

private:
    void Empty();

    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// What only Linux can show.
class CLinuxRig : public CRig {
public:
    CLinuxRig();
    ~CLinuxRig() override;

    void PutSettings(const std::string& text) override;
    std::unique_ptr<CCopy> Start(const std::vector<std::string>& arguments = {}) override;
    ProcessResult RunControl(const std::vector<std::string>& arguments) override;
    std::unique_ptr<CBackgroundProcess> StartControl(const std::vector<std::string>& arguments) override;
    std::filesystem::path CommonFolder() const override;

    // Lets amporasrv use another common application-data folder.
    void SetCommonFolder(const std::filesystem::path& folder);
    // Puts arguments before amporasrv's path: a program that runs it.
    void SetWrapper(std::vector<std::string> wrapper);
    // The scratch folder of this rig and the program as a file in it, which every user can reach.
    std::filesystem::path ScratchFolder() const;
    std::filesystem::path CopyProgram() const;
    // Runs this file instead.
    void SetProgram(const std::filesystem::path& program);
    // From here on amporasrv runs as this user, who can reach the rig's own folders then. Only for the superuser.
    void RunAs(unsigned userId);
    // The folders that amporasrv makes its session's and the machine's objects in.
    std::filesystem::path SessionFolder() const;
    std::filesystem::path LockFolder() const;

protected:
    std::unique_ptr<testing_support::CPeer> MakePeer() const override;

private:
    EnvironmentChanges ProgramEnvironment() const;

    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace system_test
