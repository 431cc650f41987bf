#include "testing/process/linux/LoginBus.h"

#include <functional>
#include <stdexcept>
#include <system_error>

namespace testing_support {

namespace {

constexpr std::chrono::seconds kStartLimit{30};

constexpr const char* kLogin = "org.freedesktop.login1";
constexpr const char* kManagerPath = "/org/freedesktop/login1";
constexpr const char* kManagerInterface = "org.freedesktop.login1.Manager";
constexpr const char* kMockInterface = "org.freedesktop.DBus.Mock";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

constexpr const char* kConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>ADDRESS</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

// result: of a call of the library. Gives it back unless it says failure.
int Check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::generic_category().message(-result));
    }
    return result;
}

struct Unref {
    void operator()(sd_bus_message* message) const { ::sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, Unref>;

template <typename... Arguments>
Message Call(sd_bus* bus, const char* service, const char* path, const char* interface, const char* method,
             const char* types, const Arguments&... arguments)
{
    sd_bus_message* reply = nullptr;
    Check(::sd_bus_call_method(bus, service, path, interface, method, nullptr, &reply, types, arguments...), method);
    return Message(reply);
}

std::string SessionPath(const std::string& identifier) { return std::string(kManagerPath) + "/session/" + identifier; }

void Await(const std::string& what, const std::function<bool()>& condition)
{
    if (!WaitUntil(condition, kStartLimit)) {
        throw std::runtime_error("timed out waiting for the " + what);
    }
}

} // namespace

CLoginBus::CLoginBus() : m_address("unix:path=" + (m_folder.Path() / "bus").string())
{
    std::string configuration = kConfiguration;
    const std::string place = "ADDRESS";
    configuration.replace(configuration.find(place), place.size(), m_address);
    const std::string file = m_folder.Write("bus.conf", configuration).string();
    m_daemon.emplace(std::vector<std::string>{"dbus-daemon", "--config-file=" + file, "--nofork", "--nopidfile",
                                              "--nosyslog", "--print-address"},
                     EnvironmentChanges{}, kStartLimit);
    Connect();
}

void CLoginBus::Connect()
{
    sd_bus* bus = nullptr;
    Check(::sd_bus_new(&bus), "new bus");
    m_bus.reset(bus);
    Check(::sd_bus_set_address(bus, m_address.c_str()), "address");
    Check(::sd_bus_set_bus_client(bus, 1), "client");
    Check(::sd_bus_start(bus), "start");
}

void CLoginBus::StartLoginManager()
{
    // The mock says nothing when it has started.
    m_loginManager.emplace(std::vector<std::string>{"sh", "-c",
                                                    "echo started; exec /usr/bin/python3 -m dbusmock --system "
                                                    "--template logind --logfile /dev/null"},
                           EnvironmentChanges{{"DBUS_SYSTEM_BUS_ADDRESS", m_address}}, kStartLimit);
    Await("start of the login manager", [this] { return HasLoginManager(); });
}

void CLoginBus::Stop()
{
    m_bus.reset();
    m_daemon.reset();
    m_loginManager.reset();
}

void CLoginBus::AwaitListener(const std::string& signalName)
{
    Await("listener to " + signalName, [&] { return !ListenersTo(signalName).empty(); });
}

void CLoginBus::AddSession(const std::string& identifier)
{
    Call(m_bus.get(), kLogin, kManagerPath, kMockInterface, "AddSession", "ssusb", identifier.c_str(), "seat0", 1000U,
         "user", 1);
}

void CLoginBus::SetProperty(const std::string& identifier, const std::string& name, bool value)
{
    Call(m_bus.get(), kLogin, SessionPath(identifier).c_str(), kMockInterface, "UpdateProperties", "sa{sv}",
         "org.freedesktop.login1.Session", 1, name.c_str(), "b", value ? 1 : 0);
}

void CLoginBus::PrepareForSleep(bool begins)
{
    Call(m_bus.get(), kLogin, kManagerPath, kMockInterface, "EmitSignal", "sssav", kManagerInterface, "PrepareForSleep",
         "b", 1, "b", begins ? 1 : 0);
}

void CLoginBus::ForgePrepareForSleep()
{
    Check(::sd_bus_emit_signal(m_bus.get(), kManagerPath, kManagerInterface, "PrepareForSleep", "b", 1), "emit");
    for (const std::string& listener : ListenersTo("PrepareForSleep")) {
        sd_bus_message* message = nullptr;
        Check(::sd_bus_message_new_signal(m_bus.get(), &message, kManagerPath, kManagerInterface, "PrepareForSleep"),
              "signal");
        const Message owner(message);
        Check(::sd_bus_message_set_destination(message, listener.c_str()), "destination");
        Check(::sd_bus_message_append(message, "b", 1), "append");
        Check(::sd_bus_send(m_bus.get(), message, nullptr), "send");
    }
    // The bus takes one message after the other, so whatever the login manager says from here on comes later.
    HasLoginManager();
}

bool CLoginBus::HasLoginManager()
{
    int has = 0;
    const Message reply = Call(m_bus.get(), kBus, kBusPath, kBus, "NameHasOwner", "s", kLogin);
    Check(::sd_bus_message_read(reply.get(), "b", &has), "read");
    return has != 0;
}

std::vector<std::string> CLoginBus::ListenersTo(const std::string& signalName)
{
    const Message reply =
        Call(m_bus.get(), kBus, kBusPath, "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules", nullptr);
    std::vector<std::string> listeners;
    Check(::sd_bus_message_enter_container(reply.get(), 'a', "{sas}"), "enter");
    while (Check(::sd_bus_message_enter_container(reply.get(), 'e', "sas"), "enter") > 0) {
        const char* listener = nullptr;
        const char* rule = nullptr;
        Check(::sd_bus_message_read(reply.get(), "s", &listener), "read");
        Check(::sd_bus_message_enter_container(reply.get(), 'a', "s"), "enter");
        while (Check(::sd_bus_message_read(reply.get(), "s", &rule), "read") > 0) {
            if (std::string(rule).find(signalName) != std::string::npos) {
                listeners.emplace_back(listener);
            }
        }
        Check(::sd_bus_message_exit_container(reply.get()), "exit");
        Check(::sd_bus_message_exit_container(reply.get()), "exit");
    }
    return listeners;
}

} // namespace testing_support
