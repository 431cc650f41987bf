#include "ctl/Control.h"

#include "config/SharedNames.h"
#include "ctl/Table.h"
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "format/DataFileReader.h"
#include "platform/LastError.h"
#include "platform/Sync.h"
#include "platform/Text.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

constexpr char kUsage[] = "usage: amporactl show [--folder DIR]\n"
                          "       amporactl update\n"
                          "       amporactl --help | --version\n"
                          "\n"
                          "show            print a table of the forecast data files\n"
                          "  --folder DIR  look in this folder instead of the common one\n"
                          "update          ask the amporasrv of this session for an update now\n"
                          "--help          print this text and end\n"
                          "--version       print the version and end\n"
                          "\n"
                          "Exit code: 0 when at least one file was shown and all are sound, or the update was\n"
                          "asked for; 1 when a file is faulty or there is none, or amporasrv is not running;\n"
                          "2 when the command line is not understood.\n";

enum class Action { kNone, kShow, kUpdate, kHelp, kVersion };

// What the command line asks for.
struct Command {
    Action action = Action::kNone;
    CString folder = {};  // empty: the common one
    CString problem = {}; // why the command line is not understood; empty when it is
};

// What one argument asks for on its own.
Action ActionOf(const CString& argument)
{
    constexpr std::pair<std::wstring_view, Action> kActions[] = {{L"show", Action::kShow},
                                                                 {L"update", Action::kUpdate},
                                                                 {L"--help", Action::kHelp},
                                                                 {L"-h", Action::kHelp},
                                                                 {L"--version", Action::kVersion}};
    const auto* const found = std::find_if(std::begin(kActions), std::end(kActions),
                                           [&](const auto& known) { return known.first == argument; });
    return found == std::end(kActions) ? Action::kNone : found->second;
}

// Whether a command may come now: there is one only, and an update has no folder.
bool MayStart(const Command& command, Action action)
{
    return command.action == Action::kNone &&
           (action == Action::kShow || (action == Action::kUpdate && command.folder.empty()));
}

Command ParseCommand(const std::vector<CString>& arguments)
{
    Command command;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const Action action = ActionOf(*argument);
        if (action == Action::kHelp || action == Action::kVersion) {
            return {action};
        }
        if (MayStart(command, action)) {
            command.action = action;
        } else if (*argument != L"--folder" || command.action == Action::kUpdate) {
            command.problem = L"unknown argument '" + *argument + L"'";
            return command;
        } else if (++argument == arguments.end() || argument->empty()) {
            command.problem = L"--folder needs the name of a folder";
            return command;
        } else {
            command.folder = *argument;
        }
    }
    if (command.action == Action::kNone) {
        command.problem = L"no command given";
    }
    return command;
}

bool IsUnknown(const SYSTEMTIME& time) { return time.wYear == 0; }

CString DayText(const SYSTEMTIME& time)
{
    return platform::FormatText(L"%04d-%02d-%02d", time.wYear, time.wMonth, time.wDay);
}

CString MinuteText(const SYSTEMTIME& time) { return platform::FormatText(L"%02d:%02d", time.wHour, time.wMinute); }

CString TimeText(const SYSTEMTIME& time)
{
    return IsUnknown(time) ? L"unknown" : DayText(time) + L" " + MinuteText(time);
}

CString SecondText(const SYSTEMTIME& time)
{
    return TimeText(time) + (IsUnknown(time) ? CString() : platform::FormatText(L":%02d", time.wSecond));
}

// "2012-07-02 13:00 - 13:05", with the end's day when it is another one.
CString PeriodText(const _AmporaOneData& record)
{
    const bool sameDay = !IsUnknown(record.stEnd) && DayText(record.stStart) == DayText(record.stEnd);
    return TimeText(record.stStart) + L" - " + (sameDay ? MinuteText(record.stEnd) : TimeText(record.stEnd));
}

bool StartsEarlier(const _AmporaOneData& left, const _AmporaOneData& right)
{
    const auto key = [](const SYSTEMTIME& time) {
        return std::tie(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    };
    return key(left.stStart) < key(right.stStart);
}

void AddFile(CTable& table, const catalogue::Company& company, const catalogue::Kind& kind, const DataFile& file)
{
    CString first = L"-";
    CString last = L"-";
    CString value = L"-";
    if (!file.records.empty()) {
        // The file keeps the order of the reports, which need not be that of time.
        const auto [earliest, latest] = std::minmax_element(file.records.begin(), file.records.end(), StartsEarlier);
        first = PeriodText(*earliest);
        last = PeriodText(*latest);
        value = platform::FormatText(L"%u", latest->ullValue);
    }
    table.AddRow({company.name.Wide(), kind.name.Wide(), platform::FormatText(L"%u", file.header.count), first, last,
                  value, SecondText(file.header.writeTime)});
}

int Show(const CString& folder, std::ostream& out, std::ostream& err)
{
    CTable table({{L"COMPANY", false},
                  {L"KIND", false},
                  {L"RECORDS", true},
                  {L"FIRST PERIOD", false},
                  {L"LAST PERIOD", false},
                  {L"NEWEST VALUE", true},
                  {L"WRITTEN", false}});
    int exitCode = kExitSuccess;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        for (const catalogue::Kind& kind : catalogue::kKinds) {
            const CString path = DataFileIn(folder, company.siteNumber, kind.dataType);
            const DataFile file = ReadDataFile(path, kind.dataType);
            if (file.fault == DataFileFault::kNone) {
                AddFile(table, company, kind, file);
            } else if (file.fault != DataFileFault::kMissing) {
                err << platform::EncodeUtf8(L"amporactl: " + path + L": " + file.reason + L"\n");
                exitCode = kExitFailure;
            }
        }
    }
    if (!table.IsEmpty()) {
        out << platform::EncodeUtf8(table.Text());
    } else if (exitCode == kExitSuccess) {
        err << platform::EncodeUtf8(L"amporactl: no data files in " + folder + L"\n");
        exitCode = kExitFailure;
    }
    return exitCode;
}

// amporasrv waits for the event as long as it runs and is neither suspended nor out of its session's foreground.
int Update(std::ostream& err)
{
    const platform::WaitHandle event = platform::OpenNamedEvent(kUpdateEventName);
    if (!event && platform::GetLastErrorCode() == ERROR_FILE_NOT_FOUND) {
        err << "amporactl: amporasrv is not running\n";
        return kExitFailure;
    }
    if (!event || !platform::SetNamedEvent(event)) {
        err << platform::EncodeUtf8(
            platform::FormatText(L"amporactl: amporasrv cannot be asked (error %u)\n", platform::GetLastErrorCode()));
        return kExitFailure;
    }
    return kExitSuccess;
}

} // namespace

int RunControl(const std::vector<CString>& arguments, std::ostream& out, std::ostream& err)
{
    const Command command = ParseCommand(arguments);
    if (!command.problem.empty()) {
        err << platform::EncodeUtf8(L"amporactl: " + command.problem + L"\n\n") << kUsage;
        return kExitUsage;
    }
    if (command.action == Action::kHelp) {
        out << kUsage;
        return kExitSuccess;
    }
    if (command.action == Action::kVersion) {
        out << "amporactl " AMPORA_VERSION "\n";
        return kExitSuccess;
    }
    if (command.action == Action::kUpdate) {
        return Update(err);
    }
    const CString folder = command.folder.empty() ? DataFolder() : command.folder;
    if (folder.empty()) {
        err << "amporactl: the common application-data folder is unknown; name one with --folder\n";
        return kExitFailure;
    }
    return Show(folder, out, err);
}
