// Programs with one flaw each, and which invariant the checker finds violated.
#include "testing/simulation/Simulation.h"

#include "app/AmporaSrvDlg.h"
#include "config/ConfigUtil.h"
#include "config/SharedNames.h"
#include "engine/WaitTableTimer.h"
#include "fetch/AmporaPowerCompanies.h"
#include "fetch/NullDacl.h"
#include "platform/Files.h"
#include "platform/Timer.h"
#include "platform/Window.h"

#include <gmock/gmock.h>
#include <set>
#include <stdexcept>

namespace simulation {
namespace {

using Arguments = std::vector<CString>;

constexpr std::uint64_t kSeed = 9;
constexpr LONGLONG kSecond = 10'000'000;

// --- What the programs have in common

class CFlawedUpdater;

// What an updater does otherwise; it does the right thing for an empty member.
struct Flaw {
    std::function<BOOL(CFlawedUpdater&)> start = {};
    std::function<void(CFlawedUpdater&, DWORD timeoutMs)> stop = {};
    std::function<void(CFlawedUpdater&)> run = {};
    std::function<BOOL(CFlawedUpdater&, CAmporaSiteConfig* const* sites)> update = {};
    std::function<BOOL(CFlawedUpdater&, CWaitTableTimer& timer)> arm = {};
    std::function<void(CFlawedUpdater&)> updateCompany = {};
    std::function<CString(CAmporaSiteConfig&, DWORD dataType, SYSTEMTIME day)> url = {};
    std::function<void(CAmporaSiteConfig&, DWORD dataType, CAmporaDataCollection&, SYSTEMTIME writeTime)> write = {};
    bool forgetsItsFirstPass = false; // when the machine is suspended
};

// A site with the flaw of its updater.
class CFlawedSite : public CAmporaSiteConfig {
public:
    CFlawedSite(CAmporaSiteConfig& site, const Flaw& flaw) : m_site(site), m_flaw(flaw) {}
    CString GetURL(DWORD dataType, SYSTEMTIME day) override
    {
        return m_flaw.url ? m_flaw.url(m_site, dataType, day) : m_site.GetURL(dataType, day);
    }
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(DWORD dataType, CString body, DWORD status) override
    {
        return m_site.AnalyzeData(dataType, std::move(body), status);
    }
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        CAmporaDataCollection copy;
        copy.AddAmporaData(collection);
        if (m_flaw.write) {
            m_flaw.write(m_site, dataType, copy, writeTime);
        } else {
            m_site.OutData(dataType, &copy, writeTime);
        }
    }

private:
    CAmporaSiteConfig& m_site;
    const Flaw& m_flaw;
};

class CFlawedUpdater : public CAmporaUpdater {
public:
    explicit CFlawedUpdater(const Flaw& flaw) : m_flaw(flaw)
    {
        LONG minimum = 0;
        LONG maximum = 0;
        CConfigUtil::GetIntervalSetting(m_interval, minimum, maximum);
    }

    BOOL Start() override { return m_flaw.start ? m_flaw.start(*this) : CAmporaUpdater::Start(); }
    void Stop(DWORD timeoutMs) override
    {
        m_flaw.stop ? m_flaw.stop(*this, timeoutMs) : CAmporaUpdater::Stop(timeoutMs);
    }
    void ThreadProc() override { m_flaw.run ? m_flaw.run(*this) : CAmporaUpdater::ThreadProc(); }
    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        return m_flaw.update ? m_flaw.update(*this, sites) : CAmporaUpdater::Update(sites);
    }
    BOOL SetIntervalUpdate(CWaitTableTimer* timer) override
    {
        return m_flaw.arm ? m_flaw.arm(*this, *timer) : CAmporaUpdater::SetIntervalUpdate(timer);
    }
    void UpdateOnePowerCompany(CAmporaHttpClient* client, CAmporaSiteConfig* site, const SYSTEMTIME& start,
                               const SYSTEMTIME& end) override
    {
        CFlawedSite flawed(*site, m_flaw);
        if (m_flaw.updateCompany) {
            m_flaw.updateCompany(*this);
        } else {
            CAmporaUpdater::UpdateOnePowerCompany(client, &flawed, start, end);
        }
    }

    // Waits until it is told to end.
    void Sleep() const
    {
        const platform::WaitHandle never = platform::CreateNamedEvent(L"never", nullptr);
        while (!IsExitSet()) {
            platform::WaitForOne(never, 1000, FALSE);
        }
    }

    const bool m_wasOff = !CConfigUtil::IsUpdateEnable();
    LONG m_interval = 0;
    bool m_hasStarted = false;

private:
    const Flaw& m_flaw;
};

// The program's dialog with that updater.
class CFlawedDialog : public platform::CMessageReceiver {
public:
    explicit CFlawedDialog(const Flaw& flaw) : m_flaw(flaw) {}
    int Run()
    {
        platform::RegisterDialogClass(kWindowClassName);
        const platform::WindowPtr window = platform::CreateDialogWindow(kDialogTemplate, kWindowClassName, *this);
        const int result = platform::RunMessageLoop(*window);
        platform::DestroyDialogWindow(*window);
        return result;
    }

    LRESULT ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        const bool isPower = message == WM_POWERBROADCAST;
        if (message == WM_INITDIALOG) {
            platform::RegisterSessionNotices(window);
            m_updater->Start();
        } else if (message == WM_DESTROY) {
            m_updater->Stop(1000);
        } else if (isPower && wParam == PBT_APMSUSPEND) {
            m_updater->Stop(100);
            m_updater = m_flaw.forgetsItsFirstPass ? std::make_shared<CFlawedUpdater>(m_flaw) : m_updater;
        } else if (isPower) {
            m_updater->Start();
        }
        return platform::ProcessByDefault(window, message, wParam, lParam);
    }

private:
    const Flaw& m_flaw;
    std::shared_ptr<CFlawedUpdater> m_updater = std::make_shared<CFlawedUpdater>(m_flaw);
};

// The program with that updater; its short copies are the real ones.
Entry With(const Flaw& flaw)
{
    return [flaw](const Arguments& arguments) {
        return arguments.empty() ? CFlawedDialog(flaw).Run() : RunAmporaSrv(arguments);
    };
}

Options Only(bool Options::*one)
{
    Options options;
    options.*one = true;
    return options;
}

BOOL ArmFor(CFlawedUpdater& updater, CWaitTableTimer& timer, LONGLONG extraSeconds)
{
    updater.CAmporaUpdater::SetIntervalUpdate(&timer);
    LARGE_INTEGER due{};
    due.QuadPart = -(updater.m_interval * LONGLONG{60} + extraSeconds) * kSecond;
    return timer.Start(&due);
}

void SendRequest()
{
    CAmporaHttpClient client;
    CString body;
    DWORD status = 0;
    client.GetData(L"http://host/", body, status);
}

// Takes five seconds more than it may.
int EndLate(const Arguments& arguments)
{
    const int exitCode = RunAmporaSrv(arguments);
    if (arguments.empty()) {
        platform::WaitForOne(platform::CreateNamedEvent(L"never", nullptr), 5'000, FALSE);
    }
    return exitCode;
}

// --- The programs

struct FaultyProgram {
    const char* name;
    const char* invariant;
    Entry entry;
    Options options = {};
};

const FaultyProgram kFaultyPrograms[] = {
    // One pass at a time
    {"SendsARequestWithoutTheMutex", "RequestOwnsMutex",
     With({.update = [](CFlawedUpdater& updater, CAmporaSiteConfig* const* sites) {
         SendRequest();
         return updater.CAmporaUpdater::Update(sites);
     }})},
    {"WritesAFileWithoutTheMutex", "FileOwnsMutex",
     With({.update = [](CFlawedUpdater& updater, CAmporaSiteConfig* const* sites) {
         const BOOL result = updater.CAmporaUpdater::Update(sites);
         platform::OpenForReplace(DataFilePath(kTestCompanies[0], kTestKinds[0]), MakeNullDacl(CTraceLog(L"")).get());
         return result;
     }})},
    {"MakesAPassWithoutTheMutex", "SiteIsLookedUpInPass",
     With({.update = [](CFlawedUpdater& updater, CAmporaSiteConfig* const* sites) {
         CAmporaHttpClient client;
         updater.CAmporaUpdater::UpdateOnePowerCompany(&client, *sites, {2012, 7, 0, 1, 0, 0, 0, 0},
                                                       {2012, 7, 0, 2, 0, 0, 0, 0});
         return TRUE;
     }})},
    // Every pass that is due, once, in its time
    {"MakesNoFirstPass", "WorkerUpdatesOrWaits", With({.run = [](CFlawedUpdater& updater) { updater.Sleep(); }})},
    {"MakesAPassTwice", "MutexIsTakenInTurn",
     With({.update = [](CFlawedUpdater& updater, CAmporaSiteConfig* const* sites) {
         updater.CAmporaUpdater::Update(sites);
         return updater.CAmporaUpdater::Update(sites);
     }})},
    {"IsADayLate", "DuePassIsMade",
     With({.arm = [](CFlawedUpdater& updater, CWaitTableTimer& timer) { return ArmFor(updater, timer, 86'400); }})},
    {"IsAnHourEarly", "PassIsDue",
     With({.arm = [](CFlawedUpdater& updater, CWaitTableTimer& timer) { return ArmFor(updater, timer, -3'600); }})},
    // as with an interval that counts from the begin of the pass
    {"IsSomeSecondsEarly", "PassIsDue",
     With({.arm = [](CFlawedUpdater& updater, CWaitTableTimer& timer) { return ArmFor(updater, timer, -7); }})},
    {"ArmsNoTimer", "TimerIsArmed", With({.arm = [](CFlawedUpdater&, CWaitTableTimer&) { return TRUE; }})},
    {"PassesOverTheUsersSettings", "UserSettingsComeFirst",
     With({.arm = [](CFlawedUpdater&, CWaitTableTimer&) {
         platform::SettingsValue value;
         return platform::QuerySettingsValue(platform::Hive::kMachine, L"Software\\Halvex\\AmporaSrv", L"Interval",
                                             &value);
     }})},
    {"AsksTheUserForTheMasterSwitch", "MasterSwitchIsMachineWide",
     With({.arm = [](CFlawedUpdater&, CWaitTableTimer&) {
         platform::SettingsValue value;
         return platform::QuerySettingsValue(platform::Hive::kPerUser, L"Software\\Halvex\\AmporaSrv", L"Enable",
                                             &value);
     }})},
    {"IgnoresTheUpdateEvent", "UpdateEventIsAnswered",
     With({.arm = [](CFlawedUpdater& updater, CWaitTableTimer& timer) -> BOOL {
         updater.CAmporaUpdater::SetIntervalUpdate(&timer);
         updater.Sleep();
         throw std::runtime_error("told to end");
     }}),
     Only(&Options::manual)},
    {"MakesAFirstPassAfterResume", "FirstPassIsMadeOnce", With({.forgetsItsFirstPass = true}),
     Only(&Options::suspend)},
    {"MakesAPassWhileUpdatingIsOff", "MutexIsTakenInTurn",
     With({.arm = [](CFlawedUpdater& updater, CWaitTableTimer& timer) {
         CAmporaTokyoPowerCompany tokyo;
         CAmporaSiteConfig* const sites[] = {&tokyo, nullptr};
         if (updater.m_wasOff) {
             updater.CAmporaUpdater::Update(sites);
         }
         return updater.CAmporaUpdater::SetIntervalUpdate(&timer);
     }}),
     Only(&Options::settings)},
    // The files
    {"AddsARecord", "FileHoldsTheRecords",
     With({.write = [](CAmporaSiteConfig& site, DWORD dataType, CAmporaDataCollection& records, SYSTEMTIME writeTime) {
         records.AddAmporaData(writeTime, writeTime, 1);
         site.OutData(dataType, &records, writeTime);
     }})},
    {"WritesAnotherTime", "FileHoldsTheRecords",
     With({.write = [](CAmporaSiteConfig& site, DWORD dataType, CAmporaDataCollection& records, SYSTEMTIME writeTime) {
         writeTime.wMilliseconds ^= 1;
         site.OutData(dataType, &records, writeTime);
     }})},
    {"WritesNoFile", "FileIsNotLeftOut",
     With({.write = [](CAmporaSiteConfig&, DWORD, CAmporaDataCollection&, SYSTEMTIME) {}})},
    {"WritesAnotherFile", "FileIsWanted",
     With({.write = [](CAmporaSiteConfig& site, DWORD dataType, CAmporaDataCollection& records, SYSTEMTIME writeTime) {
         site.OutData(dataType == 1 ? 2 : dataType, &records, writeTime);
     }})},
    {"AsksForAnotherDay", "RequestIsTheNextOne",
     With({.url = [](CAmporaSiteConfig& site, DWORD dataType, SYSTEMTIME day) {
         day.wDay = day.wDay == 1 ? 2 : 1;
         return site.GetURL(dataType, day);
     }})},
    {"LeavesOutARequest", "RequestIsNotLeftOut",
     With({.url = [](CAmporaSiteConfig& site, DWORD dataType, SYSTEMTIME day) {
         site.GetURL(dataType, day);
         return CString();
     }})},
    {"SendsARequestTooMany", "RequestIsWanted",
     With({.write = [](CAmporaSiteConfig&, DWORD, CAmporaDataCollection&, SYSTEMTIME) { SendRequest(); }})},
    {"StandsStillInAPass", "PassGoesOn", With({.updateCompany = [](CFlawedUpdater& updater) { updater.Sleep(); }})},
    {"EndsAPassEarly", "PassIsComplete", With({.updateCompany = [](CFlawedUpdater&) {}})},
    {"WritesAForeignFile", "NoOtherFileIsLeft",
     [](const Arguments& arguments) {
         platform::sim::CMachine::Current().PutFile(L"C:other", {});
         return RunAmporaSrv(arguments);
     }},
    {"ChangesAFileAfterwards", "FilesHoldTheLastWrite",
     [](const Arguments& arguments) {
         const int exitCode = RunAmporaSrv(arguments);
         const std::vector<CString> paths = platform::sim::CMachine::Current().FilePaths();
         if (!paths.empty()) {
             platform::sim::CMachine::Current().PutFile(paths.front(), {});
         }
         return exitCode;
     }},
    // Start, stop and exit
    {"GoesOnAfterAStop", "NoPassAfterStop",
     With({.stop = [](CFlawedUpdater& updater, DWORD timeoutMs) {
         if (timeoutMs == 100) {
             platform::PulseNamedEvent(platform::CreateNamedEvent(kUpdateEventName, nullptr));
         } else {
             updater.CAmporaUpdater::Stop(timeoutMs);
         }
     }}),
     Only(&Options::suspend)},
    {"IgnoresAStop", "StopIsCarriedOut",
     With({.stop = [](CFlawedUpdater& updater, DWORD timeoutMs) {
         if (timeoutMs != 100) {
             updater.CAmporaUpdater::Stop(timeoutMs);
         }
     }}),
     Only(&Options::suspend)},
    {"StartsOnlyOnce", "StartIsCarriedOut",
     With({.start = [](CFlawedUpdater& updater) {
         return std::exchange(updater.m_hasStarted, true) ? TRUE : updater.CAmporaUpdater::Start();
     }}),
     Only(&Options::suspend)},
    {"EndsItsWorkerByItself", "WorkerEndsWhenTold", With({.run = [](CFlawedUpdater&) {}})},
    {"EndsTooLate", "QuitIsCarriedOut", EndLate, Only(&Options::exits)},
    {"EndsByItself", "ProgramEndsWhenTold", [](const Arguments&) { return 0; }},
    {"RunsASecondCopy", "WorkerStartsWhenTold", With({}), Only(&Options::secondCopies)},
    {"KeepsASecondCopy", "SecondCopyEndsAtOnce", EndLate, Only(&Options::secondCopies)},
    // Nothing is left
    {"LeavesANamedObject", "NoNamedObjectIsLeft",
     [left = std::make_shared<platform::WaitHandle>()](const Arguments& arguments) {
         *left = platform::CreateNamedEvent(L"left", nullptr);
         return RunAmporaSrv(arguments);
     }},
    {"LeavesAnHttpHandle", "NoHttpHandleIsLeft",
     [left = std::make_shared<platform::HttpConnectionPtr>()](const Arguments& arguments) {
         *left = platform::OpenHttpConnection(platform::OpenHttpSession(L"agent", 1), L"host", 80);
         return RunAmporaSrv(arguments);
     }},
};

// The name of the invariant that the program violates; empty when none.
std::string ViolationOf(const Entry& entry, const Options& options = {})
{
    CSimulation simulation(kSeed, options, entry, false);
    simulation.Run();
    const auto& violation = simulation.FirstViolation();
    return violation ? violation->invariant : "";
}

class CFaultyProgram : public testing::TestWithParam<FaultyProgram> {};

TEST_P(CFaultyProgram, ViolatesItsInvariant)
{
    EXPECT_EQ(ViolationOf(GetParam().entry, GetParam().options), GetParam().invariant);
}

INSTANTIATE_TEST_SUITE_P(Checker, CFaultyProgram, testing::ValuesIn(kFaultyPrograms),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Checker, FindsNothingInTheProgram) { EXPECT_EQ(ViolationOf(RunAmporaSrv), ""); }

TEST(Checker, FindsNothingWithoutAFlaw)
{
    Options options = Only(&Options::suspend);
    options.manual = true;
    EXPECT_EQ(ViolationOf(With({}), options), "");
}

TEST(Checker, NoticesThatNothingHasConverged)
{
    const platform::sim::CMachine machine;
    CRunLog log(false);
    const CChecker::Answerer answer = [](const TestKind&, const SYSTEMTIME&, const CZone&) { return Reply(); };
    CChecker passes(machine, log, CZone(0), 0, answer);
    passes.CheckConverged(1, 0);
    ASSERT_TRUE(passes.FirstViolation());
    EXPECT_EQ(passes.FirstViolation()->invariant, "SessionsConverge");
    CChecker files(machine, log, CZone(0), 0, answer);
    files.CheckConverged(0, 0);
    ASSERT_TRUE(files.FirstViolation());
    EXPECT_EQ(files.FirstViolation()->invariant, "FilesConverge");
}

TEST(Checker, NamesEachInvariantOnce)
{
    std::set<std::string> names;
    for (const Invariant& invariant : Invariants()) {
        EXPECT_TRUE(names.insert(invariant.name).second) << invariant.name;
    }
}

} // namespace
} // namespace simulation
