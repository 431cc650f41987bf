// Every promise that the checker watches can be broken, and it notices: programs with one flaw each.
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
#include <stdexcept>

namespace simulation {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t kSeed = 9;
constexpr LONGLONG kSecond = 10'000'000;

// A dialog that has an updater of any class.
template <class Updater>
class CStandIn : public platform::CMessageReceiver {
public:
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
        } else if (isPower) {
            m_updater->Start();
        }
        return platform::ProcessByDefault(window, message, wParam, lParam);
    }

    std::shared_ptr<Updater> m_updater = std::make_shared<Updater>();
};

// The program with another updater; its short copies are the real ones.
template <class Updater>
int RunStandIn(const std::vector<CString>& arguments)
{
    return arguments.empty() ? CStandIn<Updater>().Run() : RunAmporaSrv(arguments);
}

// What the checker says; empty when it is content.
std::string ViolationOf(Program program, const Options& options = {})
{
    CSimulation simulation(kSeed, options, std::move(program), false);
    simulation.Run();
    const auto& violation = simulation.FirstViolation();
    return violation ? violation->text : "";
}

template <class Updater>
std::string ViolationOf(const Options& options = {})
{
    return ViolationOf(RunStandIn<Updater>, options);
}

Options With(bool Options::*one, bool Options::*other = nullptr)
{
    Options options;
    options.*one = true;
    if (other != nullptr) {
        options.*other = true;
    }
    return options;
}

TEST(Checker, IsContentWithTheProgram) { EXPECT_EQ(ViolationOf(RunAmporaSrv), ""); }

TEST(Checker, IsContentWithAStandInWithoutFlaw)
{
    EXPECT_EQ(ViolationOf<CAmporaUpdater>(With(&Options::suspend, &Options::manual)), "");
}

// --- Passes do not overlap

class CAsksWithoutMutex : public CAmporaUpdater {
public:
    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        CAmporaHttpClient client;
        CString body;
        DWORD status = 0;
        client.GetData(L"http://host/", body, status);
        return CAmporaUpdater::Update(sites);
    }
};

TEST(Checker, NoticesARequestWithoutTheMutex)
{
    EXPECT_THAT(ViolationOf<CAsksWithoutMutex>(), HasSubstr("sends a request without the update mutex"));
}

class CWritesWithoutMutex : public CAmporaUpdater {
public:
    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        const BOOL result = CAmporaUpdater::Update(sites);
        platform::OpenForReplace(DataFilePath(kCompanies[0], kKinds[0]), MakeNullDacl(CTraceLog(L"")).get());
        return result;
    }
};

TEST(Checker, NoticesAFileWrittenWithoutTheMutex)
{
    EXPECT_THAT(ViolationOf<CWritesWithoutMutex>(), HasSubstr("writes a file without the update mutex"));
}

// Its pass is one, but for the mutex.
class CTakesNoTurn : public CAmporaUpdater {
public:
    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        CAmporaHttpClient client;
        for (; *sites != nullptr; ++sites) {
            UpdateOnePowerCompany(&client, *sites, {2012, 7, 0, 1, 0, 0, 0, 0}, {2012, 7, 0, 2, 0, 0, 0, 0});
        }
        return TRUE;
    }
};

TEST(Checker, NoticesAPassThatTakesNoTurn)
{
    EXPECT_THAT(ViolationOf<CTakesNoTurn>(), HasSubstr("looks for a site outside a pass"));
}

// --- Every pass that is due, once, in its time

// Does nothing until it is to end.
class CSleeps : public CAmporaUpdater {
public:
    void ThreadProc() override
    {
        const platform::WaitHandle never = platform::CreateNamedEvent(L"never", nullptr);
        while (!IsExitSet()) {
            platform::WaitForOne(never, 1000, FALSE);
        }
    }
};

TEST(Checker, NoticesThatTheFirstPassIsMissing)
{
    EXPECT_THAT(ViolationOf<CSleeps>(), HasSubstr("neither updates nor waits after its start"));
}

class CUpdatesTwice : public CAmporaUpdater {
public:
    BOOL Update(CAmporaSiteConfig* const* sites) override
    {
        CAmporaUpdater::Update(sites);
        return CAmporaUpdater::Update(sites);
    }
};

TEST(Checker, NoticesAPassThatIsMadeTwice)
{
    EXPECT_THAT(ViolationOf<CUpdatesTwice>(), HasSubstr("takes the update mutex out of turn"));
}

// Arms its timer for some seconds more or less than the settings say.
template <LONGLONG shiftSeconds>
class CArmsWrongly : public CAmporaUpdater {
public:
    CArmsWrongly()
    {
        LONG minimum = 0;
        LONG maximum = 0;
        CConfigUtil::GetIntervalSetting(m_interval, minimum, maximum);
    }
    BOOL SetIntervalUpdate(CWaitTableTimer* timer) override
    {
        CAmporaUpdater::SetIntervalUpdate(timer);
        LARGE_INTEGER due{};
        due.QuadPart = -(m_interval * LONGLONG{60} + shiftSeconds) * kSecond;
        return timer->Start(&due);
    }

private:
    LONG m_interval = 0;
};

TEST(Checker, NoticesAPassThatComesTooLate)
{
    EXPECT_THAT(ViolationOf<CArmsWrongly<86'400>>(), HasSubstr("leaves out a pass that is due"));
}

TEST(Checker, NoticesAPassThatComesTooEarly)
{
    EXPECT_THAT(ViolationOf<CArmsWrongly<-3'600>>(), HasSubstr("makes a pass that is not due"));
}

// As an interval does that counts from the pass's begin.
TEST(Checker, NoticesAnIntervalThatCountsFromAnotherMoment)
{
    EXPECT_THAT(ViolationOf<CArmsWrongly<-7>>(), HasSubstr("makes a pass that is not due"));
}

class CArmsNothing : public CAmporaUpdater {
public:
    BOOL SetIntervalUpdate(CWaitTableTimer* /*timer*/) override { return TRUE; }
};

TEST(Checker, NoticesATimerThatIsNotArmed)
{
    EXPECT_THAT(ViolationOf<CArmsNothing>(), HasSubstr("does not arm its timer"));
}

class CPassesOverUserSettings : public CAmporaUpdater {
public:
    BOOL SetIntervalUpdate(CWaitTableTimer* /*timer*/) override
    {
        platform::SettingsValue value;
        return platform::QuerySettingsValue(platform::Hive::kMachine, L"Software\\Halvex\\AmporaSrv", L"Interval",
                                            &value);
    }
};

TEST(Checker, NoticesThatTheUsersSettingsArePassedOver)
{
    EXPECT_THAT(ViolationOf<CPassesOverUserSettings>(), HasSubstr("passes over the user's settings"));
}

// Heeds neither its timer nor the event.
class CIsDeaf : public CAmporaUpdater {
public:
    BOOL SetIntervalUpdate(CWaitTableTimer* timer) override
    {
        CAmporaUpdater::SetIntervalUpdate(timer);
        const platform::WaitHandle never = platform::CreateNamedEvent(L"never", nullptr);
        while (!IsExitSet()) {
            platform::WaitForOne(never, 1000, FALSE);
        }
        throw std::runtime_error("told to end");
    }
};

TEST(Checker, NoticesThatARequestForAnUpdateIsNotHeeded)
{
    Options options = With(&Options::manual);
    EXPECT_THAT(ViolationOf<CIsDeaf>(options), HasSubstr("does not heed the update event"));
}

// A resumed machine gets a pass at once.
class CForgetsItsFirstPass : public CStandIn<CAmporaUpdater> {
public:
    LRESULT ReceiveMessage(platform::CWindow& window, UINT message, WPARAM wParam, LPARAM lParam) override
    {
        const LRESULT result = CStandIn<CAmporaUpdater>::ReceiveMessage(window, message, wParam, lParam);
        if (message == WM_POWERBROADCAST && wParam == PBT_APMSUSPEND) {
            m_updater = std::make_shared<CAmporaUpdater>();
        }
        return result;
    }
};

TEST(Checker, NoticesAFirstPassAfterResume)
{
    const Program program = [](const std::vector<CString>& arguments) {
        return arguments.empty() ? CForgetsItsFirstPass().Run() : RunAmporaSrv(arguments);
    };
    EXPECT_THAT(ViolationOf(program, With(&Options::suspend)), HasSubstr("makes an initial update that is none"));
}

// --- Nothing while updating is off

// Makes a pass before each wait, if updating was off when it was made.
class CIgnoresTheSwitch : public CAmporaUpdater {
public:
    BOOL SetIntervalUpdate(CWaitTableTimer* timer) override
    {
        CAmporaTokyoPowerCompany tokyo;
        CAmporaSiteConfig* const sites[] = {&tokyo, nullptr};
        if (m_isOff) {
            Update(sites);
        }
        return CAmporaUpdater::SetIntervalUpdate(timer);
    }

private:
    const bool m_isOff = !CConfigUtil::IsUpdateEnable();
};

TEST(Checker, NoticesAPassWhileUpdatingIsOff)
{
    EXPECT_THAT(ViolationOf<CIgnoresTheSwitch>(With(&Options::settings)), HasSubstr("takes the update mutex out of"));
}

// --- The files

// A site that changes what another one does.
class CChangedSite : public CAmporaSiteConfig {
public:
    explicit CChangedSite(CAmporaSiteConfig& site) : m_site(site) {}
    CString GetURL(DWORD dataType, SYSTEMTIME day) override { return m_site.GetURL(dataType, day); }
    std::unique_ptr<CAmporaDataCollection> AnalyzeData(DWORD dataType, CString body, DWORD status) override
    {
        return m_site.AnalyzeData(dataType, std::move(body), status);
    }
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        m_site.OutData(dataType, collection, writeTime);
    }

protected:
    CAmporaSiteConfig& m_site;
};

template <class Site>
class CUsesSite : public CAmporaUpdater {
public:
    void UpdateOnePowerCompany(CAmporaHttpClient* client, CAmporaSiteConfig* site, const SYSTEMTIME& start,
                               const SYSTEMTIME& end) override
    {
        Site changed(*site);
        CAmporaUpdater::UpdateOnePowerCompany(client, &changed, start, end);
    }
};

class CAddsRecord : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        CAmporaDataCollection more;
        more.AddAmporaData(collection);
        more.AddAmporaData(writeTime, writeTime, 1);
        m_site.OutData(dataType, &more, writeTime);
    }
};

TEST(Checker, NoticesAFileWithOtherContent)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CAddsRecord>>(), HasSubstr("writes something else"));
}

class CWritesAnotherTime : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        writeTime.wMilliseconds ^= 1;
        m_site.OutData(dataType, collection, writeTime);
    }
};

TEST(Checker, NoticesAFileWithAnotherTime)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CWritesAnotherTime>>(), HasSubstr("writes something else"));
}

class CWritesNothing : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    void OutData(DWORD /*dataType*/, const CAmporaDataCollection* /*collection*/, SYSTEMTIME /*writeTime*/) override {}
};

TEST(Checker, NoticesAFileThatIsNotWritten)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CWritesNothing>>(), HasSubstr("leaves out a file"));
}

class CWritesAnotherFile : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    void OutData(DWORD dataType, const CAmporaDataCollection* collection, SYSTEMTIME writeTime) override
    {
        m_site.OutData(dataType == 1 ? 2 : dataType, collection, writeTime);
    }
};

TEST(Checker, NoticesAnotherFile)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CWritesAnotherFile>>(), HasSubstr("for which there is no reason"));
}

class CAsksForAnotherDay : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    CString GetURL(DWORD dataType, SYSTEMTIME day) override
    {
        day.wDay = day.wDay == 1 ? 2 : 1;
        return m_site.GetURL(dataType, day);
    }
};

TEST(Checker, NoticesARequestForAnotherDay)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CAsksForAnotherDay>>(), HasSubstr("asks for "));
}

class CAsksForNothing : public CChangedSite {
public:
    using CChangedSite::CChangedSite;
    CString GetURL(DWORD dataType, SYSTEMTIME day) override
    {
        m_site.GetURL(dataType, day);
        return {};
    }
};

TEST(Checker, NoticesARequestThatIsLeftOut)
{
    EXPECT_THAT(ViolationOf<CUsesSite<CAsksForNothing>>(), HasSubstr("leaves out a request"));
}

class CEndsEarly : public CAmporaUpdater {
public:
    void UpdateOnePowerCompany(CAmporaHttpClient* /*client*/, CAmporaSiteConfig* /*site*/, const SYSTEMTIME& /*start*/,
                               const SYSTEMTIME& /*end*/) override
    {
    }
};

TEST(Checker, NoticesAPassThatEndsEarly) { EXPECT_THAT(ViolationOf<CEndsEarly>(), HasSubstr("ends its pass early")); }

TEST(Checker, NoticesAForeignFile)
{
    const Program program = [](const std::vector<CString>& arguments) {
        platform::sim::CMachine::Current().PutFile(L"C:other", {});
        return RunAmporaSrv(arguments);
    };
    EXPECT_THAT(ViolationOf(program), HasSubstr("is none of the program's"));
}

TEST(Checker, NoticesAFileThatIsChangedAfterwards)
{
    const Program program = [](const std::vector<CString>& arguments) {
        const int exitCode = RunAmporaSrv(arguments);
        const std::vector<CString> paths = platform::sim::CMachine::Current().FilePaths();
        if (!paths.empty()) {
            platform::sim::CMachine::Current().PutFile(paths.front(), {});
        }
        return exitCode;
    };
    EXPECT_THAT(ViolationOf(program), HasSubstr("does not hold what was written last"));
}

// --- After the faults

TEST(Checker, NoticesThatNothingHasConverged)
{
    const platform::sim::CMachine machine;
    CRunLog log(false);
    const CChecker::Answerer answer = [](const Kind&, const SYSTEMTIME&, const CZone&) { return Reply(); };
    CChecker files(machine, log, CZone(0), 0, answer);
    files.CheckConverged(0);
    ASSERT_TRUE(files.FirstViolation());
    EXPECT_THAT(files.FirstViolation()->text, HasSubstr("is not right again after the faults"));
    CChecker passes(machine, log, CZone(0), 0, answer);
    passes.CheckPassSince(1, 0);
    ASSERT_TRUE(passes.FirstViolation());
    EXPECT_THAT(passes.FirstViolation()->text, HasSubstr("has made no pass after the faults"));
}

// --- Stop and exit

// Wakes its worker without telling it to end.
class COnlyPulses : public CAmporaUpdater {
public:
    void Stop(DWORD timeoutMs) override
    {
        if (timeoutMs == 100) {
            platform::PulseNamedEvent(platform::CreateNamedEvent(kUpdateEventName, nullptr));
        } else {
            CAmporaUpdater::Stop(timeoutMs);
        }
    }
};

TEST(Checker, NoticesAWorkerThatGoesOnAfterAStop)
{
    EXPECT_THAT(ViolationOf<COnlyPulses>(With(&Options::suspend)), HasSubstr("goes on although it was told to end"));
}

class CStopsNothing : public CAmporaUpdater {
public:
    void Stop(DWORD timeoutMs) override
    {
        if (timeoutMs != 100) {
            CAmporaUpdater::Stop(timeoutMs);
        }
    }
};

TEST(Checker, NoticesAStopThatIsLeftOut)
{
    EXPECT_THAT(ViolationOf<CStopsNothing>(With(&Options::suspend)), HasSubstr("does not stop its worker"));
}

class CStartsOnce : public CAmporaUpdater {
public:
    BOOL Start() override { return std::exchange(m_hasStarted, true) ? TRUE : CAmporaUpdater::Start(); }

private:
    bool m_hasStarted = false;
};

TEST(Checker, NoticesAStartThatIsLeftOut)
{
    EXPECT_THAT(ViolationOf<CStartsOnce>(With(&Options::suspend)), HasSubstr("does not start its worker"));
}

// Takes five seconds more than it may.
int EndLate(const std::vector<CString>& arguments)
{
    const int exitCode = RunAmporaSrv(arguments);
    if (arguments.empty()) {
        platform::WaitForOne(platform::CreateNamedEvent(L"never", nullptr), 5'000, FALSE);
    }
    return exitCode;
}

TEST(Checker, NoticesAProgramThatDoesNotEnd)
{
    EXPECT_THAT(ViolationOf(EndLate, With(&Options::exits)), HasSubstr("does not end although it was told to"));
}

TEST(Checker, NoticesAProgramThatEndsByItself)
{
    const Program program = [](const std::vector<CString>&) { return 0; };
    EXPECT_THAT(ViolationOf(program), HasSubstr("ends without being told to"));
}

// Both copies run.
TEST(Checker, NoticesASecondCopyThatRuns)
{
    EXPECT_THAT(ViolationOf<CAmporaUpdater>(With(&Options::secondCopies)), HasSubstr("starts a worker unasked"));
}

TEST(Checker, NoticesASecondCopyThatStays)
{
    int copies = 0;
    const Program program = [&copies](const std::vector<CString>& arguments) {
        return ++copies == 1 ? RunAmporaSrv(arguments) : EndLate({});
    };
    EXPECT_THAT(ViolationOf(program, With(&Options::secondCopies)), testing::Not(""));
}

// --- Nothing is left

TEST(Checker, NoticesANamedObjectThatIsLeft)
{
    platform::WaitHandle left;
    const Program program = [&left](const std::vector<CString>& arguments) {
        left = platform::CreateNamedEvent(L"left", nullptr);
        return RunAmporaSrv(arguments);
    };
    EXPECT_THAT(ViolationOf(program), HasSubstr("named objects are left"));
}

TEST(Checker, NoticesAnHttpHandleThatIsLeft)
{
    platform::HttpConnectionPtr left;
    const Program program = [&left](const std::vector<CString>& arguments) {
        left = platform::OpenHttpConnection(platform::OpenHttpSession(L"agent", 1), L"host", 80);
        return RunAmporaSrv(arguments);
    };
    EXPECT_THAT(ViolationOf(program), HasSubstr("HTTP handles are left"));
}

} // namespace
} // namespace simulation
