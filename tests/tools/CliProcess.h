// Runs terms-cli as a child process and collects what it wrote.
#ifndef TESTS_TOOLS_CLI_PROCESS_H
#define TESTS_TOOLS_CLI_PROCESS_H

#include <string>
#include <vector>

namespace clitest {

struct CliRun {
    int status = -1;  // the exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;

    // The lines of stderr (without their newlines).
    std::vector<std::string> ErrLines() const;
};

// Runs the program with `args`, in this process's environment, with stdin
// closed, and waits for it.
CliRun RunProgram(const std::string& program, const std::vector<std::string>& args);

}  // namespace clitest

#endif
