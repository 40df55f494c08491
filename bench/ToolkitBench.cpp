// bench-toolkit: the bus server toolkit's calls and signals against bare
// GDBus doing the same on the same connection to the same minimal service.
//
// The toolkit runs as a server named "com.velmora.bench.client" (no main loop
// is needed to call out or to emit). Payloads travel as "a(y)" both ways:
// out in the call (the reply carries the one-byte placeholder), in in the
// reply (the call asks for `code` bytes).
#include <TermsDbusAPI.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BenchSupport.h"

namespace {

const char kHandle[] = "bench-toolkit";
const char kToolkitName[] = "com.velmora.bench.client";
const char kToolkitPath[] = "/com/velmora/bench/client";
const char kSignalName[] = "Notice";
const char kFrom[] = "bench";
const int kSignalBatch = 100;
// The bus daemon's default limit on one message.
const size_t kMaxBusMessage = 32u * 1024u * 1024u;

// ---- The largest payload the bus takes in one call ----

size_t AlignUp(size_t offset, size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

size_t StringEnd(size_t offset, const std::string& text) {
    return AlignUp(offset, 4) + 4 + text.size() + 1;
}

// The wire size of a SendMessageWithBuffer call as the bus forwards it
// (header fields path, interface, member, destination, sender, signature;
// a reply serial is counted too, as the toolkit does), less its payload
// elements: every one-byte struct but the last takes 8 bytes, the last 1.
size_t LargestPayload() {
    const std::string sender = g_dbus_connection_get_unique_name(bench::SharedGDBus());
    size_t header = 16 + 8;
    for (const std::string& text : {std::string(bench::kServicePath), std::string(bench::kServiceName),
                                    std::string("SendMessageWithBuffer"), std::string(bench::kServiceName), sender}) {
        header += AlignUp(8 + text.size() + 1, 8);
    }
    header += AlignUp(4 + 1 + std::strlen("sussa(y)") + 1, 8);
    size_t body = StringEnd(0, kFrom);
    body = AlignUp(body, 4) + 4;
    body = StringEnd(body, "");
    body = StringEnd(body, bench::kAvailabilityRequest);
    body = AlignUp(AlignUp(body, 4) + 4, 8);
    return (kMaxBusMessage - header - body - 1) / 8 + 1;
}

std::vector<unsigned char>& PayloadBytes(size_t size) {
    static std::vector<unsigned char> bytes;
    if (bytes.size() < size) bytes.resize(size, 0x5a);
    return bytes;
}

// ---- Round trips ----

bool ReadBareReply(GVariant* reply) {
    if (!reply) return false;
    const char *from = nullptr, *type = nullptr, *message = nullptr;
    guint32 code = 0;
    GVariant* payload = nullptr;
    g_variant_get(reply, "(&su&s&s@a(y))", &from, &code, &type, &message, &payload);
    benchmark::DoNotOptimize(g_variant_get_data(payload));
    g_variant_unref(payload);
    g_variant_unref(reply);
    return true;
}

GVariant* BarePlainCall() {
    return bench::BareGDBusCall("SendMessage", bench::PlainArguments(kFrom, 0, "", bench::kAvailabilityRequest));
}

void BM_Bare_GDBusCall(benchmark::State& state) {
    ReadBareReply(BarePlainCall());
    const bench::AllocationProbe allocations;
    for (auto _ : state) {
        if (!ReadBareReply(BarePlainCall())) state.SkipWithError("bare call failed");
    }
    allocations.Report(state, state.iterations());
}

bool ToolkitCall(TermsDbusMessage& request) {
    TermsDbusMessage reply = {};
    const int sent = SendTermsDbusSyncMessage(kHandle, bench::kServiceName, &request, &reply, -1);
    ReleaseTermsDbusMessage(&reply);
    return sent == 1;
}

TermsDbusMessage Request(const char* type, uint32_t code, void* payload, uint32_t size) {
    TermsDbusMessage request = {};
    InitiateTermsDbusMessage(&request, const_cast<char*>(kFrom), code, const_cast<char*>(type),
                             const_cast<char*>(bench::kAvailabilityRequest), payload, size);
    return request;
}

void BM_Toolkit_SendTermsDbusSyncMessage(benchmark::State& state) {
    TermsDbusMessage request = Request("", 0, nullptr, 0);
    ToolkitCall(request);
    const bench::AllocationProbe allocations;
    for (auto _ : state) {
        if (!ToolkitCall(request)) state.SkipWithError("toolkit call failed");
    }
    allocations.Report(state, state.iterations());
}

// ---- Payloads ----

size_t PayloadSize(const benchmark::State& state) {
    return state.range(0) > 0 ? static_cast<size_t>(state.range(0)) : LargestPayload();
}

void ReportPayload(benchmark::State& state, size_t size) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
    state.counters["payload_bytes"] = static_cast<double>(size);
}

void BM_Bare_GDBusPayloadOut(benchmark::State& state) {
    const size_t size = PayloadSize(state);
    const unsigned char* bytes = PayloadBytes(size).data();
    for (auto _ : state) {
        GVariant* arguments = bench::PayloadArguments(kFrom, 0, "", bench::kAvailabilityRequest, bytes, size);
        if (!ReadBareReply(bench::BareGDBusCall("SendMessageWithBuffer", arguments)))
            state.SkipWithError("call failed");
    }
    ReportPayload(state, size);
}

void BM_Toolkit_PayloadOut(benchmark::State& state) {
    const size_t size = PayloadSize(state);
    TermsDbusMessage request = Request("", 0, PayloadBytes(size).data(), static_cast<uint32_t>(size));
    for (auto _ : state) {
        if (!ToolkitCall(request)) state.SkipWithError("toolkit call failed");
    }
    ReportPayload(state, size);
}

void BM_Bare_GDBusPayloadIn(benchmark::State& state) {
    const size_t size = PayloadSize(state);
    for (auto _ : state) {
        GVariant* arguments = bench::PlainArguments(kFrom, static_cast<guint32>(size), bench::kPayloadReplyType,
                                                    bench::kAvailabilityRequest);
        if (!ReadBareReply(bench::BareGDBusCall("SendMessage", arguments))) state.SkipWithError("call failed");
    }
    ReportPayload(state, size);
}

void BM_Toolkit_PayloadIn(benchmark::State& state) {
    const size_t size = PayloadSize(state);
    TermsDbusMessage request = Request(bench::kPayloadReplyType, static_cast<uint32_t>(size), nullptr, 0);
    for (auto _ : state) {
        TermsDbusMessage reply = {};
        if (SendTermsDbusSyncMessage(kHandle, bench::kServiceName, &request, &reply, -1) != 1 ||
            reply.buffer_size != size) {
            state.SkipWithError("toolkit call failed");
        }
        ReleaseTermsDbusMessage(&reply);
    }
    ReportPayload(state, size);
}

// ---- Signals: emitted by this process, received by a listener of its own ----

class SignalListener {
public:
    SignalListener() {
        m_pBus = nullptr;
        const std::string match = std::string("type='signal',interface='") + kToolkitName + "'";
        if (sd_bus_open_system(&m_pBus) < 0 || sd_bus_add_match(m_pBus, nullptr, match.c_str(), OnSignal, this) < 0) {
            std::abort();
        }
        m_Thread = std::thread([this] { Run(); });
    }
    ~SignalListener() {
        m_Stop = true;
        m_Thread.join();
        sd_bus_flush_close_unref(m_pBus);
    }

    uint64_t Received() {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Received;
    }

    // False when they did not all arrive within ten seconds.
    bool WaitFor(uint64_t count) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Arrived.wait_for(lock, std::chrono::seconds(10), [&] { return m_Received >= count; });
    }

private:
    static int OnSignal(sd_bus_message*, void* self, sd_bus_error*) {
        auto* listener = static_cast<SignalListener*>(self);
        {
            std::lock_guard<std::mutex> lock(listener->m_Mutex);
            ++listener->m_Received;
        }
        listener->m_Arrived.notify_one();
        return 0;
    }

    void Run() {
        while (!m_Stop) {
            const int result = sd_bus_process(m_pBus, nullptr);
            if (result < 0) return;
            if (result == 0) sd_bus_wait(m_pBus, 100 * 1000);
        }
    }

    sd_bus* m_pBus;
    std::thread m_Thread;
    std::atomic<bool> m_Stop{false};
    std::mutex m_Mutex;
    std::condition_variable m_Arrived;
    uint64_t m_Received = 0;
};

SignalListener& Listener() {
    static SignalListener listener;
    return listener;
}

template <typename Emit>
void RunSignalBatches(benchmark::State& state, Emit emit) {
    SignalListener& listener = Listener();
    uint64_t expected = listener.Received();
    for (auto _ : state) {
        for (int i = 0; i < kSignalBatch; ++i) {
            if (!emit()) state.SkipWithError("emitting failed");
        }
        expected += kSignalBatch;
        if (!listener.WaitFor(expected)) state.SkipWithError("signals were lost");
    }
    state.SetItemsProcessed(state.iterations() * kSignalBatch);
}

void BM_Bare_GDBusSignals(benchmark::State& state) {
    RunSignalBatches(state, [] {
        return g_dbus_connection_emit_signal(bench::SharedGDBus(), nullptr, kToolkitPath, kToolkitName, kSignalName,
                                             bench::PlainArguments(kFrom, 0, "", bench::kAvailabilityRequest),
                                             nullptr) == TRUE;
    });
}

void BM_Toolkit_SendTermsDbusSignal(benchmark::State& state) {
    TermsDbusMessage message = Request("", 0, nullptr, 0);
    RunSignalBatches(state, [&] { return SendTermsDbusSignal(kHandle, kSignalName, &message) == 1; });
}

void Register() {
    using bench::Tune;
    Tune(benchmark::RegisterBenchmark("BM_Bare_GDBusCall", BM_Bare_GDBusCall));
    Tune(benchmark::RegisterBenchmark("BM_Toolkit_SendTermsDbusSyncMessage", BM_Toolkit_SendTermsDbusSyncMessage));
    // Sizes in bytes; 0 stands for the largest payload the bus takes.
    // Large payloads take seconds a call: one call, repeated three times
    // (interleaved with the other benchmarks when the run asks for it).
    const struct {
        int64_t size;
        int64_t iterations;
        int repetitions;
    } sizes[] = {{1024, 0, 1}, {64 * 1024, 10, 1}, {1024 * 1024, 1, 3}, {0, 1, 3}};
    for (const auto& size : sizes) {
        for (auto* bm : {benchmark::RegisterBenchmark("BM_Bare_GDBusPayloadOut", BM_Bare_GDBusPayloadOut),
                         benchmark::RegisterBenchmark("BM_Toolkit_PayloadOut", BM_Toolkit_PayloadOut)}) {
            Tune(bm->Arg(size.size)->Unit(benchmark::kMillisecond)->UseRealTime(), size.iterations, size.repetitions);
        }
    }
    for (const auto& size : sizes) {
        if (size.size == 0) continue;  // a reply that large is refused like a call
        for (auto* bm : {benchmark::RegisterBenchmark("BM_Bare_GDBusPayloadIn", BM_Bare_GDBusPayloadIn),
                         benchmark::RegisterBenchmark("BM_Toolkit_PayloadIn", BM_Toolkit_PayloadIn)}) {
            Tune(bm->Arg(size.size)->Unit(benchmark::kMillisecond)->UseRealTime(), size.iterations, size.repetitions);
        }
    }
    Tune(benchmark::RegisterBenchmark("BM_Bare_GDBusSignals", BM_Bare_GDBusSignals)->UseRealTime());
    Tune(benchmark::RegisterBenchmark("BM_Toolkit_SendTermsDbusSignal", BM_Toolkit_SendTermsDbusSignal)->UseRealTime());
}

void CreateToolkitServer() {
    if (InitiateTermsDbusServer(kHandle) != 1 || CreateTermsDbusServer(kToolkitName) != 1) {
        std::fprintf(stderr, "bench-toolkit: cannot create the toolkit's server\n");
        std::exit(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    bench::TakeSmokeFlag(&argc, argv);
    CreateToolkitServer();
    Register();
    const int status = bench::RunBenchmarks(argc, argv);
    CloseTermsDbusServer(kHandle);
    return status;
}
