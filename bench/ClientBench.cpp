// bench-client: the terms client's requests against bare sd-bus round trips
// to the same minimal service, on the same bus, in the same run.
//
// items_processed counts bus exchanges, so items_per_second is requests per
// second. bus_msgs_per_call (where reported) is the number of messages the
// bus carried per call, counted by a monitor.
#include <VerantiAPI.h>

#include <memory>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BenchSupport.h"

namespace {

using bench::BareSdBusCall;
using bench::ThreadSdBus;

void RequireBareCall(benchmark::State& state, sd_bus* bus, const char* body) {
    std::string error;
    if (!BareSdBusCall(bus, body, &error)) state.SkipWithError(("bare call failed: " + error).c_str());
}

// ---- Baselines: bare sd-bus calls with the bytes the library sends ----

void BM_Bare_SdBusCall(benchmark::State& state) {
    sd_bus* bus = ThreadSdBus();
    RequireBareCall(state, bus, bench::kAvailabilityRequest);
    const bench::AllocationProbe allocations;
    for (auto _ : state) RequireBareCall(state, bus, bench::kAvailabilityRequest);
    state.SetItemsProcessed(state.iterations());
    if (state.threads() == 1) allocations.Report(state, state.iterations());
}

void BM_Bare_SdBusTwoCalls(benchmark::State& state) {
    sd_bus* bus = ThreadSdBus();
    RequireBareCall(state, bus, bench::kAvailabilityRequest);
    const bench::AllocationProbe allocations;
    for (auto _ : state) {
        RequireBareCall(state, bus, bench::kAvailabilityRequest);
        RequireBareCall(state, bus, bench::kCountryCodeRequest);
    }
    state.SetItemsProcessed(state.iterations() * 2);
    allocations.Report(state, state.iterations());
}

// The two exchanges of one disclaimer: the availability check and the item.
void BM_Bare_SdBusDisclaimerPair(benchmark::State& state) {
    sd_bus* bus = ThreadSdBus();
    RequireBareCall(state, bus, bench::kAvailabilityRequest);
    const bench::AllocationProbe allocations;
    for (auto _ : state) {
        RequireBareCall(state, bus, bench::kAvailabilityRequest);
        RequireBareCall(state, bus, bench::kDisclaimerByOrderRequest);
    }
    state.SetItemsProcessed(state.iterations() * 2);
    allocations.Report(state, state.iterations());
}

// What the framework would cost without connection reuse (for reference).
void BM_Bare_SdBusNewConnectionPerCall(benchmark::State& state) {
    for (auto _ : state) {
        sd_bus* bus = nullptr;
        if (sd_bus_open_system(&bus) < 0) state.SkipWithError("no bus");
        RequireBareCall(state, bus, bench::kAvailabilityRequest);
        sd_bus_flush_close_unref(bus);
    }
    state.SetItemsProcessed(state.iterations());
}

// ---- The library ----

CVerantiAPI* Client() {
    static CVerantiAPI* client = CVerantiAPI::GetInstance();
    return client;
}

void BM_Lib_IsServiceAvailable(benchmark::State& state) {
    CVerantiAPI* client = Client();
    if (!client->IsServiceAvailable()) state.SkipWithError("service not available");
    const bench::AllocationProbe allocations;
    for (auto _ : state) benchmark::DoNotOptimize(client->IsServiceAvailable());
    state.SetItemsProcessed(state.iterations());
    if (state.threads() == 1) allocations.Report(state, state.iterations());
}

void BM_Lib_SetCountryCode(benchmark::State& state) {
    CVerantiAPI* client = Client();
    const std::string country = "DE";
    if (!client->SetCountryCode(country)) state.SkipWithError("request failed");
    const bench::AllocationProbe allocations;
    for (auto _ : state) benchmark::DoNotOptimize(client->SetCountryCode(country));
    state.SetItemsProcessed(state.iterations() * 2);
    allocations.Report(state, state.iterations());
}

void BM_Lib_GetDisclaimerDetail(benchmark::State& state) {
    CVerantiAPI* client = Client();
    client->IsServiceAvailable();
    const bench::AllocationProbe allocations;
    for (auto _ : state) {
        STHomeDisclaimerContentItem item;
        if (client->GetDisclaimerDetail(item, 0, E_DISCLAIMER_REQUESTER_0, "TV") != 0) {
            state.SkipWithError("request failed");
        }
    }
    state.SetItemsProcessed(state.iterations() * 2);
    if (state.threads() == 1) allocations.Report(state, state.iterations());
}

// One full list of `range(0)` disclaimers: 2 + 2 * count exchanges.
void BM_Lib_GetDisclaimerDetails(benchmark::State& state) {
    const auto count = static_cast<unsigned>(state.range(0));
    bench::SetServiceDisclaimerNumber(count);
    CVerantiAPI* client = Client();
    std::vector<STHomeDisclaimerContentItem*> items;
    for (auto _ : state) {
        client->GetDisclaimerDetails(items, E_DISCLAIMER_REQUESTER_0, "TV");
        if (items.size() != count) state.SkipWithError("the list is incomplete");
        for (STHomeDisclaimerContentItem* item : items) delete item;
        items.clear();
    }
    bench::SetServiceDisclaimerNumber(1);
    state.SetItemsProcessed(state.iterations() * (2 + 2 * count));
}

// Messages on the bus per IsServiceAvailable, for comparison with the
// configuration-store queries (which must cause none).
void BM_Lib_IsServiceAvailable_BusMessages(benchmark::State& state) {
    static bench::BusMessageCounter counter;
    CVerantiAPI* client = Client();
    client->IsServiceAvailable();
    counter.Settle();
    const uint64_t before = counter.Count();
    for (auto _ : state) benchmark::DoNotOptimize(client->IsServiceAvailable());
    counter.Settle();
    state.counters["bus_msgs_per_call"] =
        static_cast<double>(counter.Count() - before) / static_cast<double>(state.iterations());
}

// Resident size and open descriptors of this client after 1,000 and after
// 100,000 requests (10 and 100 in a smoke run). Run it in a process of its own.
void BM_Memory_ClientAfterRequests(benchmark::State& state) {
    const long first = bench::IsSmokeRun() ? 10 : 1000;
    const long total = bench::IsSmokeRun() ? 100 : 100000;
    CVerantiAPI* client = Client();
    for (auto _ : state) {
        long done = 0;
        auto runUntil = [&](long count) {
            for (; done < count; ++done) {
                if (!client->IsServiceAvailable()) state.SkipWithError("request failed");
            }
        };
        runUntil(first);
        const bench::ProcessFigures early = bench::ReadProcessFigures();
        runUntil(total);
        const bench::ProcessFigures late = bench::ReadProcessFigures();
        state.counters["requests_first"] = static_cast<double>(first);
        state.counters["requests_total"] = static_cast<double>(total);
        state.counters["rss_kib_first"] = static_cast<double>(early.rssKiB);
        state.counters["rss_kib_total"] = static_cast<double>(late.rssKiB);
        state.counters["fds_first"] = static_cast<double>(early.openFds);
        state.counters["fds_total"] = static_cast<double>(late.openFds);
    }
}

void Register() {
    using bench::Tune;
    Tune(benchmark::RegisterBenchmark("BM_Bare_SdBusCall", BM_Bare_SdBusCall));
    Tune(benchmark::RegisterBenchmark("BM_Lib_IsServiceAvailable", BM_Lib_IsServiceAvailable));
    Tune(benchmark::RegisterBenchmark("BM_Bare_SdBusTwoCalls", BM_Bare_SdBusTwoCalls));
    Tune(benchmark::RegisterBenchmark("BM_Lib_SetCountryCode", BM_Lib_SetCountryCode));
    Tune(benchmark::RegisterBenchmark("BM_Bare_SdBusDisclaimerPair", BM_Bare_SdBusDisclaimerPair));
    Tune(benchmark::RegisterBenchmark("BM_Lib_GetDisclaimerDetail", BM_Lib_GetDisclaimerDetail));
    Tune(benchmark::RegisterBenchmark("BM_Lib_GetDisclaimerDetails", BM_Lib_GetDisclaimerDetails)
             ->Arg(1)
             ->Arg(10)
             ->Arg(100)
             ->Unit(benchmark::kMicrosecond));
    for (int threads : {1, 2, 4}) {
        Tune(benchmark::RegisterBenchmark("BM_Bare_SdBusCall_Threads", BM_Bare_SdBusCall)
                 ->Threads(threads)
                 ->UseRealTime());
        Tune(benchmark::RegisterBenchmark("BM_Lib_IsServiceAvailable_Threads", BM_Lib_IsServiceAvailable)
                 ->Threads(threads)
                 ->UseRealTime());
    }
    // Requests per second that a service serves to 1 and 4 clients (each
    // thread is a client with its own connection); bench.sh runs these
    // against the minimal service and against the simulated one.
    for (int threads : {1, 4}) {
        Tune(benchmark::RegisterBenchmark("BM_Lib_GetDisclaimerDetail_Threads", BM_Lib_GetDisclaimerDetail)
                 ->Threads(threads)
                 ->UseRealTime());
    }
    Tune(benchmark::RegisterBenchmark("BM_Bare_SdBusNewConnectionPerCall", BM_Bare_SdBusNewConnectionPerCall));
    Tune(benchmark::RegisterBenchmark("BM_Lib_IsServiceAvailable_BusMessages", BM_Lib_IsServiceAvailable_BusMessages),
         bench::IsSmokeRun() ? 0 : 2000);
    Tune(benchmark::RegisterBenchmark("BM_Memory_ClientAfterRequests", BM_Memory_ClientAfterRequests)
             ->Unit(benchmark::kSecond),
         1);
}

}  // namespace

int main(int argc, char** argv) {
    bench::TakeSmokeFlag(&argc, argv);
    Register();
    return bench::RunBenchmarks(argc, argv);
}
