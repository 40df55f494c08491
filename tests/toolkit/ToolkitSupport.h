// Helpers of the toolkit tests: records, other processes, and the main loop.
#ifndef TOOLKIT_SUPPORT_H
#define TOOLKIT_SUPPORT_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "TermsDbusAPI.h"

namespace toolkit_test {

// A request over texts and bytes that outlive it (it copies nothing).
TermsDbusMessage MakeRequest(const char* from, uint32_t code, const char* type, const char* message,
                             std::vector<unsigned char>* payload = nullptr);

// A record the toolkit fills; released on destruction.
struct FilledRecord {
    TermsDbusMessage msg{};
    FilledRecord() = default;
    FilledRecord(const FilledRecord&) = delete;
    FilledRecord& operator=(const FilledRecord&) = delete;
    ~FilledRecord() { ReleaseTermsDbusMessage(&msg); }
    std::vector<unsigned char> Payload() const { return {msg.buffer, msg.buffer + msg.buffer_size}; }
};

// A program run in the background with its standard output on a pipe;
// terminated and reaped on destruction.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& argv);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // Reads lines until one equals `line`; false after 10 s or at the end of output.
    bool WaitForLine(const std::string& line);
    // The output lines read so far.
    const std::vector<std::string>& Lines() const { return m_Lines; }

private:
    bool ReadLine(std::string& line);
    pid_t m_Pid = -1;
    int m_Output = -1;
    std::string m_Pending;
    std::vector<std::string> m_Lines;
};

struct CommandResult {
    int exitStatus = -1;
    std::string output;
};

// Runs a command to its end while this thread's main loop serves the bus.
CommandResult RunWhileServing(const std::vector<std::string>& argv);

// Iterates the default main context until `done` or 10 s have passed.
bool IterateUntil(const std::function<bool()>& done);

// Waits until some connection owns `name` on the system bus.
bool WaitForBusName(const std::string& name);

// The unique name of the process's shared system bus connection.
std::string OwnUniqueName();

// The process's toolkit server under the handle kHandle, answering with
// EchoCallback (label kLabel) on this thread's main loop; closed on destruction.
class InProcessServer {
public:
    static constexpr const char* kHandle = "handle";
    static constexpr const char* kLabel = "in-process";
    explicit InProcessServer(const char* busName);
    ~InProcessServer();
    InProcessServer(const InProcessServer&) = delete;
    InProcessServer& operator=(const InProcessServer&) = delete;
    // Created and its name acquired.
    bool IsUp() const { return m_Up; }

private:
    bool m_Up = false;
    bool m_Acquired = false;
};

}  // namespace toolkit_test

#endif
