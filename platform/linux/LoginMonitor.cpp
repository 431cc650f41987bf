#include "platform/linux/LoginMonitor.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace platform::linux {

namespace {

constexpr const char* kService = "org.freedesktop.login1";
constexpr const char* kManagerPath = "/org/freedesktop/login1";
constexpr const char* kManagerInterface = "org.freedesktop.login1.Manager";
constexpr const char* kSessionPath = "/org/freedesktop/login1/session";
constexpr const char* kSessionInterface = "org.freedesktop.login1.Session";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using LibraryText = std::unique_ptr<char, Free>;

// The identifier of the session that the process belongs to, or, for a process that belongs to none, such as a service
// of the user, that of the user's graphical one; empty for none.
std::string SessionIdentifier()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment of the program
    const char* const variable = std::getenv("XDG_SESSION_ID");
    if (variable != nullptr && *variable != '\0') {
        return variable;
    }
    char* found = nullptr;
    if (::sd_pid_get_session(0, &found) < 0 && ::sd_uid_get_display(::getuid(), &found) < 0) {
        return {};
    }
    return LibraryText(found).get();
}

LPARAM NumberOf(const std::string& identifier)
{
    LPARAM number = 0;
    const char* const end = identifier.data() + identifier.size();
    const auto [stop, error] = std::from_chars(identifier.data(), end, number);
    return error == std::errc() && stop == end ? number : 0;
}

// Whether the message went to everybody who asked for it. The bus looks at who sent such a one; a message to this
// process alone may come from anybody.
bool IsBroadcast(sd_bus_message* message) { return ::sd_bus_message_get_destination(message) == nullptr; }

// Reads the state of "Active" from the properties that have changed. False when it is not among them.
bool ReadActive(sd_bus_message* message, bool* active)
{
    const char* interface = nullptr;
    if (::sd_bus_message_read(message, "s", &interface) < 0 || std::strcmp(interface, kSessionInterface) != 0 ||
        ::sd_bus_message_enter_container(message, 'a', "{sv}") < 0) {
        return false;
    }
    while (::sd_bus_message_enter_container(message, 'e', "sv") > 0) {
        const char* name = nullptr;
        int value = 0;
        if (::sd_bus_message_read(message, "s", &name) < 0) {
            return false;
        }
        if (std::strcmp(name, "Active") == 0) {
            const bool isRead = ::sd_bus_message_read(message, "v", "b", &value) > 0;
            *active = value != 0;
            return isRead;
        }
        if (::sd_bus_message_skip(message, "v") < 0 || ::sd_bus_message_exit_container(message) < 0) {
            return false;
        }
    }
    return false;
}

} // namespace

void CLoginMonitor::Connect()
{
    sd_bus* bus = nullptr;
    if (::sd_bus_open_system(&bus) >= 0) {
        m_bus.reset(bus);
    }
    Match(kManagerPath, kManagerInterface, "PrepareForSleep", OnPrepareForSleep);
}

void CLoginMonitor::WatchSession()
{
    if (std::exchange(m_watchesSession, true)) {
        return;
    }
    const std::string identifier = SessionIdentifier();
    char* path = nullptr;
    if (identifier.empty() || ::sd_bus_path_encode(kSessionPath, identifier.c_str(), &path) < 0) {
        return;
    }
    m_session = NumberOf(identifier);
    Match(LibraryText(path).get(), kPropertiesInterface, "PropertiesChanged", OnPropertiesChanged);
}

void CLoginMonitor::Match(const char* path, const char* interface, const char* member, sd_bus_message_handler_t handler)
{
    if (m_bus && ::sd_bus_match_signal_async(m_bus.get(), nullptr, kService, path, interface, member, handler, nullptr,
                                             this) < 0) {
        m_bus.reset();
    }
}

pollfd CLoginMonitor::Watch(Deadline* deadline)
{
    if (!m_bus) {
        return {-1, 0, 0};
    }
    std::uint64_t dueUs = UINT64_MAX; // on the clock of Deadline; the maximum stands for never
    const int events = ::sd_bus_get_events(m_bus.get());
    const int descriptor = ::sd_bus_get_fd(m_bus.get());
    if (events < 0 || descriptor < 0 || ::sd_bus_get_timeout(m_bus.get(), &dueUs) < 0) {
        return {-1, 0, 0}; // Process will let it go
    }
    if (dueUs != UINT64_MAX) {
        const std::chrono::steady_clock::time_point due{std::chrono::microseconds(dueUs)};
        *deadline = *deadline ? std::min(**deadline, due) : due;
    }
    return {descriptor, static_cast<short>(events), 0};
}

std::vector<LoginNotice> CLoginMonitor::Process()
{
    int result = 1;
    while (m_bus && result > 0) {
        result = ::sd_bus_process(m_bus.get(), nullptr);
    }
    if (result < 0) {
        m_bus.reset();
    }
    return std::exchange(m_notices, {});
}

int CLoginMonitor::OnPrepareForSleep(sd_bus_message* message, void* monitor, sd_bus_error*)
{
    int begins = 0;
    if (IsBroadcast(message) && ::sd_bus_message_read(message, "b", &begins) > 0) {
        static_cast<CLoginMonitor*>(monitor)->m_notices.push_back(
            {WM_POWERBROADCAST, begins != 0 ? PBT_APMSUSPEND : PBT_APMRESUMEAUTOMATIC, 0});
    }
    return 0;
}

int CLoginMonitor::OnPropertiesChanged(sd_bus_message* message, void* monitor, sd_bus_error*)
{
    bool active = false;
    if (IsBroadcast(message) && ReadActive(message, &active)) {
        auto* const self = static_cast<CLoginMonitor*>(monitor);
        self->m_notices.push_back(
            {WM_WTSSESSION_CHANGE, active ? WTS_CONSOLE_CONNECT : WTS_CONSOLE_DISCONNECT, self->m_session});
    }
    return 0;
}

} // namespace platform::linux
