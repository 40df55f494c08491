#include "PrivateBus.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace testbed {
namespace {

PrivateBus* g_Current = nullptr;

std::string ReadLine(int fd) {
    std::string line;
    char c;
    while (read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
}

}  // namespace

PrivateBus::~PrivateBus() {
    Stop();
}

PrivateBus* PrivateBus::Current() {
    return g_Current;
}

void PrivateBus::Start() {
    char dirTemplate[] = "/tmp/veranti-bus-XXXXXX";
    if (!mkdtemp(dirTemplate)) throw std::runtime_error("cannot create a directory for the private bus");
    m_SocketDir = dirTemplate;

    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) throw std::runtime_error("cannot create a pipe for the private bus");
    const std::string configArg = std::string("--config-file=") + PRIVATE_BUS_CONFIG;
    const std::string listenArg = "--address=unix:dir=" + m_SocketDir;
    const std::string addressArg = "--print-address=" + std::to_string(pipeFds[1]);
    const pid_t parent = getpid();
    m_Pid = fork();
    if (m_Pid == 0) {
        // The daemon must not outlive the test program, even when it crashes.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        fcntl(pipeFds[1], F_SETFD, 0);
        execlp("dbus-daemon", "dbus-daemon", configArg.c_str(), listenArg.c_str(), "--nofork", "--nopidfile",
               addressArg.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeFds[1]);
    const std::string address = m_Pid > 0 ? ReadLine(pipeFds[0]) : std::string();
    close(pipeFds[0]);
    if (address.empty()) {
        Stop();
        throw std::runtime_error("dbus-daemon did not start (is the dbus package installed?)");
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    g_Current = this;
}

void PrivateBus::Stop() {
    if (m_Pid > 0) {
        kill(m_Pid, SIGTERM);
        while (waitpid(m_Pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    m_Pid = -1;
    if (!m_SocketDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_SocketDir, ignored);
        m_SocketDir.clear();
    }
}

}  // namespace testbed
