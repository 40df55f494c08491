// Runs a main context until something happened, for the consent tests.
#ifndef CONSENT_TEST_SUPPORT_H
#define CONSENT_TEST_SUPPORT_H

#include <gio/gio.h>

#include <functional>

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

}  // namespace consenttest

#endif
