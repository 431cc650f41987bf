#include "config/ConfigUtil.h"
#include "config/SharedNames.h"
#include "ctl/CommandLine.h"
#include "ctl/Freshness.h"
#include "ctl/RunningCopy.h"
#include "ctl/Verbs.h"
#include "format/DataFilePath.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/FolderWatch.h"
#include "platform/LastError.h"
#include "platform/Pause.h"
#include "platform/Sync.h"
#include "platform/Text.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace ctl {

namespace {

struct UpdateOptions {
    bool waits = false;
    int timeoutSeconds = 300;
};

// amporasrv begins a pass at once; a pass that fails at once may be over before it is seen.
constexpr DWORD kBeginMs = 3000;
constexpr DWORD kLookMs = 10;
constexpr DWORD kProgressMs = 250; // between two looks whether the pass has ended, while its progress is shown

// Fails with the system's error.
[[noreturn]] void Refuse(const wchar_t* what)
{
    throw CFailure(platform::FormatText(L"%s (error %u)", what, platform::GetLastErrorCode()));
}

// amporasrv waits for the event as long as it runs and is neither suspended nor out of its session's foreground.
platform::WaitHandle OpenUpdateEvent()
{
    platform::WaitHandle event = platform::OpenNamedEvent(kUpdateEventName);
    if (event) {
        return event;
    }
    if (platform::GetLastErrorCode() != ERROR_FILE_NOT_FOUND) {
        Refuse(L"amporasrv cannot be asked");
    }
    throw CFailure(CopyRuns() ? L"amporasrv makes no passes now: the machine suspends, or the session has been left"
                              : L"amporasrv is not running");
}

void Ask(const platform::WaitHandle& event)
{
    if (!platform::SetNamedEvent(event)) {
        Refuse(L"amporasrv cannot be asked");
    }
}

// What has become of the files.
struct Outcome {
    std::size_t renewedCount = 0;
    std::vector<CString> failures; // a line for each file that has not been renewed, or is faulty, and why
};

// The files that a pass is to renew: what has been written since this object was made counts as renewed. Looks at their
// last write only, while a pass may run: reading one would keep amporasrv from writing it.
class CAskedFiles {
public:
    CAskedFiles()
    {
        const CString folder = FolderOf({});
        for (const catalogue::Company& company : catalogue::kCompanies) {
            for (const catalogue::Kind& kind : catalogue::kKinds) {
                if (IsWanted(company, kind)) {
                    m_files.push_back(
                        {company, kind, DataFileIn(folder, company.siteNumber, kind.dataType), std::uint64_t{0}});
                }
            }
        }
        for (File& file : m_files) {
            file.before = LastWrite(file);
        }
    }

    std::size_t Count() const { return m_files.size(); }
    std::size_t RenewedCount() const { return static_cast<std::size_t>(std::ranges::count_if(m_files, IsRenewed)); }

    // Reads the files: to be asked when no pass runs.
    Outcome Look() const
    {
        Outcome outcome{RenewedCount(), {}};
        for (const File& file : m_files) {
            const CString name = CString(file.company.name.Wide()) + L" " + file.kind.name.Wide();
            if (!IsRenewed(file)) {
                outcome.failures.push_back(name + L" has not been renewed");
            } else if (const DataFile content = ReadDataFile(file.path, file.kind.dataType);
                       content.fault != DataFileFault::kNone) {
                outcome.failures.push_back(name + L": " + content.reason);
            }
        }
        return outcome;
    }

private:
    struct File {
        const catalogue::Company& company;
        const catalogue::Kind& kind;
        CString path;
        std::uint64_t before; // last write; 0: there was none
    };

    static std::uint64_t LastWrite(const File& file)
    {
        FILETIME time{};
        return platform::QueryLastWrite(file.path, &time) ? platform::CountOf(time) : 0;
    }
    static bool IsRenewed(const File& file) { return LastWrite(file) != file.before; }

    std::vector<File> m_files;
};

// The line on the terminal that tells how far the pass is.
class CProgress {
public:
    CProgress(const Console& console, const CAskedFiles& files)
        : m_out(console.out), m_files(files), m_isShown(console.terminal.Columns() > 0)
    {
        if (m_isShown) {
            m_watch = platform::OpenFolderWatch(FolderOf({}));
            Show();
        }
    }
    ~CProgress()
    {
        if (m_isShown) {
            Show();
            m_out << "\n";
        }
    }
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    bool IsShown() const { return m_isShown; }
    // Waits for a change, at most this long, and shows it.
    void Await(DWORD timeoutMs)
    {
        if (platform::WaitForFolderChange(m_watch, timeoutMs) == WAIT_FAILED) {
            platform::Pause(timeoutMs);
        }
        Show();
    }

private:
    void Show() { m_out << "\r" << m_files.RenewedCount() << " of " << m_files.Count() << " files" << std::flush; }

    std::ostream& m_out;
    const CAskedFiles& m_files;
    bool m_isShown;
    platform::FolderWatchPtr m_watch; // null when the folder cannot be watched
};

// Sees from outside when passes begin and end: during one, a copy owns the update mutex.
class CPassWatch {
public:
    explicit CPassWatch(const UpdateOptions& options)
        : m_mutex(platform::OpenNamedMutex(kUpdateMutexName)), m_end(platform::ReadTime() + options.timeoutSeconds),
          m_timeoutSeconds(options.timeoutSeconds)
    {
        if (!m_mutex) {
            Refuse(L"passes cannot be watched");
        }
    }

    // Waits until no pass runs, at most this long; whether that is so. The mutex is owned for a moment, in which look
    // (void()) is called.
    template <class Look>
    bool AwaitFree(DWORD timeoutMs, Look look) const
    {
        const DWORD waited = platform::WaitForOne(m_mutex, timeoutMs, FALSE);
        if (waited == WAIT_TIMEOUT) {
            return false;
        }
        if (waited == WAIT_FAILED) {
            Refuse(L"passes cannot be watched");
        }
        look();
        platform::ReleaseOwnedMutex(m_mutex);
        return true;
    }
    bool IsFree() const
    {
        return AwaitFree(0, [] {});
    }

    // Waits until a pass runs, or has run and renewed more files than these.
    void AwaitBegin(const CAskedFiles& files, std::size_t renewedCount) const
    {
        for (DWORD waitedMs = 0; waitedMs < kBeginMs && IsFree() && files.RenewedCount() == renewedCount;
             waitedMs += kLookMs) {
            platform::Pause(kLookMs);
        }
    }

    // Waits until no pass runs, and looks at the files before another one can begin. Throws CFailure when the time is
    // up before.
    Outcome AwaitEnd(CProgress& progress, const CAskedFiles& files) const
    {
        Outcome outcome;
        for (std::int64_t left = Left(); left > 0; left = Left()) {
            const bool isShown = progress.IsShown();
            if (AwaitFree(isShown ? 0 : static_cast<DWORD>(left * 1000), [&] { outcome = files.Look(); })) {
                return outcome;
            }
            if (isShown) {
                progress.Await(kProgressMs);
            }
        }
        throw CFailure(platform::FormatText(L"no pass has ended within %d seconds", m_timeoutSeconds));
    }

private:
    std::int64_t Left() const { return m_end - platform::ReadTime(); }

    platform::WaitHandle m_mutex;
    std::int64_t m_end; // time value
    int m_timeoutSeconds;
};

// Asks for a pass and waits until it has ended.
Outcome AskAndWait(const platform::WaitHandle& event, const CPassWatch& watch, const CAskedFiles& files,
                   const Console& console)
{
    CProgress progress(console, files);
    const bool passRuns = !watch.IsFree();
    Ask(event);
    if (!passRuns) {
        watch.AwaitBegin(files, 0);
    }
    Outcome outcome = watch.AwaitEnd(progress, files);
    if (passRuns && !outcome.failures.empty()) {
        // It had written some files before it was asked. The pass that follows may have ended, too: amporasrv begins it
        // at once, and need not leave the mutex to others between the two.
        watch.AwaitBegin(files, outcome.renewedCount);
        outcome = watch.AwaitEnd(progress, files);
    }
    return outcome;
}

int Report(const Outcome& outcome, const Console& console)
{
    if (outcome.renewedCount == 0) {
        throw CFailure(L"no file has been renewed; 'amporactl status' tells why");
    }
    for (const CString& line : outcome.failures) {
        console.err << platform::EncodeUtf8(L"amporactl: " + line + L"\n");
    }
    return outcome.failures.empty() ? kExitSuccess : kExitFailure;
}

int UpdateAndWait(const UpdateOptions& options, const Console& console)
{
    if (!CConfigUtil::IsUpdateEnable()) {
        throw CFailure(L"updating is off, amporasrv ignores requests; 'amporactl config set Enable 1 --machine' "
                       L"switches it on");
    }
    const platform::WaitHandle event = OpenUpdateEvent();
    const CPassWatch watch(options);
    const CAskedFiles files;
    if (files.Count() == 0) {
        throw CFailure(L"the settings switch all companies or kinds off");
    }
    return Report(AskAndWait(event, watch, files, console), console);
}

int Update(const UpdateOptions& options, const Console& console)
{
    if (options.waits) {
        return UpdateAndWait(options, console);
    }
    Ask(OpenUpdateEvent());
    return kExitSuccess;
}

} // namespace

void AddUpdate(CCommandLine& program)
{
    const auto options = std::make_shared<UpdateOptions>();
    CLI::App& verb =
        program.AddVerb("update", "Ask the amporasrv of this session for an update now", "", "update\nupdate --wait",
                        [options](const Console& console) { return Update(*options, console); });
    CLI::Option* const wait = verb.add_flag("--wait", options->waits, "Return when the files have been renewed");
    constexpr int kLongestSeconds = 24 * 60 * 60;
    verb.add_option("--timeout", options->timeoutSeconds, "Give up waiting after this time; without it, 300")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongestSeconds))
        ->needs(wait);
}

} // namespace ctl
