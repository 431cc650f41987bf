// What the login manager tells of power and of the session.
#pragma once

#include "platform/linux/Waiting.h"
#include "platform/Types.h"

#include <memory>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <vector>

namespace platform::linux {

// What a window gets about it.
struct LoginNotice {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

// Listens to the login manager (logind) on the system bus. Nothing here waits: the bus may be slow or hang. A bus that
// is not there, fails or vanishes gives no more notices, and that is all. One thread.
class CLoginMonitor {
public:
    // Begins to connect; once. From then on it hears of power: WM_POWERBROADCAST when the machine is about to sleep and
    // when it has woken up.
    void Connect();

    // From now on it hears of this session, too, if there is one: WM_WTSSESSION_CHANGE when it comes to the foreground
    // and when it leaves it.
    void WatchSession();

    // What to poll; the descriptor is -1 without a bus. deadline: until when to poll at most, lowered here as needed.
    pollfd Watch(Deadline* deadline);
    // Does what is to be done after a poll, or at any time; the notices that came of it.
    std::vector<LoginNotice> Process();

private:
    struct CloseBus {
        void operator()(sd_bus* bus) const { ::sd_bus_close_unref(bus); }
    };

    void Match(const char* path, const char* interface, const char* member, sd_bus_message_handler_t handler);
    static int OnPrepareForSleep(sd_bus_message* message, void* monitor, sd_bus_error* error);
    static int OnPropertiesChanged(sd_bus_message* message, void* monitor, sd_bus_error* error);

    std::vector<LoginNotice> m_notices;
    LPARAM m_session = 0; // its number, if it has one
    bool m_watchesSession = false;
    std::unique_ptr<sd_bus, CloseBus> m_bus; // none: no notices
};

} // namespace platform::linux
