#include "BenchSupport.h"

#include <dirent.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace bench {

const char kServiceName[] = "com.velmora.tv.termsclient";
const char kServicePath[] = "/com/velmora/tv/termsclient";
const char kControlInterface[] = "com.velmora.bench.Control";
const char kPayloadReplyType[] = "payload-reply";

const char kAvailabilityRequest[] = R"({"method":"is service available"})";
const char kCountryCodeRequest[] = R"({"country_code":"DE","data":null,"method":"set country code"})";
const char kDisclaimerByOrderRequest[] =
    R"({"data":null,"method":"get disclaimer by order","product_type":"TV","request_index":0,"requester":0})";
const char kClientName[] = "CAutoConnect";

namespace {

const char kSettleInterface[] = "com.velmora.bench.Settle";
bool g_Smoke = false;

[[noreturn]] void Fail(const char* what, int error) {
    std::fprintf(stderr, "bench: %s: %s\n", what, std::strerror(-error));
    std::abort();
}

sd_bus* OpenSystemBus() {
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_system(&bus);
    if (result < 0) Fail("cannot connect to the system bus (is DBUS_SYSTEM_BUS_ADDRESS set?)", result);
    return bus;
}

struct ThreadConnection {
    sd_bus* bus = nullptr;
    ~ThreadConnection() { sd_bus_flush_close_unref(bus); }
};

}  // namespace

sd_bus* ThreadSdBus() {
    thread_local ThreadConnection connection;
    if (!connection.bus) connection.bus = OpenSystemBus();
    return connection.bus;
}

bool BareSdBusCall(sd_bus* bus, const char* body, std::string* error) {
    sd_bus_error busError = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    int result = sd_bus_call_method(bus, kServiceName, kServicePath, kServiceName, "SendMessage", &busError, &reply,
                                    "suss", kClientName, 0u, "", body);
    if (result >= 0) {
        const char *from = nullptr, *type = nullptr, *message = nullptr;
        uint32_t code = 0;
        result = sd_bus_message_read(reply, "suss", &from, &code, &type, &message);
    }
    if (result < 0 && error) *error = busError.message ? busError.message : std::strerror(-result);
    sd_bus_message_unref(reply);
    sd_bus_error_free(&busError);
    return result >= 0;
}

void SetServiceDisclaimerNumber(unsigned number) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    const int result = sd_bus_call_method(ThreadSdBus(), kServiceName, kServicePath, kControlInterface,
                                          "SetDisclaimerNumber", &error, nullptr, "u", number);
    if (result < 0) Fail("the bench service refused SetDisclaimerNumber", result);
    sd_bus_error_free(&error);
}

GDBusConnection* SharedGDBus() {
    static GDBusConnection* connection = [] {
        GError* error = nullptr;
        GDBusConnection* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        if (!shared) {
            std::fprintf(stderr, "bench: no GDBus system bus connection: %s\n", error->message);
            std::abort();
        }
        g_dbus_connection_set_exit_on_close(shared, FALSE);
        return shared;
    }();
    return connection;
}

GVariant* BareGDBusCall(const char* method, GVariant* arguments) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(SharedGDBus(), kServiceName, kServicePath, kServiceName, method,
                                                  arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (!reply) {
        std::fprintf(stderr, "bench: bare GDBus call failed: %s\n", error->message);
        g_error_free(error);
    }
    return reply;
}

GVariant* PlainArguments(const char* from, uint32_t code, const char* type, const char* message) {
    return g_variant_new("(suss)", from, code, type, message);
}

GVariant* PayloadArguments(const char* from, uint32_t code, const char* type, const char* message, const void* data,
                           size_t size) {
    GVariant* payload = g_variant_new_from_data(G_VARIANT_TYPE("a(y)"), data, size, TRUE, nullptr, nullptr);
    return g_variant_new("(suss@a(y))", from, code, type, message, payload);
}

// ---- BusMessageCounter ----

BusMessageCounter::BusMessageCounter() {
    sd_bus* monitor = nullptr;
    int result = sd_bus_new(&monitor);
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (result >= 0) result = sd_bus_set_address(monitor, address ? address : "unix:path=/run/dbus/system_bus_socket");
    if (result >= 0) result = sd_bus_set_monitor(monitor, 1);
    if (result >= 0) result = sd_bus_set_bus_client(monitor, 1);
    if (result >= 0) result = sd_bus_start(monitor);
    if (result < 0) Fail("cannot open the monitor connection", result);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    result = sd_bus_call_method(monitor, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus.Monitoring", "BecomeMonitor", &error, nullptr, "asu", 0, 0u);
    if (result < 0) Fail("the bus refused BecomeMonitor", result);
    sd_bus_error_free(&error);
    m_pMonitor = monitor;
    m_Thread = std::thread(&BusMessageCounter::Run, this);
}

BusMessageCounter::~BusMessageCounter() {
    m_Stop = true;
    m_Thread.join();
    sd_bus_flush_close_unref(m_pMonitor);
}

void BusMessageCounter::Run() {
    while (!m_Stop) {
        sd_bus_message* message = nullptr;
        const int result = sd_bus_process(m_pMonitor, &message);
        if (result < 0) return;
        if (message) {
            const char* interface = sd_bus_message_get_interface(message);
            if (interface && std::strcmp(interface, kSettleInterface) == 0) {
                m_PingsSeen.fetch_add(1);
            } else {
                m_Count.fetch_add(1, std::memory_order_relaxed);
            }
            sd_bus_message_unref(message);
        }
        if (result == 0) sd_bus_wait(m_pMonitor, 100 * 1000);
    }
}

void BusMessageCounter::Settle() {
    const uint64_t before = m_PingsSeen.load();
    const int result = sd_bus_emit_signal(ThreadSdBus(), "/com/velmora/bench", kSettleInterface, "Ping", "");
    if (result < 0) Fail("cannot emit the settle signal", result);
    sd_bus_flush(ThreadSdBus());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (m_PingsSeen.load() == before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// ---- Process figures ----

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) figures.rssKiB = std::strtol(line.c_str() + 6, nullptr, 10);
    }
    if (DIR* fds = opendir("/proc/self/fd")) {
        while (const dirent* entry = readdir(fds)) {
            if (entry->d_name[0] != '.') ++figures.openFds;
        }
        closedir(fds);
        --figures.openFds;  // the directory stream itself
    }
    return figures;
}

// ---- Registration ----

bool TakeSmokeFlag(int* argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strcmp(argv[i], "--smoke") == 0) {
            g_Smoke = true;
        } else {
            argv[kept++] = argv[i];
        }
    }
    *argc = kept;
    return g_Smoke;
}

bool IsSmokeRun() {
    return g_Smoke;
}

namespace {

// Extra statistics over the repetitions: the report takes the lowest CPU time
// (other processes only ever add to it) and the highest message count.
double Fastest(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}
double Highest(const std::vector<double>& values) {
    return *std::max_element(values.begin(), values.end());
}

}  // namespace

benchmark::internal::Benchmark* Tune(benchmark::internal::Benchmark* bm, int64_t iterations, int repetitions) {
    if (g_Smoke) return bm->Iterations(1)->Repetitions(1);
    bm->ComputeStatistics("min", Fastest)->ComputeStatistics("max", Highest);
    // Slow benchmarks run a fixed number of iterations, a fixed number of times.
    if (iterations > 0) bm->Iterations(iterations)->Repetitions(repetitions);
    return bm;
}

int RunBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench
