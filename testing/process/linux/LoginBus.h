// A system bus of a test's own, with a login manager that says what the test wants.
#pragma once

#include "testing/process/Process.h"
#include "testing/ScratchFolder.h"

#include <memory>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace testing_support {

// A private message bus, and on it, once started, a mock of the login manager. Both end with this object. Operations
// throw std::runtime_error when they fail. One thread at a time.
class CLoginBus {
public:
    // Starts the bus alone.
    CLoginBus();
    // Starts the login manager, which has no sessions at first.
    void StartLoginManager();
    // Ends the bus, as by a crash. The login manager ends with it.
    void Stop();

    // What $DBUS_SYSTEM_BUS_ADDRESS must be for the processes that are to use this bus.
    const std::string& Address() const { return m_address; }
    // Waits until somebody hears signals of this name.
    void AwaitListener(const std::string& signalName);

    // What the login manager says and does: a new session, in the foreground; a property of a session changes, such as
    // "Active"; the machine is about to sleep, or has woken up. identifier: as it stands in the session's path.
    void AddSession(const std::string& identifier);
    void SetProperty(const std::string& identifier, const std::string& name, bool value);
    void PrepareForSleep(bool begins);

    // Not the login manager, but some program tells those who hear it that the machine is about to sleep: by a signal
    // to everybody, and by one to each of them alone.
    void ForgePrepareForSleep();

private:
    struct CloseBus {
        void operator()(sd_bus* bus) const { ::sd_bus_flush_close_unref(bus); }
    };

    void Connect();
    bool HasLoginManager();
    std::vector<std::string> ListenersTo(const std::string& signalName);

    CScratchFolder m_folder;
    std::string m_address;
    std::optional<CBackgroundProcess> m_daemon;
    std::optional<CBackgroundProcess> m_loginManager;
    std::unique_ptr<sd_bus, CloseBus> m_bus; // the test's connection
};

} // namespace testing_support
