#include "config/SettingsTable.h"
#include "config/SharedNames.h"
#include "ctl/Colour.h"
#include "ctl/CommandLine.h"
#include "ctl/TraceLine.h"
#include "ctl/Verbs.h"
#include "platform/LastError.h"
#include "platform/LetterCase.h"
#include "platform/Program.h"
#include "platform/Text.h"
#include "platform/TraceChannel.h"

#include <memory>

namespace ctl {

namespace {

constexpr wchar_t kUnitName[] = L"amporasrv.service"; // packaging/amporasrv.service.in

struct TraceOptions {
    std::vector<std::string> levels; // tags in small letters; empty: all
    std::string function;            // empty: all
};

void Note(const Console& console, const CString& text)
{
    console.err << platform::EncodeUtf8(L"amporactl: note: " + text + L"\n") << std::flush;
}

[[noreturn]] void FailToOpen()
{
    switch (const DWORD error = platform::GetLastErrorCode()) {
    case ERROR_ALREADY_EXISTS:
        throw CFailure(L"another program shows the debugger output already; end it first");
    case ERROR_NOT_SUPPORTED:
        throw CFailure(
            L"nobody keeps the trace lines of amporasrv; start it with 'systemctl --user start amporasrv', or "
            L"with 'amporasrv 2>FILE' to find them in a file");
    default:
        throw CFailure(platform::FormatText(L"the trace lines cannot be followed (error %u)", error));
    }
}

platform::TraceChannelPtr Open(const Console& console)
{
    const platform::ProgramPtr program = platform::FindProgramOfWindow(kWindowClassName);
    // One that runs but cannot be looked at may be followed all the same.
    const bool runs = program || platform::GetLastErrorCode() == ERROR_ACCESS_DENIED;
    platform::TraceChannelPtr channel =
        platform::OpenTraceChannel(kUnitName, program ? platform::ProcessIdentifierOf(program) : 0);
    if (!channel) {
        FailToOpen();
    }
    if (!runs) {
        Note(console, L"amporasrv is not running; waiting for it");
    }
    if (settings::FindContent(settings::kMainKey, settings::kLogLevel).content.number == 0) {
        Note(console, L"LogLevel is 0, so amporasrv writes nothing; change it with 'amporactl config set LogLevel "
                      L"err,war,tra', then 'amporactl restart'");
    }
    return channel;
}

bool IsWanted(const TraceOptions& options, const TraceLine& line)
{
    const auto isTag = [&](const std::string& level) {
        return platform::EqualsWithoutCase(platform::DecodeUtf8(level), line.tag);
    };
    if (!options.levels.empty() && std::ranges::none_of(options.levels, isTag)) {
        return false;
    }
    const CString wanted = platform::DecodeUtf8(options.function);
    const bool begins = platform::EqualsWithoutCase(line.function.substr(0, wanted.size()), wanted);
    const std::wstring_view rest = line.function.substr(std::min(wanted.size(), line.function.size()));
    return wanted.empty() || (begins && (rest.empty() || rest.starts_with(L"::")));
}

std::string_view ColourOf(const TraceLine& line)
{
    if (line.tag == L"ERR") {
        return kRed;
    }
    if (line.tag == L"WAR") {
        return kYellow;
    }
    return line.message == L"Enter" || line.message == L"Leave" ? kFaint : std::string_view();
}

// Writes a text that is a wanted line, at once.
void Show(const TraceOptions& options, platform::TraceText& text, const Console& console)
{
    while (text.text.ends_with(L'\n') || text.text.ends_with(L'\r')) {
        text.text.pop_back();
    }
    const std::optional<TraceLine> line = ParseTraceLine(text.text);
    // Another program's text that looks like a line is none.
    if (!line || (text.processId != 0 && text.processId != line->processId) || !IsWanted(options, *line)) {
        return;
    }
    const std::string_view colour = console.terminal.AllowsColour() ? ColourOf(*line) : std::string_view();
    console.out << colour << platform::EncodeUtf8(text.text) << (colour.empty() ? std::string_view() : kPlain) << '\n'
                << std::flush;
}

int Trace(const TraceOptions& options, const Console& console)
{
    const platform::TraceChannelPtr channel = Open(console);
    platform::TraceText text;
    while (console.out) {
        if (platform::ReadTraceText(channel, INFINITE, &text) != WAIT_OBJECT_0) {
            throw CFailure(platform::FormatText(L"the trace lines cannot be followed any longer (error %u)",
                                                platform::GetLastErrorCode()));
        }
        Show(options, text, console);
    }
    return kExitFailure;
}

} // namespace

void AddTrace(CCommandLine& program)
{
    const auto options = std::make_shared<TraceOptions>();
    CLI::App& verb = program.AddVerb("trace", "Show the trace lines of amporasrv while it writes them",
                                     "It shows them until Ctrl-C is pressed. LogLevel says which lines amporasrv\n"
                                     "writes at all. On Linux it shows those of the copy that systemd runs for the\n"
                                     "user.",
                                     "trace\ntrace --level err,war\ntrace --function CAmporaUpdater",
                                     [options](const Console& console) { return Trace(*options, console); });
    verb.add_option("--level", options->levels, "Only lines of these levels, with commas between them")
        ->delimiter(',')
        ->check(OneOf("level", {"err", "war", "tra"}));
    verb.add_option("--function", options->function, "Only lines of this function, or of all functions of this class")
        ->type_name("NAME");
}

} // namespace ctl
