#include "ConsentTestSupport.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace consenttest {

bool IterateUntil(const std::function<bool()>& done, GMainContext* context, int limitMs) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        // A short tick so that a wait without events still checks the clock.
        GSource* tick = g_timeout_source_new(5);
        g_source_set_callback(
            tick, [](gpointer) { return gboolean(G_SOURCE_REMOVE); }, nullptr, nullptr);
        g_source_attach(tick, context);
        g_main_context_iteration(context, TRUE);
        g_source_destroy(tick);
        g_source_unref(tick);
    }
    return true;
}

void IterateFor(int ms, GMainContext* context) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    IterateUntil([&] { return std::chrono::steady_clock::now() >= end; }, context, ms + 1000);
}

int RunVconftool(const std::vector<std::string>& args) {
    std::vector<const char*> argv{VCONFTOOL_PATH};
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    gint status = -1;
    if (!g_spawn_sync(nullptr, const_cast<gchar**>(argv.data()), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, nullptr,
                      nullptr, &status, nullptr)) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

SimulatedService::SimulatedService(const std::string& catalogue, const std::vector<std::string>& extra) {
    char dirTemplate[] = "/tmp/consent-sim-XXXXXX";
    if (!mkdtemp(dirTemplate)) throw std::runtime_error("cannot make a directory for the simulator");
    m_Dir = dirTemplate;
    std::ofstream(m_Dir + "/catalogue.json") << catalogue;
    std::vector<std::string> args{TERMS_SERVICE_SIM_PATH, "--catalogue", m_Dir + "/catalogue.json"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<const char*> argv;
    argv.reserve(args.size() + 1);
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
    g_subprocess_launcher_setenv(launcher, "DLOG_OUTPUT", "none", TRUE);
    g_subprocess_launcher_set_child_setup(
        launcher, [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
    m_Process = g_subprocess_launcher_spawnv(launcher, argv.data(), nullptr);
    if (!m_Process) throw std::runtime_error("cannot start " TERMS_SERVICE_SIM_PATH);
    g_autoptr(GDataInputStream) out = g_data_input_stream_new(g_subprocess_get_stdout_pipe(m_Process));
    while (gchar* line = m_Serving ? nullptr : g_data_input_stream_read_line(out, nullptr, nullptr, nullptr)) {
        m_Serving = g_strrstr(line, ": serving ") != nullptr;
        g_free(line);
    }
}

SimulatedService::~SimulatedService() {
    Stop();
    g_clear_object(&m_Process);
    std::error_code ignored;
    std::filesystem::remove_all(m_Dir, ignored);
}

void SimulatedService::Stop() {
    if (!m_Process) return;
    g_subprocess_send_signal(m_Process, SIGTERM);
    g_subprocess_wait(m_Process, nullptr, nullptr);
}

std::string SampleCatalogue() {
    std::ifstream file(SAMPLE_CATALOGUE);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace consenttest
