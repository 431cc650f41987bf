#include "ctl/Chart.h"
#include "ctl/Show.h"
#include "ctl/Verbs.h"
#include "platform/FolderWatch.h"
#include "platform/LastError.h"
#include "platform/Text.h"

#include <memory>
#include <sstream>

namespace ctl {

namespace {

// A pass writes its files one after the other, and cannot write one that is being read: after a change, what is shown
// waits for this much quiet.
constexpr DWORD kQuietMs = 1000;
constexpr int kMostWaits = 10; // but not longer than so often
constexpr const char* kClear = "\x1b[H\x1b[2J";

platform::FolderWatchPtr Open(const CString& folder)
{
    platform::FolderWatchPtr watch = platform::OpenFolderWatch(folder);
    if (!watch) {
        throw CFailure(platform::FormatText(L"%s cannot be watched (error %u)", folder, platform::GetLastErrorCode()));
    }
    return watch;
}

// What there is to see now: the files, or why there is nothing.
std::string View(const Selection& selection, const Console& console)
{
    std::ostringstream text;
    const Console buffer{text, text, console.terminal};
    try {
        if (selection.company.empty()) {
            ShowTable(selection, buffer);
        } else {
            ShowChart(selection, buffer);
        }
    } catch (const CFailure& failure) {
        text << "amporactl: " << failure.what() << "\n";
    }
    return text.str();
}

// Waits for a change and for the quiet after it.
void Await(const platform::FolderWatchPtr& watch, const CString& folder)
{
    DWORD result = platform::WaitForFolderChange(watch, INFINITE);
    for (int i = 0; i < kMostWaits && result == WAIT_OBJECT_0; ++i) {
        result = platform::WaitForFolderChange(watch, kQuietMs);
    }
    if (result == WAIT_FAILED) {
        throw CFailure(
            platform::FormatText(L"%s cannot be watched any more (error %u)", folder, platform::GetLastErrorCode()));
    }
}

int Watch(const Selection& selection, const Console& console)
{
    const CString folder = FolderOf(selection);
    platform::FolderWatchPtr watch = Open(folder);
    std::string shown;
    for (;;) {
        const std::string view = View(selection, console);
        if (view != shown) {
            const char* const separator = shown.empty() ? "" : "\n";
            console.out << (console.terminal.TakesSequences() ? kClear : separator) << view;
            shown = view;
        }
        if (!console.out.flush()) {
            return kExitFailure; // whoever read it has gone
        }
        Await(watch, folder);
        // A folder that has been made anew needs a new watch.
        watch = Open(folder);
    }
}

} // namespace

void AddWatch(CCommandLine& program)
{
    const auto selection = std::make_shared<Selection>();
    CLI::App& verb =
        program.AddVerb("watch", "Show the table, or the chart of a company, again whenever a file changes",
                        "Ends with Ctrl-C. It also waits for data files that are not there yet.", "watch\nwatch tokyo",
                        [selection](const Console& console) { return Watch(*selection, console); });
    AddCompany(verb, *selection).description("The company whose chart is shown; without it, the table");
    AddFolder(verb, *selection);
}

} // namespace ctl
