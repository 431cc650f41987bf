#include "testing/ControlTest.h"

#include "config/SettingsTable.h"

#include <nlohmann/json.hpp>

namespace {

using namespace settings;

using platform::Hive;
using platform::sim::Call;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class Config : public testing_support::CControlTest {
protected:
    // The program's answer to "config ..." that succeeds.
    std::string Ask(std::vector<CString> arguments)
    {
        arguments.insert(arguments.begin(), L"config");
        EXPECT_EQ(Run(arguments), 0) << m_err;
        return m_out;
    }
    // What it says when the command line is wrong.
    std::string Misuse(std::vector<CString> arguments)
    {
        arguments.insert(arguments.begin(), L"config");
        EXPECT_EQ(Run(arguments), 2);
        EXPECT_EQ(m_out, "");
        return m_err;
    }
};

// Showing.

TEST_F(Config, ListsEverySettingWithItsOrigin)
{
    m_machine.PutDword(Hive::kMachine, kMainKey, L"Enable", 1);
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"IntervalMin", static_cast<DWORD>(-5));
    m_machine.PutText(Hive::kMachine, kMainKey, L"ApiHost", L"reports.example:8470");
    const std::string list = Ask({});
    EXPECT_EQ(list, Ask({L"list"}));
    EXPECT_THAT(list,
                StartsWith("SETTING                 VALUE                 FROM     DEFAULT         RANGE              "
                           "MEANING\n"
                           "Enable                  1                     machine  0               0 or 1             "
                           "whether amporasrv updates the data files\n"));
    EXPECT_THAT(list,
                AllOf(HasSubstr("IntervalMin             -5                    user     -15             -1440 to"),
                      HasSubstr("ApiHost                 reports.example:8470  machine  127.0.0.1:8470  host or host"),
                      HasSubstr("chubu.SupportDataType   26                    default  26              0 to 31")));
    EXPECT_EQ(std::ranges::count(list, '\n'), 1 + 9 + 5 * 2);
    EXPECT_EQ(m_err, "");
}

TEST_F(Config, ListFitsIntoANarrowTerminal)
{
    m_machine.SetTerminal(40, false);
    EXPECT_THAT(Ask({L"list"}), HasSubstr("\nApiHost                 127.0.0.1:8470\n"
                                          "    default  127.0.0.1:8470\n"
                                          "    host or host:port\n"
                                          "    host or host:port of the report API\n"));
}

TEST_F(Config, GetPrintsTheValueAlone)
{
    m_machine.PutDword(Hive::kMachine, SiteKey(3), L"SupportDataType", 17);
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"Interval", 60);
    m_machine.PutDword(Hive::kMachine, kMainKey, L"Interval", 90);
    m_machine.PutDword(Hive::kMachine, kMainKey, L"LogLevel", 0xFFFFFFFF);
    const struct {
        std::vector<CString> arguments;
        std::string value;
    } cases[] = {
        {{L"get", L"Interval"}, "60\n"},
        {{L"get", L"interval", L"--machine"}, "90\n"},
        {{L"get", L"Interval", L"--user"}, "60\n"},
        {{L"get", L"tokyo.SupportDataType"}, "17\n"},
        {{L"get", L"site\\3\\SupportDataType"}, "17\n"},
        {{L"get", L"kyushu.supportdatatype"}, "25\n"},
        {{L"get", L"ApiHost"}, "127.0.0.1:8470\n"},
        {{L"get", L"LogLevel"}, "4294967295\n"},
    };
    for (const auto& [arguments, value] : cases) {
        EXPECT_EQ(Ask(arguments), value);
    }
    EXPECT_EQ(Run({L"config", L"get", L"FixedClock", L"--user"}), 1);
    EXPECT_EQ(m_err, "amporactl: FixedClock is not set in the user's settings\n");
}

TEST_F(Config, JsonHasTheWholeSetting)
{
    m_machine.PutDword(Hive::kPerUser, SiteKey(5), L"SupportDataType", 18);
    const auto json = nlohmann::json::parse(Ask({L"get", L"chubu.SupportDataType", L"--json"}));
    EXPECT_EQ(json["schema"], "amporactl.config");
    const nlohmann::json expected = {
        {"name", "chubu.SupportDataType"},
        {"value", 18},
        {"hive", "user"},
        {"default", 26},
        {"words", {"actual", "demand"}},
        {"minimum", 0},
        {"maximum", 31},
        {"meaning", platform::EncodeUtf8(kSupportDataType.meaning)},
        {"machineOnly", false},
        {"needsRestart", false},
        {"key", "Software\\Halvex\\AmporaSrv\\site\\5"},
        {"valueName", "SupportDataType"},
    };
    EXPECT_EQ(json["settings"], nlohmann::json::array({expected}));
    EXPECT_EQ(nlohmann::json::parse(Ask({L"list", L"--json"}))["settings"].size(), 19U);
}

// Changing.

TEST_F(Config, SetStoresSensibleValues)
{
    const struct {
        CString name;
        CString text;
        Hive hive;
        CString keyPath;
        const Setting& setting;
        LONG number;
    } cases[] = {
        {L"Enable", L"1", Hive::kMachine, kMainKey, kEnable, 1},
        {L"Enable", L"off", Hive::kMachine, kMainKey, kEnable, 0},
        {L"Interval", L"1440", Hive::kPerUser, kMainKey, kInterval, 1440},
        {L"IntervalMin", L"-15", Hive::kPerUser, kMainKey, kIntervalMin, -15},
        {L"IntervalMax", L"+15", Hive::kPerUser, kMainKey, kIntervalMax, 15},
        {L"loglevel", L"27", Hive::kPerUser, kMainKey, kLogLevel, 27},
        {L"LogLevel", L"0x0B", Hive::kPerUser, kMainKey, kLogLevel, 11},
        {L"LogLevel", L"err,WAR", Hive::kPerUser, kMainKey, kLogLevel, 3},
        {L"LogLevel", L"all", Hive::kPerUser, kMainKey, kLogLevel, 27},
        {L"LogLevel", L"none", Hive::kPerUser, kMainKey, kLogLevel, 0},
        {L"tokyo.Enable", L"ON", Hive::kPerUser, SiteKey(3), kSiteEnable, 1},
        {L"site\\9\\Enable", L"0", Hive::kPerUser, SiteKey(9), kSiteEnable, 0},
        {L"tokyo.SupportDataType", L"instant,demand", Hive::kPerUser, SiteKey(3), kSupportDataType, 17},
        {L"tokyo.SupportDataType", L"all", Hive::kPerUser, SiteKey(3), kSupportDataType, 31},
    };
    for (const auto& [name, text, hive, keyPath, setting, number] : cases) {
        Ask({L"set", name, text});
        EXPECT_THAT(StoredContent(hive, keyPath, setting), testing::Optional(testing::Field(&Content::number, number)))
            << platform::EncodeUtf8(name + L" " + text);
    }
    for (const CString& host : {CString(L"reports.example"), CString(L"10.0.0.1:80"), CString(L"[::1]:8470")}) {
        EXPECT_EQ(Ask({L"set", L"ApiHost", host, L"--machine"}),
                  "ApiHost = " + platform::EncodeUtf8(host) + " (machine)\n");
    }
    EXPECT_EQ(m_err, "");
}

TEST_F(Config, NonsenseIsRefusedWithAReason)
{
    const struct {
        std::vector<CString> arguments;
        std::string reason;
    } cases[] = {
        {{L"set", L"Interval", L"0"}, "amporactl: Interval: '0' is not in the range 1 to 1440\n"},
        {{L"set", L"Interval", L"99999999999"}, "amporactl: Interval: '99999999999' is not in the range 1 to 1440\n"},
        {{L"set", L"IntervalMin", L"-99999999999"}, "amporactl: IntervalMin: '-99999999999' is not in the range"},
        {{L"set", L"Interval", L"30m"}, "amporactl: Interval: '30m' is not a number, 1 to 1440\n"},
        {{L"set", L"Interval", L" 30"}, "amporactl: Interval: ' 30' is not a number"},
        {{L"set", L"FixedClock", L"24"}, "amporactl: FixedClock: '24' is not in the range 0 to 23\n"},
        {{L"set", L"Enable", L"2"}, "amporactl: Enable: '2' is not in the range 0 or 1\n"},
        {{L"set", L"Enable", L"yes"}, "amporactl: Enable: 'yes' is not 0 or 1, on or off\n"},
        {{L"set", L"LogLevel", L"32"}, "amporactl: LogLevel: '32' is not in the range 0 to 31\n"},
        {{L"set", L"LogLevel", L"err,wra"},
         "amporactl: LogLevel: 'wra' is not one of all, none, err, war, tra, scope; did you mean "
         "'war'?\n"},
        {{L"set", L"tokyo.SupportDataType", L"1,2"},
         "amporactl: tokyo.SupportDataType: '1' is not one of all, none, instant"},
        {{L"set", L"ApiHost", L"http://reports.example"},
         "amporactl: ApiHost: 'http://reports.example' is not host or"},
        {{L"set", L"ApiHost", L"reports.example:"},
         "amporactl: ApiHost: 'reports.example:' is not host or host:port\n"},
        {{L"set", L"ApiHost", L"reports.example:65536"}, "amporactl: ApiHost: 'reports.example:65536' is not"},
        {{L"set", L"ApiHost", L"reports example"}, "amporactl: ApiHost: 'reports example' is not host or host:port\n"},
        {{L"set", L"Enable", L"1", L"--user"},
         "amporactl: Enable counts in the machine's settings only; the user's would be ignored\n"},
        {{L"set", L"Intervall", L"3"},
         "amporactl config: name: there is no setting 'Intervall'; did you mean 'Interval'?\n"},
        {{L"get", L"site\\4\\Enable"}, "amporactl config: name: there is no setting 'site\\4\\Enable'"},
        {{L"show"}, "amporactl config: action: there is no action 'show'"},
        {{L"list", L"Interval"}, "amporactl: config list shows all settings; use config get for one\n"},
        {{L"list", L"--user"}, "amporactl: config list shows all settings; use config get for one\n"},
        {{L"get"}, "amporactl: config get: the name of a setting is needed\n"},
        {{L"set", L"Interval"}, "amporactl: config set: a value is needed; config unset removes one\n"},
        {{L"unset", L"Interval", L"3"}, "amporactl: config unset: no value is needed\n"},
        {{L"get", L"Interval", L"--user", L"--machine"}, "amporactl config: --"},
    };
    for (const auto& [arguments, reason] : cases) {
        EXPECT_THAT(Misuse(arguments), StartsWith(reason));
    }
    EXPECT_EQ(m_machine.CallCount(Call::kStoreSettingsValue), 0U);
    EXPECT_EQ(m_machine.CallCount(Call::kRemoveSettingsValue), 0U);
}

TEST_F(Config, UnsetBringsBackWhatIsBelow)
{
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"Interval", 60);
    m_machine.PutDword(Hive::kMachine, kMainKey, L"Interval", 90);
    m_machine.PutDword(Hive::kPerUser, kMainKey, L"Enable", 1);
    EXPECT_EQ(Ask({L"unset", L"Interval"}), "Interval = 90 (machine)\n");
    EXPECT_EQ(Run({L"config", L"unset", L"Interval"}), 1);
    EXPECT_EQ(m_err, "amporactl: Interval is not set in the user's settings\n");
    EXPECT_EQ(Ask({L"unset", L"Interval", L"--machine"}), "Interval = 30 (default)\n");
    EXPECT_EQ(Ask({L"unset", L"Enable", L"--user"}), "Enable = 0 (default)\n") << "what was ignored";
}

TEST_F(Config, NotesTellWhatAChangeDoesNotDoByItself)
{
    Ask({L"set", L"LogLevel", L"16"});
    EXPECT_EQ(m_err, "amporactl: note: a running amporasrv keeps the old value; restart it: amporactl restart\n"
                     "amporactl: note: 16 (scope) has no effect without 8 (tra)\n");
    Ask({L"set", L"Interval", L"10"});
    EXPECT_EQ(m_err, "amporactl: note: Interval 10 and IntervalMin -15 may make passes follow at once\n");
    EXPECT_EQ(Ask({L"set", L"FixedClock", L"8"}), "FixedClock = 8 (user)\n");
    EXPECT_EQ(m_err, "");
    EXPECT_EQ(Ask({L"set", L"FixedClock", L"7", L"--machine"}), "FixedClock = 8 (user)\n");
    EXPECT_EQ(m_err, "amporactl: note: the user's value takes precedence over the machine's; remove it: amporactl "
                     "config unset FixedClock --user\n");
}

TEST_F(Config, AChangeThatFailsNamesPlaceAndReason)
{
    const std::string user = "amporactl: HKEY_CURRENT_USER\\Software\\Halvex\\AmporaSrv: ";
    const std::string machine = "amporactl: HKEY_LOCAL_MACHINE\\Software\\Halvex\\AmporaSrv: ";
    const std::string administrators = "only administrators may change it; on Linux run 'sudo ";
    const struct {
        std::vector<CString> arguments;
        DWORD code;
        std::string text;
    } cases[] = {
        {{L"set", L"Enable", L"1"},
         ERROR_ACCESS_DENIED,
         machine + administrators +
             "amporactl config set Enable 1', on Windows 'amporactl config set Enable 1' in a prompt opened with 'Run "
             "as "
             "administrator'\n"},
        {{L"unset", L"Interval", L"--machine"},
         ERROR_ACCESS_DENIED,
         machine + administrators + "amporactl config unset Interval --machine', on Windows"},
        {{L"set", L"Interval", L"3"}, ERROR_ACCESS_DENIED, user + "you have no right to change it\n"},
        {{L"set", L"Interval", L"3"}, ERROR_SHARING_VIOLATION, user + "another program is changing it; try again\n"},
        {{L"set", L"Interval", L"3"}, ERROR_DISK_FULL, user + "the disk is full\n"},
        {{L"unset", L"Interval"}, 1450, user + "it cannot be changed (error 1450)\n"},
    };
    for (const auto& [arguments, code, text] : cases) {
        m_machine.FailEvery(Call::kStoreSettingsValue, code);
        m_machine.FailEvery(Call::kRemoveSettingsValue, code);
        std::vector<CString> all = {L"config"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(Run(all), 1);
        EXPECT_EQ(m_out, "");
        EXPECT_THAT(m_err, StartsWith(text));
    }
}

} // namespace
