#include "ReliabilitySupport.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <thread>

namespace reliability {

bool Eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kHangBound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string NestedArrays(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

std::string Filler(size_t size) {
    std::string text(size, 'x');
    for (size_t i = 0; i < size; i += 64) text[i] = static_cast<char>('a' + (i / 64) % 26);
    return text;
}

bool IsValidUtf8(const std::string& text) {
    return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
}

namespace {

std::string TakeFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    unlink(path.c_str());
    return text.str();
}

int TemporaryFile(std::string& path) {
    char name[] = "/tmp/veranti-run-XXXXXX";
    const int fd = mkostemp(name, O_CLOEXEC);
    path = name;
    return fd;
}

}  // namespace

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args) {
    std::string outPath, errPath;
    const int out = TemporaryFile(outPath), err = TemporaryFile(errPath);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        close(STDIN_FILENO);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(out);
    close(err);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    ProgramRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = TakeFile(outPath);
    run.err = TakeFile(errPath);
    return run;
}

}  // namespace reliability
