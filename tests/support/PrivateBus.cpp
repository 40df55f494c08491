#include "PrivateBus.h"

#include <glib.h>
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

std::string ReadLine(int fd) {
    std::string line;
    char c;
    while (read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
}

}  // namespace

void PrivateBus::Start() {
    char dirTemplate[] = "/tmp/veranti-bus-XXXXXX";
    if (!mkdtemp(dirTemplate)) throw std::runtime_error("cannot create a directory for the private bus");
    m_SocketDir = dirTemplate;

    const std::string config = std::string("--config-file=") + PRIVATE_BUS_CONFIG;
    const std::string listen = "--address=unix:dir=" + m_SocketDir;
    const char* argv[] = {"dbus-daemon", config.c_str(),      listen.c_str(), "--nofork",
                          "--nopidfile", "--print-address=1", nullptr};
    // The daemon must not outlive the test program, even when it crashes.
    const auto dieWithParent = [](gpointer parent) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != GPOINTER_TO_INT(parent)) _exit(1);
    };
    int out = -1;
    const bool spawned = g_spawn_async_with_pipes(
        nullptr, const_cast<char**>(argv), nullptr, GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD),
        dieWithParent, GINT_TO_POINTER(getpid()), &m_Pid, nullptr, &out, nullptr, nullptr);
    const std::string address = spawned ? ReadLine(out) : std::string();
    if (spawned) close(out);
    if (address.empty()) {
        Stop();
        throw std::runtime_error("dbus-daemon did not start (is the dbus package installed?)");
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    s_Current = this;
}

void PrivateBus::Stop() {
    if (m_Pid > 0) {
        kill(m_Pid, SIGTERM);
        while (waitpid(m_Pid, nullptr, 0) < 0 && errno == EINTR) continue;
    }
    m_Pid = -1;
    if (!m_SocketDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_SocketDir, ignored);
        m_SocketDir.clear();
    }
}

}  // namespace testbed
