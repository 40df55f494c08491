// bench-payload-memory: what one call with a large "a(y)" payload costs in
// memory, in the server that receives it and in the client that sends it,
// for the bus server toolkit and for bare GDBus making the same call
// (SendMessageWithBuffer, "(sussa(y))" both ways, the reply carrying the
// one-byte placeholder).
//
// Each measurement starts a fresh server and a fresh client (this program
// again, with --serve or --send), so neither carries memory of an earlier
// one. Both servers read every payload byte. Figures, in KiB: the resident
// size when ready (base), the high-water mark of the resident size (peak)
// and the resident size once the call is done (after); the server's come
// from /proc/<pid>/status, the client reports its own. The client then makes
// the same call a second time, when told to, and the server's size after it
// shows whether memory kept from the first call is reused or adds up.
//
//   bench-payload-memory [benchmark options]
//   bench-payload-memory --serve toolkit|bare
//   bench-payload-memory --send toolkit|bare SIZE
#include <TermsDbusAPI.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

const char kServerName[] = "com.velmora.bench.memory";
const char kServerPath[] = "/com/velmora/bench/memory";
const char kClientName[] = "com.velmora.bench.memoryclient";
const char kHandle[] = "bench-memory";
const char kMethod[] = "SendMessageWithBuffer";
const char kIntrospection[] =
    "<node><interface name='com.velmora.bench.memory'><method name='SendMessageWithBuffer'>"
    "<arg type='s' direction='in'/><arg type='u' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='a(y)' direction='in'/>"
    "<arg type='s' direction='out'/><arg type='u' direction='out'/><arg type='s' direction='out'/>"
    "<arg type='s' direction='out'/><arg type='a(y)' direction='out'/>"
    "</method></interface></node>";
// 4,000,000 bytes, a 32 MB message on the wire (each one-byte struct takes 8
// bytes there) and about 1.1 GB in the receiving server. A smoke run only
// shows that the measurement works, with a quarter of that.
const int64_t kPayloadSize = 4000000;
const int64_t kSmokePayloadSize = 1000000;

// ---- Memory figures ----

struct Memory {
    long rssKiB = 0;
    long peakKiB = 0;
};

Memory ReadMemory(const std::string& status) {
    Memory memory;
    std::ifstream file(status);
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("VmRSS:", 0) == 0) memory.rssKiB = std::strtol(line.c_str() + 6, nullptr, 10);
        if (line.rfind("VmHWM:", 0) == 0) memory.peakKiB = std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return memory;
}

unsigned SumOfBytes(const unsigned char* data, size_t size) {
    unsigned sum = 0;
    for (size_t i = 0; i < size; ++i) sum += data[i];
    return sum;
}

// ---- Servers ----

void Say(const char* line) {
    std::printf("%s\n", line);
    std::fflush(stdout);
}

// "handled" goes out once the main loop has nothing more urgent left to do
// for the call (the reply sent, the invocation and its message released).
void SayHandledWhenIdle() {
    g_idle_add_full(
        G_PRIORITY_LOW + 10,
        [](gpointer) -> gboolean {
            Say("handled");
            return G_SOURCE_REMOVE;
        },
        nullptr, nullptr);
}

int OnToolkitMessage(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void*) {
    benchmark::DoNotOptimize(SumOfBytes(request->buffer, request->buffer_size));
    reply->from = CopyTermsDbusString("bench");
    reply->message = CopyTermsDbusString("{}");
    SayHandledWhenIdle();
    return 1;
}

void ServeWithToolkit() {
    InitiateTermsDbusServer(kHandle);
    RegisterTermsDbusCallback(kHandle, TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(OnToolkitMessage), nullptr);
    RegisterTermsDbusCallback(kHandle, TERMS_DBUS_CALLBACK_NAME_ACQUIRED,
                              reinterpret_cast<void*>(+[](void*) { Say("ready"); }), nullptr);
    if (CreateTermsDbusServer(kServerName) != 1) std::exit(1);
}

void OnBareCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
                GDBusMethodInvocation* invocation, gpointer) {
    GVariant* payload = g_variant_get_child_value(parameters, 4);
    benchmark::DoNotOptimize(
        SumOfBytes(static_cast<const unsigned char*>(g_variant_get_data(payload)), g_variant_get_size(payload)));
    g_variant_unref(payload);
    static const unsigned char kPlaceholder = 0;
    GVariant* placeholder = g_variant_new_from_data(G_VARIANT_TYPE("a(y)"), &kPlaceholder, 1, TRUE, nullptr, nullptr);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(suss@a(y))", "bench", 0u, "", "{}", placeholder));
    SayHandledWhenIdle();
}

void ServeWithBareGDBus() {
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    static const GDBusInterfaceVTable vtable = {OnBareCall, nullptr, nullptr, {}};
    if (!connection || !node ||
        g_dbus_connection_register_object(connection, kServerPath, node->interfaces[0], &vtable, nullptr, nullptr,
                                          nullptr) == 0) {
        std::exit(1);
    }
    g_bus_own_name_on_connection(
        connection, kServerName, G_BUS_NAME_OWNER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, gpointer) { Say("ready"); }, nullptr, nullptr, nullptr);
}

int Serve(const std::string& kind) {
    if (kind == "toolkit") {
        ServeWithToolkit();
    } else {
        ServeWithBareGDBus();
    }
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}

// ---- Clients ----

bool SendWithToolkit(std::vector<unsigned char>& payload) {
    TermsDbusMessage request = {}, reply = {};
    InitiateTermsDbusMessage(&request, const_cast<char*>("bench"), 0, const_cast<char*>(""), const_cast<char*>("{}"),
                             payload.data(), static_cast<uint32_t>(payload.size()));
    const bool sent = SendTermsDbusSyncMessage(kHandle, kServerName, &request, &reply, -1) == 1;
    ReleaseTermsDbusMessage(&reply);
    return sent;
}

bool SendWithBareGDBus(GDBusConnection* connection, std::vector<unsigned char>& payload) {
    GVariant* bytes =
        g_variant_new_from_data(G_VARIANT_TYPE("a(y)"), payload.data(), payload.size(), TRUE, nullptr, nullptr);
    GVariant* reply =
        g_dbus_connection_call_sync(connection, kServerName, kServerPath, kServerName, kMethod,
                                    g_variant_new("(suss@a(y))", "bench", 0u, "", "{}", bytes),
                                    G_VARIANT_TYPE("(sussa(y))"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (!reply) return false;
    g_variant_unref(reply);
    return true;
}

// Prints "base peak after" in KiB after the first call, then waits for a line
// on its input and makes the same call again.
int Send(const std::string& kind, size_t size) {
    std::vector<unsigned char> payload(size, 0x5a);
    GDBusConnection* connection = nullptr;
    if (kind == "toolkit") {
        if (InitiateTermsDbusServer(kHandle) != 1 || CreateTermsDbusServer(kClientName) != 1) return 1;
    } else {
        connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        if (!connection) return 1;
    }
    auto send = [&] { return kind == "toolkit" ? SendWithToolkit(payload) : SendWithBareGDBus(connection, payload); };
    const Memory base = ReadMemory("/proc/self/status");
    if (!send()) return 1;
    const Memory end = ReadMemory("/proc/self/status");
    std::printf("%ld %ld %ld\n", base.rssKiB, end.peakKiB, end.rssKiB);
    std::fflush(stdout);
    char go[16];
    if (!std::fgets(go, sizeof go, stdin) || !send()) return 1;
    Say("sent again");
    return 0;
}

// ---- The measurement ----

struct Child {
    pid_t pid = -1;
    FILE* input = nullptr;
    FILE* output = nullptr;
};

Child Start(const std::vector<std::string>& arguments) {
    int fds[2], inputFds[2];
    if (pipe(fds) != 0 || pipe(inputFds) != 0) std::abort();
    Child child;
    child.pid = fork();
    if (child.pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        dup2(inputFds[0], STDIN_FILENO);
        for (int fd : {fds[0], fds[1], inputFds[0], inputFds[1]}) close(fd);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>("bench-payload-memory"));
        for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv("/proc/self/exe", argv.data());
        _exit(127);
    }
    close(fds[1]);
    close(inputFds[0]);
    child.output = fdopen(fds[0], "r");
    child.input = fdopen(inputFds[1], "w");
    return child;
}

void WriteLine(const Child& child, const char* line) {
    std::fprintf(child.input, "%s\n", line);
    std::fflush(child.input);
}

std::string ReadLine(const Child& child) {
    char line[256];
    if (!std::fgets(line, sizeof line, child.output)) return std::string();
    return std::string(line, strcspn(line, "\n"));
}

void Stop(Child& child) {
    kill(child.pid, SIGTERM);
    waitpid(child.pid, nullptr, 0);
    std::fclose(child.input);
    std::fclose(child.output);
}

void BM_PayloadMemory(benchmark::State& state, const std::string& kind) {
    const size_t size = static_cast<size_t>(state.range(0));
    long client[3] = {0, 0, 0};
    Memory serverBase, serverEnd, serverEndOfSecond;
    for (auto _ : state) {
        Child server = Start({"--serve", kind});
        if (ReadLine(server) != "ready") state.SkipWithError("the server did not start");
        serverBase = ReadMemory("/proc/" + std::to_string(server.pid) + "/status");
        Child sender = Start({"--send", kind, std::to_string(size)});
        const std::string figures = ReadLine(sender);
        if (std::sscanf(figures.c_str(), "%ld %ld %ld", &client[0], &client[1], &client[2]) != 3)
            state.SkipWithError("the call failed");
        if (ReadLine(server) != "handled") state.SkipWithError("the server did not handle the call");
        serverEnd = ReadMemory("/proc/" + std::to_string(server.pid) + "/status");
        WriteLine(sender, "again");
        if (ReadLine(sender) != "sent again" || ReadLine(server) != "handled")
            state.SkipWithError("the second call failed");
        serverEndOfSecond = ReadMemory("/proc/" + std::to_string(server.pid) + "/status");
        Stop(sender);
        Stop(server);
    }
    state.counters["payload_bytes"] = static_cast<double>(size);
    state.counters["server_base_kib"] = static_cast<double>(serverBase.rssKiB);
    state.counters["server_peak_kib"] = static_cast<double>(serverEnd.peakKiB);
    state.counters["server_after_kib"] = static_cast<double>(serverEnd.rssKiB);
    state.counters["server_after_second_kib"] = static_cast<double>(serverEndOfSecond.rssKiB);
    state.counters["client_base_kib"] = static_cast<double>(client[0]);
    state.counters["client_peak_kib"] = static_cast<double>(client[1]);
    state.counters["client_after_kib"] = static_cast<double>(client[2]);
}

void Register() {
    for (const char* kind : {"bare", "toolkit"}) {
        const std::string name = std::string("BM_PayloadMemory_") + (kind[0] == 'b' ? "Bare_GDBus" : "Toolkit");
        bench::Tune(benchmark::RegisterBenchmark(name.c_str(), BM_PayloadMemory, std::string(kind))
                        ->Arg(bench::IsSmokeRun() ? kSmokePayloadSize : kPayloadSize)
                        ->Unit(benchmark::kMillisecond)
                        ->UseRealTime(),
                    1, 3);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--serve") == 0) return Serve(argv[2]);
    if (argc == 4 && std::strcmp(argv[1], "--send") == 0) return Send(argv[2], std::strtoul(argv[3], nullptr, 10));
    bench::TakeSmokeFlag(&argc, argv);
    Register();
    return bench::RunBenchmarks(argc, argv);
}
