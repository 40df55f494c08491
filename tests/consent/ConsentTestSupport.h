// Helpers of the consent tests: running a main context until something
// happened, and the simulated terms service on the private bus.
#ifndef CONSENT_TEST_SUPPORT_H
#define CONSENT_TEST_SUPPORT_H

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace consenttest {

// Iterates `context` (null: the global default) until `done` holds; false
// when it still does not after `limitMs`.
bool IterateUntil(const std::function<bool()>& done, GMainContext* context = nullptr, int limitMs = 10000);
// Iterates `context` for `ms` milliseconds.
void IterateFor(int ms, GMainContext* context = nullptr);

// terms-service-sim serving the text `catalogue` with the options `extra`
// (--fail ...), its state in the store at VCONF_ROOT; stopped when destroyed.
class SimulatedService {
public:
    explicit SimulatedService(const std::string& catalogue, const std::vector<std::string>& extra = {});
    ~SimulatedService();

    bool Serving() const { return m_Serving; }
    // Stops the service (SIGTERM) and waits for it.
    void Stop() { m_Process.Stop(); }

private:
    const std::string m_Dir;
    testbed::ChildProcess m_Process;
    const bool m_Serving;
};

}  // namespace consenttest

#endif
