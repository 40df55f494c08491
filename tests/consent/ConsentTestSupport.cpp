#include "ConsentTestSupport.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace consenttest {
namespace {

// A new directory holding `catalogue` as catalogue.json.
std::string CatalogueDir(const std::string& catalogue) {
    char dirTemplate[] = "/tmp/consent-sim-XXXXXX";
    if (!mkdtemp(dirTemplate)) throw std::runtime_error("cannot make a directory for the simulator");
    std::ofstream(std::string(dirTemplate) + "/catalogue.json") << catalogue;
    return dirTemplate;
}

std::vector<std::string> SimulatorArgs(const std::string& dir, const std::vector<std::string>& extra) {
    std::vector<std::string> args{TERMS_SERVICE_SIM_PATH, "--catalogue", dir + "/catalogue.json"};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
}

}  // namespace

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

SimulatedService::SimulatedService(const std::string& catalogue, const std::vector<std::string>& extra)
    : m_Dir(CatalogueDir(catalogue)),
      m_Process(SimulatorArgs(m_Dir, extra)),
      m_Serving(m_Process.AwaitOutput(": serving ")) {}

SimulatedService::~SimulatedService() {
    Stop();
    std::error_code ignored;
    std::filesystem::remove_all(m_Dir, ignored);
}

}  // namespace consenttest
