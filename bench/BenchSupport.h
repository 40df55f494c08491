// What the benchmark programs share: the minimal service's names and fixed
// texts, the bare bus calls that serve as baselines, a bus message counter,
// the process's memory figures and the registration of benchmarks for a
// full or a smoke run.
#ifndef BENCH_SUPPORT_H
#define BENCH_SUPPORT_H

#include <benchmark/benchmark.h>
#include <gio/gio.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

namespace bench {

// The minimal service: the terms-client bus name, its object and interface.
extern const char kServiceName[];
extern const char kServicePath[];
// Its control interface (on the same object): SetDisclaimerNumber(u) sets
// the "number" member of the fixed reply; ReplyPayload calls are answered
// with a payload of `code` bytes when the call's type is this text.
extern const char kControlInterface[];
extern const char kPayloadReplyType[];

// The bodies the library sends for the measured requests, as compact JSON,
// so that a bare call carries the same bytes.
extern const char kAvailabilityRequest[];
extern const char kCountryCodeRequest[];
extern const char kDisclaimerByOrderRequest[];
// The client name every library request carries.
extern const char kClientName[];

// ---- Bare sd-bus calls, one connection per thread (as the framework keeps) ----

// The calling thread's system bus connection; aborts when there is none.
sd_bus* ThreadSdBus();
// One "SendMessage" round trip with `body` to the service; the reply's four
// leading members are read. False (with the D-Bus error in `error`) on failure.
bool BareSdBusCall(sd_bus* bus, const char* body, std::string* error = nullptr);
// Sets the "number" of the service's fixed reply.
void SetServiceDisclaimerNumber(unsigned number);

// ---- Bare GDBus calls, on the process's shared system bus connection ----

GDBusConnection* SharedGDBus();
// A call of `method` to the service with `arguments` (consumed when floating);
// the reply is handed back (caller unrefs) or null with the error logged to stderr.
GVariant* BareGDBusCall(const char* method, GVariant* arguments);
// "(suss)" arguments as the toolkit builds them for a record without payload.
GVariant* PlainArguments(const char* from, uint32_t code, const char* type, const char* message);
// "(sussa(y))" with `size` bytes at `data` wrapped in place, as the toolkit does.
GVariant* PayloadArguments(const char* from, uint32_t code, const char* type, const char* message, const void* data,
                           size_t size);

// ---- Bus traffic ----

// Counts every message on the bus through a monitor connection of its own,
// on a thread of its own, while it lives.
class BusMessageCounter {
public:
    BusMessageCounter();
    ~BusMessageCounter();
    BusMessageCounter(const BusMessageCounter&) = delete;
    BusMessageCounter& operator=(const BusMessageCounter&) = delete;

    // Messages seen so far; call Settle() first to include those in flight.
    uint64_t Count() const { return m_Count.load(std::memory_order_relaxed); }
    // Waits until the monitor has seen a round trip of its own (a ping to the
    // bus), so every message sent before the call has been counted. The
    // ping's two messages are not counted.
    void Settle();

private:
    void Run();

    sd_bus* m_pMonitor = nullptr;
    std::atomic<uint64_t> m_Count{0};
    std::atomic<uint64_t> m_PingsSeen{0};
    std::atomic<bool> m_Stop{false};
    std::string m_PingMember;
    std::thread m_Thread;
};

// ---- Process figures ----

struct ProcessFigures {
    long rssKiB = 0;
    long openFds = 0;
};
ProcessFigures ReadProcessFigures();

// ---- Registration ----

// Reads and removes --smoke from the arguments: each benchmark then runs a
// single iteration, only to show that it still works.
bool TakeSmokeFlag(int* argc, char** argv);
bool IsSmokeRun();
// Applies the run's iteration policy: one iteration in a smoke run,
// otherwise `iterations` and `repetitions` when given (slow benchmarks), or
// Google Benchmark's own and the command line's.
benchmark::internal::Benchmark* Tune(benchmark::internal::Benchmark* bm, int64_t iterations = 0, int repetitions = 1);

// Standard main of a benchmark program, after its Register function ran.
int RunBenchmarks(int argc, char** argv);

}  // namespace bench

#endif  // BENCH_SUPPORT_H
