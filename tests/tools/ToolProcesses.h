// terms-cli and terms-service-sim as child processes of a test.
#ifndef TESTS_TOOLS_TOOL_PROCESSES_H
#define TESTS_TOOLS_TOOL_PROCESSES_H

#include <glib.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tooltest {

// The whole text must be one JSON document.
inline Json::Value ParsedJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
    return value;
}

inline std::vector<char*> Argv(const char* program, const std::vector<std::string>& args) {
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    return argv;
}

struct CliRun {
    int status = -1;  // -1 when a signal ended the program
    std::string out;
    std::string err;
    bool ErrIsOneLine() const { return std::count(err.begin(), err.end(), '\n') == 1 && err.back() == '\n'; }
    Json::Value JsonOut() const { return ParsedJson(out); }
};

// Runs terms-cli with the blank-separated words of `line`, stdin closed, and waits for it.
inline CliRun Cli(const std::string& line) {
    std::istringstream words(line);
    const std::vector<std::string> args{std::istream_iterator<std::string>(words), {}};
    gchar* out = nullptr;
    gchar* err = nullptr;
    gint wait = 0;
    g_spawn_sync(nullptr, Argv(TERMS_CLI_PATH, args).data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err,
                 &wait, nullptr);
    CliRun run{WIFEXITED(wait) ? WEXITSTATUS(wait) : -1, out ? out : "", err ? err : ""};
    g_free(out);
    g_free(err);
    return run;
}

// terms-service-sim, started and waited for until it serves its bus name.
class SimProcess {
public:
    explicit SimProcess(const std::vector<std::string>& args) {
        int outFd = -1;
        if (!g_spawn_async_with_pipes(
                nullptr, Argv(TERMS_SERVICE_SIM_PATH, args).data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD,
                [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, &m_Pid, nullptr, &outFd, nullptr,
                nullptr)) {
            return;
        }
        FILE* out = fdopen(outFd, "r");
        char line[256];
        while (!m_Serving && std::fgets(line, sizeof line, out)) m_Serving = std::strstr(line, ": serving ");
        std::fclose(out);  // the program ignores a reader that went away
    }
    ~SimProcess() { Stop(); }
    SimProcess(const SimProcess&) = delete;
    SimProcess& operator=(const SimProcess&) = delete;

    bool Serving() const { return m_Serving; }
    // SIGTERM, then the exit status (-1 when a signal ended it).
    int Stop() {
        if (m_Pid <= 0) return m_ExitStatus;
        kill(m_Pid, SIGTERM);
        int wait = 0;
        waitpid(m_Pid, &wait, 0);
        m_Pid = -1;
        return m_ExitStatus = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
    }

private:
    GPid m_Pid = -1;
    bool m_Serving = false;
    int m_ExitStatus = -1;
};

}  // namespace tooltest

#endif
