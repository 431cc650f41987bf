#include "ctl/Json.h"
#include "ctl/KnownSettings.h"
#include "ctl/Nearest.h"
#include "ctl/Table.h"
#include "ctl/Verbs.h"
#include "platform/LastError.h"
#include "platform/SettingsWriter.h"
#include "platform/Text.h"

#include <memory>

namespace ctl {

namespace {

using platform::Hive;
using settings::Content;
using settings::ContentInForce;
using settings::Type;

struct ConfigOptions {
    std::string action;
    std::string name;
    std::string value;
    bool isUser = false;
    bool isMachine = false;
    bool isJson = false;
};

// The hive that the command line names, if it does.
std::optional<Hive> GivenHive(const ConfigOptions& options)
{
    if (options.isUser) {
        return Hive::kPerUser;
    }
    return options.isMachine ? std::optional(Hive::kMachine) : std::nullopt;
}

CString OfHive(Hive hive) { return hive == Hive::kPerUser ? L"the user's settings" : L"the machine's settings"; }

ContentInForce InForce(const KnownSetting& known) { return settings::FindContent(known.keyPath, known.setting); }

// Output.

void WriteSettingsAsJson(const Console& console, const Json& all) { WriteJson(console, "config", {{"settings", all}}); }

// "amporactl: note: ..." on standard error, for what is done all the same.
void Note(const Console& console, const CString& text)
{
    console.err << platform::EncodeUtf8(L"amporactl: note: " + text + L"\n");
}

// Tells of what the setting does not do by itself.
void WriteNotes(const Console& console, const KnownSetting& known)
{
    const settings::Setting& setting = known.setting;
    const LONG interval = settings::FindContent(settings::kMainKey, settings::kInterval).content.number;
    const LONG minimum = settings::FindContent(settings::kMainKey, settings::kIntervalMin).content.number;
    const bool isInterval = known.company == nullptr && CString(setting.name).starts_with(settings::kInterval.name);
    if (isInterval && interval + minimum <= 0) {
        Note(console,
             platform::FormatText(L"Interval %d and IntervalMin %d may make passes follow at once", interval, minimum));
    }
    const Content content = InForce(known).content;
    if (setting.needsRestart) {
        Note(console, L"a running amporasrv keeps the old value; restart it: amporactl restart");
        if ((content.number & 16) != 0 && (content.number & 8) == 0) {
            Note(console, L"16 (scope) has no effect without 8 (tra)");
        }
    }
}

// Actions.

int List(const ConfigOptions& options, const Console& console)
{
    CTable table({{L"SETTING", false},
                  {L"VALUE", false},
                  {L"FROM", false},
                  {L"DEFAULT", false},
                  {L"RANGE", false},
                  {L"MEANING", false}});
    Json all = Json::array();
    for (const KnownSetting& known : KnownSettings()) {
        const ContentInForce found = InForce(known);
        all.push_back(JsonSetting(known, found));
        table.AddRow({known.name, ContentText(known.setting, found.content), HiveText(found.hive), DefaultText(known),
                      RangeText(known.setting), known.setting.meaning});
    }
    if (options.isJson) {
        WriteSettingsAsJson(console, all);
    } else {
        console.out << platform::EncodeUtf8(table.Text(static_cast<std::size_t>(console.terminal.Columns())));
    }
    return kExitSuccess;
}

CFailure NotSet(const KnownSetting& known, Hive hive)
{
    return CFailure(known.name + L" is not set in " + OfHive(hive));
}

int Get(const ConfigOptions& options, const KnownSetting& known, const Console& console)
{
    ContentInForce found = InForce(known);
    if (const std::optional<Hive> hive = GivenHive(options)) {
        const std::optional<Content> content = settings::StoredContent(*hive, known.keyPath, known.setting);
        if (!content) {
            throw NotSet(known, *hive);
        }
        found = {*content, hive};
    }
    if (options.isJson) {
        WriteSettingsAsJson(console, Json::array({JsonSetting(known, found)}));
    } else {
        console.out << platform::EncodeUtf8(ContentText(known.setting, found.content) + L"\n");
    }
    return kExitSuccess;
}

// The failure of a change, by the last error.
CFailure ChangeFailure(const ConfigOptions& options, const KnownSetting& known, Hive hive)
{
    const DWORD code = platform::GetLastErrorCode();
    const CString place = platform::SettingsPlace(hive, known.keyPath);
    const auto failure = [&](const CString& reason) {
        return CFailure((place.empty() ? OfHive(hive) : place) + L": " + reason);
    };
    switch (code) {
    case ERROR_ACCESS_DENIED: {
        const CString command = platform::DecodeUtf8("amporactl config " + options.action + " " + options.name +
                                                     (options.value.empty() ? "" : " " + options.value) +
                                                     (options.isMachine ? " --machine" : ""));
        return failure(hive == Hive::kPerUser
                           ? CString(L"you have no right to change it")
                           : L"only administrators may change it; on Linux run 'sudo " + command + L"', on Windows '" +
                                 command + L"' in a prompt opened with 'Run as administrator'");
    }
    case ERROR_SHARING_VIOLATION:
        return failure(L"another program is changing it; try again");
    case ERROR_DISK_FULL:
        return failure(L"the disk is full");
    default:
        return failure(platform::FormatText(L"it cannot be changed (error %u)", code));
    }
}

// The hive that a change is for. Throws CFailure for one in which the setting would be ignored.
Hive HiveToChange(const ConfigOptions& options, const KnownSetting& known)
{
    if (known.setting.isMachineOnly && options.isUser) {
        throw CFailure(known.name + L" counts in " + OfHive(Hive::kMachine) + L" only; the user's would be ignored",
                       kExitUsage);
    }
    return GivenHive(options).value_or(known.setting.isMachineOnly ? Hive::kMachine : Hive::kPerUser);
}

// Shows what is in force after a change, which need not be what was changed.
int Report(const ConfigOptions& options, const KnownSetting& known, Hive changed, const Console& console)
{
    const ContentInForce found = InForce(known);
    if (options.isJson) {
        WriteSettingsAsJson(console, Json::array({JsonSetting(known, found)}));
    } else {
        console.out << platform::EncodeUtf8(known.name + L" = " + ContentText(known.setting, found.content) + L" (" +
                                            HiveText(found.hive) + L")\n");
    }
    if (changed == Hive::kMachine && found.hive == Hive::kPerUser) {
        Note(console, L"the user's value takes precedence over the machine's; remove it: amporactl config unset " +
                          known.name + L" --user");
    }
    WriteNotes(console, known);
    return kExitSuccess;
}

int Set(const ConfigOptions& options, const KnownSetting& known, const Console& console)
{
    const Hive hive = HiveToChange(options, known);
    const Content content = ParseContent(known, options.value);
    const platform::SettingsValue value = known.setting.type == Type::kText
                                              ? platform::SettingOfText(content.text)
                                              : platform::SettingOfNumber(static_cast<DWORD>(content.number));
    if (!platform::StoreSettingsValue(hive, known.keyPath, known.setting.name, value)) {
        throw ChangeFailure(options, known, hive);
    }
    return Report(options, known, hive, console);
}

int Unset(const ConfigOptions& options, const KnownSetting& known, const Console& console)
{
    // What is ignored may be removed.
    const Hive hive = GivenHive(options).value_or(known.setting.isMachineOnly ? Hive::kMachine : Hive::kPerUser);
    if (!platform::RemoveSettingsValue(hive, known.keyPath, known.setting.name)) {
        throw platform::GetLastErrorCode() == ERROR_FILE_NOT_FOUND ? NotSet(known, hive)
                                                                   : ChangeFailure(options, known, hive);
    }
    return Report(options, known, hive, console);
}

// The command line.

// Refuses what no action takes; each takes its own.
void CheckMisuse(const ConfigOptions& options)
{
    const CString action = L"config " + platform::DecodeUtf8(options.action);
    const auto refuse = [&](bool isMisuse, const CString& message) {
        if (isMisuse) {
            throw CFailure(action + message, kExitUsage);
        }
    };
    const bool isList = options.action == "list";
    const bool isSet = options.action == "set";
    refuse(isList && (!options.name.empty() || options.isUser || options.isMachine),
           L" shows all settings; use config get for one");
    refuse(!isList && options.name.empty(), L": the name of a setting is needed");
    refuse(isSet && options.value.empty(), L": a value is needed; config unset removes one");
    refuse(!isSet && !options.value.empty(), L": no value is needed");
}

int Run(const ConfigOptions& options, const Console& console)
{
    CheckMisuse(options);
    if (options.action == "list") {
        return List(options, console);
    }
    const KnownSetting known = FindKnownSetting(options.name).value();
    if (options.action == "set") {
        return Set(options, known, console);
    }
    return options.action == "get" ? Get(options, known, console) : Unset(options, known, console);
}

// Refuses a name that no setting has. The help and the completion of shells list the names.
CLI::Validator SettingName()
{
    std::vector<std::string> names;
    for (const KnownSetting& known : KnownSettings()) {
        names.push_back(platform::EncodeUtf8(known.name));
    }
    return {[names](const std::string& name) {
                return FindKnownSetting(name) ? std::string()
                                              : "there is no setting '" + name + "'" + Suggestion(name, names);
            },
            CLI::detail::join(names, "|"), "setting"};
}

} // namespace

void AddConfig(CCommandLine& program)
{
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App& verb = program.AddVerb("config", "Show and change the settings of AmporaSrv",
                                     "list shows every setting with its value, where that comes from, its default\n"
                                     "and its range; get prints one value; set stores one, unset removes it. A mask\n"
                                     "is a number or words: tokyo.SupportDataType actual,demand. Settings are\n"
                                     "changed for the user, Enable for the machine, unless an option says otherwise.",
                                     "config list\nconfig get Interval\nconfig set Interval 60\nconfig set Enable 1\n"
                                     "config set tokyo.SupportDataType instant,actual\nconfig unset Interval",
                                     [options](const Console& console) { return Run(*options, console); });
    verb.add_option("action", options->action, "What to do; without it, list")
        ->check(OneOf("action", {"list", "get", "set", "unset"}))
        ->default_val("list");
    verb.add_option("name", options->name, "The setting")->check(SettingName());
    verb.add_option("value", options->value, "Its new value")->type_name("VALUE");
    CLI::Option* const user = verb.add_flag("--user", options->isUser, "The setting of this user");
    verb.add_flag("--machine", options->isMachine, "The setting of the machine, for all users")->excludes(user);
    AddJson(verb, options->isJson);
}

} // namespace ctl
