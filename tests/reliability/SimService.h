// The built terms-service-sim as a child process of a reliability test, on
// the test program's private bus, with its own store root. Unlike a polite
// stop, Kill ends it with a signal at any point of its work.
#ifndef RELIABILITY_SIM_SERVICE_H
#define RELIABILITY_SIM_SERVICE_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace reliability {

class SimService {
public:
    // storeRoot: the service's configuration store; extra: more options
    // (for example "--fail", "set all agreement=silent").
    explicit SimService(std::string storeRoot, std::vector<std::string> extra = {});
    ~SimService();
    SimService(const SimService&) = delete;
    SimService& operator=(const SimService&) = delete;

    // Starts it and waits until it serves the bus name; false if it did not.
    bool Start();
    // Sends the signal and waits for the process to end.
    void Kill(int signal);
    bool IsRunning() const { return m_Pid > 0; }
    // The service's log file (DLOG_OUTPUT), read whole.
    std::string Log() const;

private:
    std::string m_StoreRoot;
    std::vector<std::string> m_Extra;
    std::string m_LogPath;
    pid_t m_Pid = -1;
};

}  // namespace reliability

#endif
