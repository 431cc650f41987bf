// Command line of ampora-reportd.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace reportd {

// What the program is asked to do.
enum class Verb {
    kServe,    // no verb: answers requests until a signal
    kCheck,    // fetches each company's file once and tells what it found
    kImport,   // stores saved files
    kBackfill, // fetches and stores past days
};

enum class SourceKind { kSample, kLive };

struct Options {
    Verb verb = Verb::kServe;
    bool help = false; // true: nothing else counts
    bool version = false;
    std::optional<SourceKind> source = {};     // serve; none: live where the program has live sources, else sample
    std::optional<std::string> config = {};    // settings file, which must exist; none: the default one
    std::optional<std::string> listen = {};    // serve: numeric address to listen on; none: as the settings say
    std::optional<unsigned short> port = {};   // serve: 0 for any free one; none: as the settings say
    std::vector<std::string> files = {};       // import: at least one
    std::optional<std::string> company = {};   // import: key of the company whose files these are; none: by their names
    std::chrono::year_month_day firstDay = {}; // backfill: a day of the calendar
    std::optional<std::chrono::year_month_day> lastDay = {}; // backfill: not before firstDay; none: yesterday
    std::chrono::seconds pause{5}; // backfill: between two requests to one company, 5 s to an hour
};

// Where a server listens unless the settings or the command line say otherwise: where AmporaSrv asks by default.
inline constexpr const char* kDefaultListen = "127.0.0.1";
inline constexpr unsigned short kDefaultPort = 8470;

// A command line that is not understood; what() says why.
class COptionsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// arguments: without the program's name. Options follow the verb. Throws COptionsError.
Options ParseOptions(const std::vector<std::string>& arguments);

// An option, as help and manual show it.
struct OptionHelp {
    std::string_view name;
    std::string_view value; // what stands for its value; empty: it takes none
    std::string_view help;  // one sentence without a full stop
};

// The command lines that there are; one that starts with a blank goes on from the line before.
const std::vector<std::string>& UsageLines();

// All options, in the order of the help.
std::vector<OptionHelp> OptionHelps();

// What --help prints.
std::string HelpText();

} // namespace reportd
