#include "ChildProcess.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <stdexcept>

namespace testbed {
namespace {

std::vector<const char*> Argv(const std::vector<std::string>& args) {
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    return argv;
}

GSubprocessLauncher* LogOffLauncher(GSubprocessFlags flags) {
    GSubprocessLauncher* launcher = g_subprocess_launcher_new(flags);
    g_subprocess_launcher_setenv(launcher, "DLOG_OUTPUT", "none", TRUE);
    return launcher;
}

}  // namespace

ProgramRun RunProgram(const std::vector<std::string>& argv) {
    g_autoptr(GSubprocessLauncher) launcher =
        LogOffLauncher(GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
    g_autoptr(GError) error = nullptr;
    g_autoptr(GSubprocess) process = g_subprocess_launcher_spawnv(launcher, Argv(argv).data(), &error);
    g_autofree gchar *out = nullptr, *err = nullptr;
    if (!process || !g_subprocess_communicate_utf8(process, nullptr, nullptr, &out, &err, &error)) {
        throw std::runtime_error("cannot run " + argv[0] + ": " + error->message);
    }
    const int status = g_subprocess_get_if_exited(process) ? g_subprocess_get_exit_status(process) : -1;
    return ProgramRun{status, out ? out : "", err ? err : ""};
}

ProgramRun RunCommandLine(const std::string& program, const std::string& line) {
    g_auto(GStrv) words = nullptr;
    if (!line.empty() && !g_shell_parse_argv(line.c_str(), nullptr, &words, nullptr)) {
        throw std::runtime_error("cannot parse the command line " + line);
    }
    std::vector<std::string> argv{program};
    for (gchar** word = words; word && *word; ++word) argv.emplace_back(*word);
    return RunProgram(argv);
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    g_autoptr(GSubprocessLauncher) launcher =
        LogOffLauncher(GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
    g_subprocess_launcher_set_child_setup(
        launcher, [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
    g_autoptr(GError) error = nullptr;
    m_Process = g_subprocess_launcher_spawnv(launcher, Argv(argv).data(), &error);
    if (!m_Process) throw std::runtime_error("cannot start " + argv[0] + ": " + error->message);
    m_Out = g_data_input_stream_new(g_subprocess_get_stdout_pipe(m_Process));
    m_Err = g_data_input_stream_new(g_subprocess_get_stderr_pipe(m_Process));
}

ChildProcess::~ChildProcess() {  // a child left running dies with the test
    g_object_unref(m_Out);
    g_object_unref(m_Err);
    g_object_unref(m_Process);
}

bool ChildProcess::AwaitOutput(const std::string& text) {
    bool seen = false;
    while (gchar* line = seen ? nullptr : g_data_input_stream_read_line(m_Out, nullptr, nullptr, nullptr)) {
        seen = std::string(line).find(text) != std::string::npos;
        g_free(line);
    }
    return seen;
}

std::string ChildProcess::Rest(GDataInputStream* stream) {
    std::string all;
    while (gchar* line = g_data_input_stream_read_line(stream, nullptr, nullptr, nullptr)) {
        all += std::string(line) + "\n";
        g_free(line);
    }
    return all;
}

int ChildProcess::Wait() {
    g_subprocess_wait(m_Process, nullptr, nullptr);
    return g_subprocess_get_if_exited(m_Process) ? g_subprocess_get_exit_status(m_Process) : -1;
}

int ChildProcess::Stop() {
    Signal(SIGTERM);
    return Wait();
}

std::string ChildProcess::ReadLine(GDataInputStream* stream) {
    g_autofree gchar* line = g_data_input_stream_read_line(stream, nullptr, nullptr, nullptr);
    return line ? line : "";
}

}  // namespace testbed
