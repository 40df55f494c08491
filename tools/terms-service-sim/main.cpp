// terms-service-sim: the simulated terms-client service on the bus.
//
// The bus side is the project's bus server toolkit, used through its C
// interface: one server owning the bus name, a message callback that hands
// each call to TermsServiceSim, and a GLib main loop. The toolkit answers a
// call when the callback returns, so the failure modes that answer late or
// never keep the call inside the callback and run the main context from
// there ("serving while waiting"): other calls are answered meanwhile.
#include <gio/gio.h>
#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "Catalogue.h"
#include "CloneDirs.h"
#include "FailurePlan.h"
#include "SimLog.h"
#include "SimOptions.h"
#include "SimState.h"
#include "TermsDbusAPI.h"
#include "TermsServiceSim.h"

using namespace termssim;

namespace {

const char kServerHandle[] = "terms-service-sim";
const int kExitStopped = 0;
const int kExitFailed = 1;
const int kExitBadUsage = 2;
const int kExitNameTaken = 3;
const int kExitBusGone = 4;

// What SIGHUP reloads: the catalogue in use, from its file, and the state
// that points into it.
struct CatalogueSource {
    std::string path;
    Catalogue& catalogue;
    SimState& state;
};

struct BusService {
    TermsServiceSim& sim;
    CatalogueSource& source;
    const FailurePlan& failures;
    std::string busName;
    GMainLoop* loop = nullptr;
    // The process's shared system bus connection, the one the toolkit serves on.
    GDBusConnection* bus = nullptr;
    bool serving = false;
    bool stopping = false;
    int exitCode = kExitStopped;
};

void Stop(BusService& service, int exitCode) {
    service.stopping = true;
    service.exitCode = exitCode;
    g_main_loop_quit(service.loop);
}

gboolean OnElapsed(gpointer elapsed) {
    *static_cast<bool*>(elapsed) = true;
    return G_SOURCE_REMOVE;
}

// Runs the main context until `delayMs` have passed (forever when negative)
// or the service stops, so that other calls are served meanwhile. Waits
// nest: a call that arrives during a wait is answered inside it, and the
// outer call answers once the inner wait is over.
void WaitServing(BusService& service, long delayMs) {
    bool elapsed = false;
    const guint timer = delayMs >= 0 ? g_timeout_add(static_cast<guint>(delayMs), OnElapsed, &elapsed) : 0;
    while (!elapsed && !service.stopping) g_main_context_iteration(nullptr, TRUE);
    if (timer != 0 && !elapsed) g_source_remove(timer);
}

// The reply to one parsed request under its failure mode; false when the
// call is to get the toolkit's failure reply instead (a silent call whose
// service is stopping: it was never answered while the service ran).
bool Answer(BusService& service, const Request& request, Json::Value& reply) {
    const FailureMode mode = service.failures.For(request.name);
    switch (mode.kind) {
        case FailureMode::Kind::Refuse:
            SimLog(kLogInfo, "%s: refused on purpose (--fail)", request.name.c_str());
            reply = ErrorReply("refused on purpose (--fail " + request.name + "=refuse)");
            return true;
        case FailureMode::Kind::Silent:
            SimLog(kLogInfo, "%s: left unanswered on purpose (--fail)", request.name.c_str());
            WaitServing(service, -1);
            return false;
        case FailureMode::Kind::Delay:
            reply = service.sim.Handle(request);
            SimLog(kLogInfo, "%s: answering in %u ms (--fail)", request.name.c_str(), mode.delayMs);
            WaitServing(service, static_cast<long>(mode.delayMs));
            return true;
        case FailureMode::Kind::None:
            break;
    }
    reply = service.sim.Handle(request);
    return true;
}

int OnMessage(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* data) {
    BusService& service = *static_cast<BusService*>(data);
    const std::string protocol = request->type ? request->type : "";
    const std::string body = request->message ? request->message : "";
    Request parsed;
    Json::Value answer;
    if (TermsServiceSim::Parse(protocol, body, parsed, answer) && !Answer(service, parsed, answer)) return 0;
    reply->from = CopyTermsDbusString(service.busName.c_str());
    reply->type = CopyTermsDbusString(protocol.c_str());
    reply->message = CopyTermsDbusString(WriteCompactJson(answer).c_str());
    return 1;
}

void OnNameAcquired(void* data) {
    BusService& service = *static_cast<BusService*>(data);
    service.serving = true;
    SimLog(kLogInfo, "serving %s", service.busName.c_str());
    std::printf("terms-service-sim: serving %s\n", service.busName.c_str());
    std::fflush(stdout);
}

// The name is lost in three ways, each with its own message and exit status:
// the connection closed (the bus daemon stopped or restarted), another
// process took the name over, or the name was never granted (bus policy).
void OnNameLost(void* data) {
    BusService& service = *static_cast<BusService*>(data);
    const char* name = service.busName.c_str();
    if (g_dbus_connection_is_closed(service.bus)) {
        SimLog(kLogError, "the bus went away");
        std::fprintf(stderr, "terms-service-sim: the bus went away (the bus daemon stopped or restarted).\n");
        Stop(service, kExitBusGone);
    } else if (service.serving) {
        SimLog(kLogError, "another process took the bus name %s", name);
        std::fprintf(stderr, "terms-service-sim: another process took the bus name %s.\n", name);
        Stop(service, kExitNameTaken);
    } else {
        SimLog(kLogError, "the bus did not grant the name %s", name);
        std::fprintf(stderr, "terms-service-sim: the bus does not let this process own %s (see its policy).\n", name);
        Stop(service, kExitFailed);
    }
}

// Whether the bus name has an owner already; false with the reason in
// `error` when the bus cannot tell.
bool NameHasOwner(GDBusConnection* bus, const std::string& name, bool& owned, std::string& error) {
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
        g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &failure);
    if (!reply) {
        error = failure->message;
        g_error_free(failure);
        return false;
    }
    gboolean hasOwner = FALSE;
    g_variant_get(reply, "(b)", &hasOwner);
    g_variant_unref(reply);
    owned = hasOwner != FALSE;
    return true;
}

// The process's shared system bus connection, the one the toolkit serves
// on; null (with the reason told) when there is none, or when its name has
// an owner and is not to be taken over (--replace).
GDBusConnection* Connect(const std::string& busName, bool replace) {
    GError* failure = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &failure);
    if (!bus) {
        std::fprintf(stderr, "terms-service-sim: cannot connect to the system bus: %s\n", failure->message);
        g_error_free(failure);
        return nullptr;
    }
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    bool owned = false;
    std::string error;
    if (!NameHasOwner(bus, busName, owned, error)) {
        std::fprintf(stderr, "terms-service-sim: cannot ask the bus who owns %s: %s\n", busName.c_str(), error.c_str());
    } else if (owned && !replace) {
        std::fprintf(stderr,
                     "terms-service-sim: %s already has an owner; stop that process first, or start with "
                     "--replace to take the name over.\n",
                     busName.c_str());
    } else {
        if (owned) SimLog(kLogInfo, "taking %s over from its owner (--replace)", busName.c_str());
        return bus;
    }
    g_object_unref(bus);
    return nullptr;
}

gboolean OnStopSignal(gpointer data) {
    SimLog(kLogInfo, "stopping");
    Stop(*static_cast<BusService*>(data), kExitStopped);
    return G_SOURCE_CONTINUE;
}

// SIGHUP: reads the catalogue file again. A file that does not load leaves
// the catalogue in use as it is; the outcome goes to the log and stderr.
gboolean OnReloadSignal(gpointer data) {
    CatalogueSource& source = static_cast<BusService*>(data)->source;
    try {
        Catalogue fresh = Catalogue::Load(source.path);
        const std::string current = source.state.CurrentCountry().code;
        source.catalogue = std::move(fresh);
        source.state.CatalogueReplaced(current);
        SimLog(kLogInfo, "reloaded the catalogue %s, country %s", source.path.c_str(),
               source.state.CurrentCountry().code.c_str());
        std::fprintf(stderr, "terms-service-sim: reloaded the catalogue %s.\n", source.path.c_str());
    } catch (const std::exception& error) {
        SimLog(kLogError, "cannot reload the catalogue, keeping the one in use: %s", error.what());
        std::fprintf(stderr, "terms-service-sim: cannot reload the catalogue, keeping the one in use: %s\n",
                     error.what());
    }
    return G_SOURCE_CONTINUE;
}

int Serve(BusService& service) {
    if (!InitiateTermsDbusServer(kServerHandle)) return kExitFailed;
    RegisterTermsDbusCallback(kServerHandle, TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(&OnMessage),
                              &service);
    RegisterTermsDbusCallback(kServerHandle, TERMS_DBUS_CALLBACK_NAME_ACQUIRED,
                              reinterpret_cast<void*>(&OnNameAcquired), &service);
    RegisterTermsDbusCallback(kServerHandle, TERMS_DBUS_CALLBACK_NAME_LOST, reinterpret_cast<void*>(&OnNameLost),
                              &service);
    service.loop = g_main_loop_new(nullptr, FALSE);
    const guint interrupt = g_unix_signal_add(SIGINT, OnStopSignal, &service);
    const guint terminate = g_unix_signal_add(SIGTERM, OnStopSignal, &service);
    const guint reload = g_unix_signal_add(SIGHUP, OnReloadSignal, &service);
    if (CreateTermsDbusServer(service.busName.c_str())) {
        g_main_loop_run(service.loop);
    } else {
        std::fprintf(stderr, "terms-service-sim: cannot serve %s on the system bus.\n", service.busName.c_str());
        service.exitCode = kExitFailed;
    }
    CloseTermsDbusServer(kServerHandle);
    g_source_remove(interrupt);
    g_source_remove(terminate);
    g_source_remove(reload);
    g_main_loop_unref(service.loop);
    return service.exitCode;
}

bool PrepareCloneDirs(const SimOptions& options) {
    if (options.setDir.empty()) return true;
    std::error_code error;
    for (const std::string& dir : {options.setDir, options.usbDir}) {
        std::filesystem::create_directories(dir, error);
        if (!std::filesystem::is_directory(dir)) {
            std::fprintf(stderr, "terms-service-sim: %s is not a directory and cannot be made.\n", dir.c_str());
            return false;
        }
    }
    return true;
}

int Run(const SimOptions& options) {
    if (!options.storeRoot.empty()) setenv("VCONF_ROOT", options.storeRoot.c_str(), 1);
    if (!PrepareCloneDirs(options)) return kExitFailed;
    try {
        Catalogue catalogue = Catalogue::Load(options.cataloguePath);
        const std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> bus(Connect(options.busName, options.replace),
                                                                              &g_object_unref);
        if (!bus) return kExitFailed;
        SimState state(catalogue);
        TermsServiceSim sim(catalogue, state, CloneDirs(options.setDir, options.usbDir));
        CatalogueSource source{options.cataloguePath, catalogue, state};
        BusService service{sim, source, options.failures, options.busName};
        service.bus = bus.get();
        SimLog(kLogInfo, "catalogue %s, country %s", options.cataloguePath.c_str(),
               state.CurrentCountry().code.c_str());
        return Serve(service);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "terms-service-sim: %s\n", error.what());
        return kExitFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    // A reader of the "serving" line that went away must not end the service.
    std::signal(SIGPIPE, SIG_IGN);
    SimOptions options;
    options.cataloguePath = TERMS_SIM_DEFAULT_CATALOGUE;
    std::string error;
    switch (ParseOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        case ParseOutcome::Help:
            std::fputs(UsageText(), stdout);
            return kExitStopped;
        case ParseOutcome::Version:
            std::printf("terms-service-sim %s\n", TERMS_SIM_VERSION);
            return kExitStopped;
        case ParseOutcome::BadUsage:
            std::fprintf(stderr, "terms-service-sim: %s\n", error.c_str());
            return kExitBadUsage;
        case ParseOutcome::Run:
            break;
    }
    return Run(options);
}
