// Helpers of the consent tests: running a main context until something
// happened, the store tool, and the simulated terms service as a child
// process on the private bus.
#ifndef CONSENT_TEST_SUPPORT_H
#define CONSENT_TEST_SUPPORT_H

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

namespace consenttest {

// Iterates `context` (null: the global default) until `done` holds; false
// when it still does not after `limitMs`.
bool IterateUntil(const std::function<bool()>& done, GMainContext* context = nullptr, int limitMs = 10000);
// Iterates `context` for `ms` milliseconds.
void IterateFor(int ms, GMainContext* context = nullptr);

// Runs vconftool with `args` and returns its exit status.
int RunVconftool(const std::vector<std::string>& args);

// terms-service-sim serving a catalogue on the private bus, with its state in
// the store at VCONF_ROOT; stopped (and waited for) when destroyed.
class SimulatedService {
public:
    // `catalogue`: the text of a catalogue; `extra`: more options (--fail ...).
    explicit SimulatedService(const std::string& catalogue, const std::vector<std::string>& extra = {});
    ~SimulatedService();
    SimulatedService(const SimulatedService&) = delete;
    SimulatedService& operator=(const SimulatedService&) = delete;

    bool Serving() const { return m_Serving; }
    // Stops the service (SIGTERM) and waits for it.
    void Stop();

private:
    std::string m_Dir;
    GSubprocess* m_Process = nullptr;
    bool m_Serving = false;
};

// The text of the sample catalogue installed with the simulator.
std::string SampleCatalogue();

}  // namespace consenttest

#endif
