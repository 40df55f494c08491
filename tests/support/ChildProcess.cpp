#include "ChildProcess.h"

#include <signal.h>
#include <sys/prctl.h>

#include <stdexcept>

namespace testbed {
namespace {

// What `stream` read ahead from its pipe and has not handed out yet.
std::string Buffered(GDataInputStream* stream) {
    gsize size = 0;
    const void* data = g_buffered_input_stream_peek_buffer(G_BUFFERED_INPUT_STREAM(stream), &size);
    return std::string(static_cast<const char*>(data), size);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    std::vector<const char*> args;
    for (const std::string& arg : argv) args.push_back(arg.c_str());
    args.push_back(nullptr);
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
    g_subprocess_launcher_setenv(launcher, "DLOG_OUTPUT", "none", TRUE);
    g_subprocess_launcher_set_child_setup(
        launcher, [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
    g_autoptr(GError) error = nullptr;
    m_Process = g_subprocess_launcher_spawnv(launcher, args.data(), &error);
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

int ChildProcess::Wait() {
    g_subprocess_wait(m_Process, nullptr, nullptr);
    return g_subprocess_get_if_exited(m_Process) ? g_subprocess_get_exit_status(m_Process) : -1;
}

ProgramRun ChildProcess::Finish() {
    g_autofree gchar *out = nullptr, *err = nullptr;
    g_autoptr(GError) error = nullptr;
    if (!g_subprocess_communicate_utf8(m_Process, nullptr, nullptr, &out, &err, &error))
        throw std::runtime_error(std::string("cannot read a child's output: ") + error->message);
    return ProgramRun{Wait(), Buffered(m_Out) + (out ? out : ""), Buffered(m_Err) + (err ? err : "")};
}

std::string ChildProcess::ReadLine(GDataInputStream* stream) {
    g_autofree gchar* line = g_data_input_stream_read_line(stream, nullptr, nullptr, nullptr);
    return line ? line : "";
}

ProgramRun RunProgram(const std::vector<std::string>& argv) {
    return ChildProcess(argv).Finish();
}

ProgramRun RunCommandLine(const std::string& program, const std::string& line) {
    g_auto(GStrv) words = nullptr;
    if (!line.empty() && !g_shell_parse_argv(line.c_str(), nullptr, &words, nullptr))
        throw std::runtime_error("cannot parse the command line " + line);
    std::vector<std::string> argv{program};
    for (gchar** word = words; word && *word; ++word) argv.emplace_back(*word);
    return RunProgram(argv);
}

}  // namespace testbed
