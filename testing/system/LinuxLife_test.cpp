// The life of the Linux program: users, folders and signals, the login manager, rest.
#include "testing/process/linux/LoginBus.h"
#include "testing/system/Life.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace system_test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing_support::TraceLine;

constexpr unsigned kNobody = 65534;
constexpr std::chrono::seconds kCommandLimit{20};
const TraceLine kNoMutex{"ERR", kInitInstance, "Creatre Mutex Fail."};

bool IsSuperuser() { return RunProcess({"id", "-u"}, {}, kCommandLimit).out == "0\n"; }

void RunCommand(const std::vector<std::string>& command)
{
    const ProcessResult result = RunProcess(command, {}, kCommandLimit);
    EXPECT_EQ(result.exitCode, 0) << command.front() << ": " << result.err;
}

// What a file of the proc file system says behind a word.
long NumberBehind(const fs::path& path, const std::string& word)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(word)) {
            return std::stol(line.substr(word.size()));
        }
    }
    ADD_FAILURE() << path << " does not say " << word;
    return -1;
}

// How often each thread of a process has gone to sleep or lost the processor.
std::map<std::string, long> Switches(unsigned processId)
{
    std::map<std::string, long> switches;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(processId) + "/task")) {
        const fs::path status = task.path() / "status";
        switches[task.path().filename()] =
            NumberBehind(status, "voluntary_ctxt_switches:") + NumberBehind(status, "nonvoluntary_ctxt_switches:");
    }
    return switches;
}

class SystemLinuxLife : public CLifeTest {
protected:
    SystemLinuxLife() : CLifeTest(Platform::kLinux) {}

    CLinuxRig& LinuxRig() { return dynamic_cast<CLinuxRig&>(Rig()); }

    void MakeSessionFolder(unsigned mode)
    {
        fs::create_directory(LinuxRig().SessionFolder());
        fs::permissions(LinuxRig().SessionFolder(), fs::perms(mode));
    }

    // Another session of the same machine; another user's where this is the superuser's test.
    std::unique_ptr<CLinuxRig> MakeNeighbour()
    {
        auto neighbour = std::make_unique<CLinuxRig>();
        if (IsSuperuser()) {
            neighbour->RunAs(kNobody);
        }
        for (const fs::path& folder : {LinuxRig().ScratchFolder(), LinuxRig().LockFolder(), Rig().CommonFolder()}) {
            fs::permissions(folder, fs::perms(0777));
        }
        neighbour->SetVariable("AMPORA_LOCK_DIR", LinuxRig().LockFolder().string());
        neighbour->SetCommonFolder(Rig().CommonFolder());
        return neighbour;
    }

    // A copy that cannot make its window ends with this explanation and exit code 1; main: what it traces.
    void ExpectNoWindow(const std::string& reason, const Lines& main)
    {
        Rig().PutSettings(Settings());
        const std::unique_ptr<CCopy> copy = Rig().Start();
        EXPECT_EQ(copy->WaitForExit(kEndLimit), 1);
        const CopyOutput pass = copy->Trace();
        EXPECT_EQ(pass.brokenLines, 1) << pass.text;
        EXPECT_THAT(pass.text, HasSubstr("amporasrv: cannot make the window \"Ampora\" in " +
                                         LinuxRig().SessionFolder().string() + ": " + reason + "\n"));
        EXPECT_EQ(MainLines(pass), main);
        EXPECT_THAT(WorkerLines(pass), IsEmpty());
        EXPECT_THAT(Exchanges(), IsEmpty());
    }

    // While the copy waits no thread of it wakes up.
    static void ExpectRest(CCopy& copy)
    {
        copy.WaitForRest();
        const std::map<std::string, long> before = Switches(copy.ProcessId());
        EXPECT_THAT(before, SizeIs(2));
        std::this_thread::sleep_for(std::chrono::seconds(3));
        EXPECT_EQ(Switches(copy.ProcessId()), before);
    }
};

// Signals.

TEST_F(SystemLinuxLife, SignalsEndItOrderly)
{
    for (const char* signal : {"-TERM", "-INT", "-HUP"}) {
        const std::unique_ptr<CCopy> copy = StartArmed();
        RunCommand({"kill", signal, std::to_string(copy->ProcessId())});
        EXPECT_EQ(copy->WaitForExit(kEndLimit), 0) << signal;
        const CopyOutput pass = copy->Trace();
        EXPECT_EQ(pass.brokenLines, 0) << pass.text;
        EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
        ExpectWorkers(pass);
    }
}

TEST_F(SystemLinuxLife, SignalEndsItWhileADownloadHangs)
{
    const std::unique_ptr<CCopy> copy = StartStalled();
    RunCommand({"kill", "-TERM", std::to_string(copy->ProcessId())});
    EXPECT_EQ(copy->WaitForExit(milliseconds(2000)), 0);
    EXPECT_EQ(copy->Trace().brokenLines, 0) << copy->Text();
}

// Standard streams.

TEST_F(SystemLinuxLife, StartedWithoutStandardStreamsItKeepsTheirNumbersFree)
{
    // Symptom: a lock file became standard error, and the trace was written to it.
    Rig().PutSettings(Settings());
    LinuxRig().SetWrapper({"sh", "-c", "exec \"$0\" <&- >&- 2>&-"});
    const std::unique_ptr<CCopy> copy = Rig().Start();
    EXPECT_TRUE(WaitUntil([this] { return fs::exists(LinuxRig().SessionFolder() / "Ampora"); }, kCommandLimit));
    for (const char* number : {"0", "1", "2", "3"}) {
        std::error_code none;
        const std::string descriptor = "/proc/" + std::to_string(copy->ProcessId()) + "/fd/" + number;
        EXPECT_EQ(fs::read_symlink(descriptor, none) == "/dev/null", *number <= '2') << number;
    }
    RunCommand({"kill", std::to_string(copy->ProcessId())});
    EXPECT_EQ(copy->WaitForExit(kEndLimit), 0);
    EXPECT_EQ(fs::file_size(LinuxRig().SessionFolder() / "AmporaSrvMutex"), 1U);
}

TEST_F(SystemLinuxLife, ExitThatDoesNotGetThroughSaysSo)
{
    // Symptom: an order to end was lost in a full message queue, and the program that gave it ended with success.
    const std::unique_ptr<CCopy> copy = StartOff();
    RunCommand({"kill", "-STOP", std::to_string(copy->ProcessId())});
    std::unique_ptr<CCopy> exitCopy;
    std::optional<int> exitCode = 0;
    for (int i = 0; i < 2000 && exitCode == 0; ++i) { // as many as any system keeps
        exitCopy = Rig().Start({"/Exit"});
        exitCode = exitCopy->WaitForExit(kEndLimit);
    }
    EXPECT_EQ(exitCode, 1);
    EXPECT_THAT(exitCopy->Text(), HasSubstr("amporasrv: cannot post to the window: it takes no more messages\n"));
    RunCommand({"kill", "-CONT", std::to_string(copy->ProcessId())});
    EXPECT_EQ(copy->WaitForExit(kEndLimit), 0);
}

TEST_F(SystemLinuxLife, FoldersThatItCannotUseAreNamedAtTheStart)
{
    // Symptom: an ordinary user's program stored nothing and, without a trace level, did not say so.
    if (!IsSuperuser()) {
        return; // only the superuser can run it as somebody else
    }
    LinuxRig().RunAs(kNobody);
    for (const fs::path& folder : {Rig().CommonFolder(), LinuxRig().LockFolder()}) {
        fs::permissions(folder, fs::perms(0755));
    }
    Rig().PutSettings("");
    const std::unique_ptr<CCopy> copy = Rig().Start();
    const auto says = [&](const std::string& what, const fs::path& path) {
        return "amporasrv: cannot " + what + " " + path.string() + ": Permission denied\n";
    };
    const std::string expected = says("write to the data folder", Rig().DataFolder()) +
                                 says("use the lock", LinuxRig().LockFolder() / "AmporaSrvUpdateMutex");
    EXPECT_TRUE(WaitUntil([&] { return copy->Text() == expected; }, kCommandLimit)) << copy->Text();
    EndCopy(*copy);
    EXPECT_EQ(copy->Text(), expected);
}

// The session folder.

TEST_F(SystemLinuxLife, LeavesNoSocketBehindAndTakesNoMutexToEndACopy)
{
    Rig().PutSettings(Settings());
    EXPECT_EQ(Rig().Start({"/Exit"})->WaitForExit(kEndLimit), 0);
    EXPECT_FALSE(fs::exists(LinuxRig().SessionFolder() / "AmporaSrvMutex"));
    const std::unique_ptr<CCopy> copy = StartOff();
    EXPECT_TRUE(fs::is_socket(LinuxRig().SessionFolder() / "Ampora"));
    EXPECT_EQ(fs::status(LinuxRig().SessionFolder()).permissions(), fs::perms(0700));
    EndCopy(*copy);
    EXPECT_FALSE(fs::exists(LinuxRig().SessionFolder() / "Ampora"));
}

TEST_F(SystemLinuxLife, WritingToTheEventsFileAsksForAnUpdate)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    RunCommand({"sh", "-c", "echo >\"$0\"", (LinuxRig().SessionFolder() / "AmporaSrvUpdateEvent").string()});
    AwaitArmed(*copy, 2);
    EXPECT_THAT(Requests(), SizeIs(4));
    ExpectWorkers(EndCopy(*copy), WokenUp() + LaterPass() + IntervalArmed());
}

TEST_F(SystemLinuxLife, FilesThatAKilledCopyLeftAreTakenOver)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    copy->Kill();
    for (const char* name : {"Ampora", "AmporaSrvMutex", "AmporaSrvUpdateEvent"}) {
        EXPECT_TRUE(fs::exists(LinuxRig().SessionFolder() / name)) << name;
    }
    const std::unique_ptr<CCopy> exitCopy = Rig().Start({"/Exit"});
    EXPECT_EQ(exitCopy->WaitForExit(kEndLimit), 0);
    EXPECT_EQ(MainLines(exitCopy->Trace()), ExitMode({{"WAR", kInitInstance, "Not Found Window"}}));
    ExpectHealthyPassOfANewCopy();
}

TEST_F(SystemLinuxLife, OtherFileInPlaceOfTheSocketKeepsItFromStartingAndStaysAsItIs)
{
    MakeSessionFolder(0700);
    std::ofstream(LinuxRig().SessionFolder() / "Ampora") << "in the way";
    ExpectNoWindow("something else has this name", ProgramStart() + ProgramEnd());
    EXPECT_EQ(FileBytes(LinuxRig().SessionFolder() / "Ampora"), "in the way");
}

TEST_F(SystemLinuxLife, OtherFileInPlaceOfTheEventKeepsItFromUpdatingAndFromNothingElse)
{
    MakeSessionFolder(0700);
    std::ofstream(LinuxRig().SessionFolder() / "AmporaSrvUpdateEvent") << "in the way";
    const std::unique_ptr<CCopy> copy = StartBrief();
    const TraceLine noEvent{"ERR", "CAmporaUpdater::Start", "CreateEvent Fail."};
    EXPECT_TRUE(copy->WaitForLine(noEvent));
    fs::remove(LinuxRig().SessionFolder() / "AmporaSrvUpdateEvent");
    EXPECT_TRUE(PostRetrying(kPower, 18));
    AwaitArmed(*copy); // and the first pass, which is still to be made
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + Lines{noEvent} + DialogSays(kPowerHandler, "Resume") + ProgramEnd());
    ExpectWorkers(pass);
}

TEST_F(SystemLinuxLife, SessionFolderThatOthersMayEnterIsRefused)
{
    MakeSessionFolder(0755);
    ExpectNoWindow("the folder is not the user's own, or not the user's alone", Lines{kNoMutex} + ProgramStart());
    EXPECT_TRUE(fs::is_empty(LinuxRig().SessionFolder()));
}

TEST_F(SystemLinuxLife, SessionFolderThatIsALinkIsRefused)
{
    fs::create_directory(LinuxRig().ScratchFolder() / "elsewhere");
    fs::permissions(LinuxRig().ScratchFolder() / "elsewhere", fs::perms(0700));
    fs::create_directory_symlink(LinuxRig().ScratchFolder() / "elsewhere", LinuxRig().SessionFolder());
    Rig().PutSettings(Settings());
    const std::unique_ptr<CCopy> copy = Rig().Start();
    EXPECT_EQ(copy->WaitForExit(kEndLimit), 1);
    EXPECT_THAT(copy->Text(), HasSubstr("amporasrv: cannot make the window \"Ampora\""));
    EXPECT_TRUE(fs::is_empty(LinuxRig().ScratchFolder() / "elsewhere"));
}

TEST_F(SystemLinuxLife, SessionFolderOfAnotherUserIsRefused)
{
    if (!IsSuperuser()) {
        return; // only the superuser can make one
    }
    MakeSessionFolder(0700);
    RunCommand({"chown", std::to_string(kNobody), LinuxRig().SessionFolder().string()});
    ExpectNoWindow("the folder is not the user's own, or not the user's alone", Lines{kNoMutex} + ProgramStart());
}

TEST_F(SystemLinuxLife, RunsInAFolderOfItsOwnWithoutARuntimeFolder)
{
    // A user of whom nothing else on this machine runs.
    constexpr unsigned kUser = 54321;
    unsigned user = kUser;
    if (IsSuperuser()) {
        LinuxRig().RunAs(kUser);
    } else {
        user = static_cast<unsigned>(std::stoul(RunProcess({"id", "-u"}, {}, kCommandLimit).out));
    }
    const fs::path folder = "/tmp/AmporaSrv-" + std::to_string(user);
    ASSERT_FALSE(fs::exists(folder)) << "somebody uses it";
    Rig().SetVariable("XDG_RUNTIME_DIR", "");
    const std::unique_ptr<CCopy> copy = StartArmed();
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700));
    EXPECT_TRUE(fs::is_socket(folder / "Ampora"));
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
    fs::remove_all(folder);
}

// Two sessions.

TEST_F(SystemLinuxLife, CopiesOfTwoSessionsRunTheirPassesOneAfterTheOther)
{
    SetAnswerForAll([this](const Request& request) {
        testing_support::HttpAnswer answer = Healthy().Answer(request);
        answer.latencyMs = 3;
        return answer;
    });
    const std::unique_ptr<CLinuxRig> neighbour = MakeNeighbour();
    neighbour->PutSettings(Settings({}, kMessages, ""));
    Rig().PutSettings(Settings({}, kMessages, ""));
    const std::unique_ptr<CCopy> one = Rig().Start();
    const std::unique_ptr<CCopy> other = neighbour->Start();
    AwaitArmed(*one);
    AwaitArmed(*other);
    EXPECT_THAT(Requests(), SizeIs(2 * 42));
    ManualUpdate();
    EXPECT_TRUE(neighbour->Do("set AmporaSrvUpdateEvent"));
    AwaitArmed(*one, 2);
    AwaitArmed(*other, 2);
    EXPECT_THAT(Requests(), SizeIs(4 * 42));
    ExpectNoOverlap();
    for (const CopyOutput& pass : {EndCopy(*one), EndCopy(*neighbour, *other)}) {
        EXPECT_EQ(pass.exitCode, 0);
        EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
        ExpectWorkers(pass, WokenUp() + LaterPass() + IntervalArmed());
    }
}

TEST_F(SystemLinuxLife, PassOfAKilledCopyNoLongerHoldsUpTheOtherSessions)
{
    const std::unique_ptr<CLinuxRig> neighbour = MakeNeighbour();
    const std::unique_ptr<CCopy> one = StartStalled("");
    neighbour->PutSettings(Settings({}, kMessages, ""));
    const std::unique_ptr<CCopy> other = neighbour->Start();
    EXPECT_TRUE(other->WaitForLine(FirstPass().front()));
    other->WaitForRest();
    EXPECT_THAT(Requests(), SizeIs(1));
    one->Kill();
    AwaitArmed(*other);
    EXPECT_THAT(Requests(), SizeIs(1 + 42));
    ExpectNoOverlap();
    EXPECT_EQ(EndCopy(*neighbour, *other).exitCode, 0);
}

TEST_F(SystemLinuxLife, AnotherUsersLockOnTheMutexsFileCostsItsPassesAlone)
{
    // Symptom: a lock of another user on one byte of the file made the program hang at its start and ignore /Exit and
    // signals.
    for (const fs::path& folder : {LinuxRig().ScratchFolder(), LinuxRig().LockFolder()}) {
        fs::permissions(folder, fs::perms(0777));
    }
    std::vector<std::string> command = {"/usr/bin/python3", "-c",
                                        "import fcntl, os, sys; os.umask(0); file = open(sys.argv[1], 'w');"
                                        "fcntl.lockf(file, fcntl.LOCK_EX, 1); print('locked', flush=True); input()",
                                        (LinuxRig().LockFolder() / "AmporaSrvUpdateMutex").string()};
    if (IsSuperuser()) {
        command.insert(command.begin(), {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    }
    const CBackgroundProcess locker(command, {}, kCommandLimit);
    Rig().PutSettings(Settings());
    const std::unique_ptr<CCopy> copy = Rig().Start();
    EXPECT_TRUE(copy->WaitForLine({"ERR", "CAmporaUpdater::Start", "CreateMutex Fail."}));
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
}

TEST_F(SystemLinuxLife, CopyThatWaitsForAnotherSessionsPassEndsWithoutOne)
{
    const std::unique_ptr<CLinuxRig> neighbour = MakeNeighbour();
    const std::unique_ptr<CCopy> one = StartStalled();
    neighbour->PutSettings(Settings());
    const std::unique_ptr<CCopy> other = neighbour->Start();
    EXPECT_TRUE(other->WaitForLine(FirstPass().front()));
    other->WaitForRest();
    const CopyOutput pass = EndCopy(*neighbour, *other);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(Life(WorkerLines(pass)), (Lines{FirstPass().front(),
                                              {"TRA", "CAmporaUpdater::Update", "Exit Signal."},
                                              {"WAR", kThreadProc, "Update Fail."},
                                              {"TRA", kThreadProc, "Exit..."}}));
    EXPECT_THAT(Requests(), SizeIs(1));
}

// The login manager.

class SystemLinuxLogin : public SystemLinuxLife {
protected:
    SystemLinuxLogin()
    {
        m_bus.StartLoginManager();
        m_bus.AddSession("c1");
        Rig().SetVariable("DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address());
        Rig().SetVariable("XDG_SESSION_ID", "c1");
    }

    std::unique_ptr<CCopy> StartHeard(const Values& values = {})
    {
        std::unique_ptr<CCopy> copy = StartArmed(values);
        m_bus.AwaitListener("PrepareForSleep");
        m_bus.AwaitListener("PropertiesChanged");
        return copy;
    }

    testing_support::CLoginBus m_bus;
};

TEST_F(SystemLinuxLogin, SleepIsSuspendAndWakingUpIsResume)
{
    const std::unique_ptr<CCopy> copy = StartHeard();
    m_bus.PrepareForSleep(true);
    EXPECT_TRUE(copy->WaitForLine(WorkerEnd().back(), 2));
    m_bus.PrepareForSleep(false);
    AwaitArmed(*copy, 2);
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kPowerHandler, "Suspend") +
                                   DialogSays(kPowerHandler, "Resume") + ProgramEnd());
    ExpectTwoWorkers(pass);
    EXPECT_THAT(Requests(), SizeIs(2));
}

TEST_F(SystemLinuxLogin, SessionInTheBackgroundIsLeftAndInTheForegroundEntered)
{
    const std::unique_ptr<CCopy> copy = StartHeard();
    m_bus.SetProperty("c1", "Active", false);
    EXPECT_TRUE(copy->WaitForLine(WorkerEnd().back(), 2));
    m_bus.SetProperty("c1", "Active", true);
    AwaitArmed(*copy, 2);
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(MainLines(pass), ProgramStart() + DialogSays(kSessionHandler, "Leave User Session") +
                                   DialogSays(kSessionHandler, "Enter User Session") + ProgramEnd());
    ExpectTwoWorkers(pass);
}

TEST_F(SystemLinuxLogin, EndOfTheBusIsNoEndOfTheProgram)
{
    const std::unique_ptr<CCopy> copy = StartHeard({{"Enable", 0}});
    m_bus.Stop();
    ManualUpdate();
    AwaitArmed(*copy, 2);
    const CopyOutput pass = EndCopy(*copy);
    EXPECT_EQ(pass.exitCode, 0);
    EXPECT_EQ(MainLines(pass), ProgramStart() + ProgramEnd());
}

// Rest.

TEST_F(SystemLinuxLife, RestsWhileItWaits)
{
    const std::unique_ptr<CCopy> copy = StartArmed();
    ExpectRest(*copy);
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
}

TEST_F(SystemLinuxLogin, RestsWhenTheBusHasEnded)
{
    const std::unique_ptr<CCopy> copy = StartHeard();
    m_bus.Stop();
    ManualUpdate();
    AwaitArmed(*copy, 2);
    ExpectRest(*copy);
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
}

TEST_F(SystemLinuxLogin, RestsWhileItWaitsAndHears)
{
    const std::unique_ptr<CCopy> copy = StartHeard();
    ExpectRest(*copy);
    EXPECT_EQ(EndCopy(*copy).exitCode, 0);
}

} // namespace
} // namespace system_test
