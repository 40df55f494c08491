// A private dbus-daemon for one test program.
//
// The daemon runs with the configuration scripts/private-bus.conf (any connection may own any name and send to any
// other; the scripts' private bus uses it too), its socket in a temporary directory. While it runs,
// DBUS_SYSTEM_BUS_ADDRESS and DBUS_SESSION_BUS_ADDRESS point at it, so every D-Bus library in the process (and every
// child process) uses it instead of the machine's bus. The daemon dies with the test program, also when a test crashes.
#ifndef TESTBED_PRIVATE_BUS_H
#define TESTBED_PRIVATE_BUS_H

#include <sys/types.h>

#include <string>

namespace testbed {

class PrivateBus {
public:
    PrivateBus() = default;
    ~PrivateBus() { Stop(); }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Starts the daemon and exports its address; throws std::runtime_error on failure.
    void Start();
    // Stops the daemon (SIGTERM, then waits). Harmless when not running.
    void Stop();

    // The bus the test program's main started (null before main ran).
    static PrivateBus* Current() { return s_Current; }

private:
    static inline PrivateBus* s_Current = nullptr;
    pid_t m_Pid = -1;
    std::string m_SocketDir;
};

}  // namespace testbed

#endif
