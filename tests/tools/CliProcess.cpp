#include "CliProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace clitest {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File TemporaryFile() {
    File file(std::tmpfile(), &std::fclose);
    if (!file) throw std::runtime_error("cannot create a temporary file");
    return file;
}

std::string ReadAll(FILE* file) {
    std::rewind(file);
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, n);
    return text;
}

}  // namespace

std::vector<std::string> CliRun::ErrLines() const {
    std::vector<std::string> lines;
    std::istringstream stream(err);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

CliRun RunProgram(const std::string& program, const std::vector<std::string>& args) {
    File out = TemporaryFile();
    File err = TemporaryFile();
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    const int outFd = fileno(out.get());
    const int errFd = fileno(err.get());
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("cannot fork");
    if (pid == 0) {
        const int devNull = open("/dev/null", O_RDONLY);
        dup2(devNull, STDIN_FILENO);
        dup2(outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int wstatus = 0;
    while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    CliRun run;
    run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    run.out = ReadAll(out.get());
    run.err = ReadAll(err.get());
    return run;
}

}  // namespace clitest
