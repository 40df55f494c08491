// Programs the tests start as child processes, always with the log off and dying with the test program: run to
// their end with their output captured, or kept running (a service on the private bus) while the test reads
// what they write.
#ifndef TESTBED_CHILD_PROCESS_H
#define TESTBED_CHILD_PROCESS_H

#include <gio/gio.h>

#include <csignal>
#include <string>
#include <vector>

namespace testbed {

// How a program ended: its exit status (-1 when a signal ended it) and its output.
struct ProgramRun {
    int status = -1;
    std::string out, err;
    bool ErrIsOneLine() const { return !err.empty() && err.find('\n') + 1 == err.size(); }
};

class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& argv);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Reads standard output up to a line that holds `text` (as a service says it serves); false at its end.
    bool AwaitOutput(const std::string& text);
    // The next line of standard output or error; empty at its end.
    std::string OutputLine() { return ReadLine(m_Out); }
    std::string ErrorLine() { return ReadLine(m_Err); }
    void Signal(int signal) { g_subprocess_send_signal(m_Process, signal); }
    // Waits for the program to end by itself: its exit status (-1 when a signal ended it).
    int Wait();
    // SIGTERM, then the exit status; again: the same status.
    int Stop() {
        Signal(SIGTERM);
        return Wait();
    }
    // Waits for the program to end, with the output not read line by line yet.
    ProgramRun Finish();

private:
    static std::string ReadLine(GDataInputStream* stream);

    GSubprocess* m_Process = nullptr;
    GDataInputStream* m_Out = nullptr;
    GDataInputStream* m_Err = nullptr;
};

// Runs `argv` to its end.
ProgramRun RunProgram(const std::vector<std::string>& argv);
// Runs `program` with the arguments in `line`, quoted as in a shell.
ProgramRun RunCommandLine(const std::string& program, const std::string& line);

}  // namespace testbed

#endif
