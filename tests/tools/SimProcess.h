// The built terms-service-sim as a child process of a test.
#ifndef TESTS_TOOLS_SIM_PROCESS_H
#define TESTS_TOOLS_SIM_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace simtest {

class SimProcess {
public:
    explicit SimProcess(std::vector<std::string> args);
    ~SimProcess();
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    // Starts the program and waits until it serves its bus name: true then;
    // false when it exited first (see ExitStatus) or did not serve in time.
    bool Start();
    // SIGTERM, then waits for the end; returns ExitStatus().
    int Stop();
    // The exit status once it ended, -1 while it runs or when a signal ended it.
    int ExitStatus() const { return m_ExitStatus; }

private:
    void Wait();

    std::vector<std::string> m_Args;
    pid_t m_Pid = -1;
    int m_OutputFd = -1;  // the child's standard output, kept open while it runs
    int m_ExitStatus = -1;
};

}  // namespace simtest

#endif
