#include "SimProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace simtest {
namespace {

const int kServeTimeoutMs = 20000;
const char kServingLine[] = "terms-service-sim: serving ";

[[noreturn]] void ExecSimulator(const std::vector<std::string>& args, int stdoutFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(stdoutFd, STDOUT_FILENO);
    setenv("DLOG_MIN_PRIO", "W", 1);
    std::vector<char*> argv;
    static char program[] = TERMS_SERVICE_SIM_PATH;
    argv.push_back(program);
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(program, argv.data());
    _exit(127);
}

enum class Outcome { Serving, Ended, TimedOut };

// Reads the child's output until the line that says it serves, or its end.
Outcome WaitForServing(int fd) {
    std::string output;
    pollfd ready = {fd, POLLIN, 0};
    while (output.find(kServingLine) == std::string::npos) {
        if (poll(&ready, 1, kServeTimeoutMs) != 1) return Outcome::TimedOut;
        char chunk[256];
        const ssize_t got = read(fd, chunk, sizeof(chunk));
        if (got <= 0) return Outcome::Ended;
        output.append(chunk, static_cast<size_t>(got));
    }
    return Outcome::Serving;
}

}  // namespace

SimProcess::SimProcess(std::vector<std::string> args) : m_Args(std::move(args)) {}

SimProcess::~SimProcess() {
    Stop();
}

bool SimProcess::Start() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    m_ExitStatus = -1;
    m_Pid = fork();
    if (m_Pid == 0) ExecSimulator(m_Args, fds[1]);
    close(fds[1]);
    m_OutputFd = fds[0];
    if (m_Pid < 0) {
        close(m_OutputFd);
        m_OutputFd = -1;
        return false;
    }
    const Outcome outcome = WaitForServing(m_OutputFd);
    if (outcome == Outcome::TimedOut) kill(m_Pid, SIGKILL);
    if (outcome != Outcome::Serving) Wait();
    return outcome == Outcome::Serving;
}

int SimProcess::Stop() {
    if (m_Pid > 0) {
        kill(m_Pid, SIGTERM);
        Wait();
    }
    return m_ExitStatus;
}

void SimProcess::Wait() {
    int status = 0;
    while (waitpid(m_Pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_ExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m_Pid = -1;
    close(m_OutputFd);
    m_OutputFd = -1;
}

}  // namespace simtest
