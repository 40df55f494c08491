#include "SimService.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace reliability {
namespace {

const int kServeTimeoutMs = 30000;
const char kServingLine[] = "terms-service-sim: serving ";

[[noreturn]] void Exec(const std::vector<std::string>& args, int stdoutFd, const std::string& logPath) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(stdoutFd, STDOUT_FILENO);
    setenv("DLOG_OUTPUT", ("file:" + logPath).c_str(), 1);
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

bool WaitForServing(int fd) {
    std::string output;
    pollfd ready = {fd, POLLIN, 0};
    while (output.find(kServingLine) == std::string::npos) {
        if (poll(&ready, 1, kServeTimeoutMs) != 1) return false;
        char chunk[256];
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got <= 0) return false;
        output.append(chunk, static_cast<size_t>(got));
    }
    return true;
}

}  // namespace

SimService::SimService(std::string storeRoot, std::vector<std::string> extra)
    : m_StoreRoot(std::move(storeRoot)), m_Extra(std::move(extra)), m_LogPath(m_StoreRoot + "/sim.log") {}

SimService::~SimService() { Kill(SIGKILL); }

bool SimService::Start() {
    std::vector<std::string> args = {TERMS_SERVICE_SIM_PATH, "--catalogue", SAMPLE_CATALOGUE, "--store-root",
                                     m_StoreRoot};
    args.insert(args.end(), m_Extra.begin(), m_Extra.end());
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    m_Pid = fork();
    if (m_Pid == 0) Exec(args, fds[1], m_LogPath);
    close(fds[1]);
    const bool serving = m_Pid > 0 && WaitForServing(fds[0]);
    // The service's output is not read any further; a write to the closed
    // pipe is ignored by the service.
    close(fds[0]);
    if (!serving) Kill(SIGKILL);
    return serving;
}

void SimService::Kill(int signal) {
    if (m_Pid <= 0) return;
    kill(m_Pid, signal);
    while (waitpid(m_Pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_Pid = -1;
}

std::string SimService::Log() const {
    std::ifstream file(m_LogPath);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace reliability
