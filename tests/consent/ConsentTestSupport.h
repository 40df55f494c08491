// Helpers of the consent tests: running a main context until something
// happened, and the store's command-line tool.
#ifndef CONSENT_TEST_SUPPORT_H
#define CONSENT_TEST_SUPPORT_H

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "ChildProcess.h"

namespace consenttest {

// Iterates `context` (null: the global default) until `done` holds; false
// when it still does not after `limitMs`.
inline bool IterateUntil(const std::function<bool()>& done, GMainContext* context = nullptr, int limitMs = 10000) {
    const gint64 end = g_get_monotonic_time() + gint64(limitMs) * 1000;
    GSource* tick = g_timeout_source_new(5);  // so that a wait without events still checks the clock
    g_source_set_callback(
        tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    g_source_attach(tick, context);
    while (!done() && g_get_monotonic_time() < end) g_main_context_iteration(context, TRUE);
    g_source_destroy(tick);
    g_source_unref(tick);
    return done();
}

// Iterates `context` for `ms` milliseconds.
inline void IterateFor(int ms, GMainContext* context = nullptr) {
    IterateUntil([] { return false; }, context, ms);
}

// Runs vconftool with the arguments in `line`, which must succeed.
inline void Vconftool(const std::string& line) {
    EXPECT_EQ(testbed::RunCommandLine(VCONFTOOL_PATH, line).status, 0) << line;
}

}  // namespace consenttest

#endif
