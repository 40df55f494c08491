// bench-consent: the consent library against the calls it is made of, on the
// simulated service with the sample catalogue (scripts/bench.sh starts it).
//
// - Status of requester 0 against the terms client calls it makes, one after
//   the other: IsServiceAvailable, GetDisclaimerDetails, GetRevisedDisclaimers.
// - The time from a completed store write to the change event, against the
//   time from the same write to a bare inotify wakeup on the key's directory.
// - An asynchronous call (work on a worker, result on the main context)
//   against the same call made blocking.
#include <VerantiAPI.h>
#include <VerantiConsent.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <vconf.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

const char kAgreementKey[] = "db/veranti/disclaimeragrees";

CVerantiAPI& Client() {
    return *CVerantiAPI::GetInstance();
}

void BM_Consent_Status(benchmark::State& state) {
    for (auto _ : state) {
        ConsentStatus status;
        if (ConsentGetStatus(TERMS_REQUESTER_0, &status) == CONSENT_STATUS_UNKNOWN) {
            state.SkipWithError("the service did not answer");
        }
        ConsentStatusClear(&status);
    }
}

void BM_Lib_StatusCalls(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<STHomeDisclaimerContentItem*> items, revised;
        benchmark::DoNotOptimize(Client().IsServiceAvailable());
        Client().GetDisclaimerDetails(items, E_DISCLAIMER_REQUESTER_0, "TV");
        Client().GetRevisedDisclaimers(revised, "TV", "");
        for (auto* item : items) delete item;
        for (auto* item : revised) delete item;
    }
}

// Alternates the key between two values, so that each write is a change.
std::string NextValue(long i) {
    return i % 2 ? R"({"privacy":"true"})" : R"({"privacy":"false"})";
}

void ReportMedian(benchmark::State& state, std::vector<double>& latencies) {
    if (latencies.empty()) return;
    const auto middle = latencies.begin() + static_cast<std::ptrdiff_t>(latencies.size() / 2);
    std::nth_element(latencies.begin(), middle, latencies.end());
    state.counters["latency_median_ns"] = *middle;
}

void BM_Consent_StoreChangeToEvent(benchmark::State& state) {
    struct Seen {
        Clock::time_point at;
        bool arrived = false;
    } seen;
    const auto onChange = [](const ConsentChange*, int, void* data) {
        auto* seen = static_cast<Seen*>(data);
        seen->at = Clock::now();
        seen->arrived = true;
    };
    vconf_set_str(kAgreementKey, NextValue(0).c_str());
    const unsigned int id = ConsentAddChangeCallback(onChange, &seen);
    if (id == 0) return state.SkipWithError("cannot watch the store");
    std::vector<double> latencies;
    long i = 0;
    for (auto _ : state) {
        seen.arrived = false;
        if (vconf_set_str(kAgreementKey, NextValue(++i).c_str()) != 0) std::abort();
        const Clock::time_point written = Clock::now();
        while (!seen.arrived) g_main_context_iteration(nullptr, TRUE);
        const double latency = std::chrono::duration<double>(seen.at - written).count();
        state.SetIterationTime(latency);
        latencies.push_back(latency * 1e9);
    }
    ConsentRemoveChangeCallback(id);
    ReportMedian(state, latencies);
}

// The least a watcher can do: an inotify watch on the key's directory and a
// poll that returns when the write lands.
void BM_Bare_StoreChangeToInotifyWakeup(benchmark::State& state) {
    vconf_set_str(kAgreementKey, NextValue(0).c_str());
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    const std::string dir = std::string(getenv("VCONF_ROOT")) + "/db/veranti";
    if (fd < 0 || inotify_add_watch(fd, dir.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
        return state.SkipWithError("cannot watch the store directory");
    }
    std::vector<double> latencies;
    char buffer[4096];
    long i = 0;
    for (auto _ : state) {
        while (read(fd, buffer, sizeof buffer) > 0) {
        }
        if (vconf_set_str(kAgreementKey, NextValue(++i).c_str()) != 0) std::abort();
        const Clock::time_point written = Clock::now();
        pollfd ready{fd, POLLIN, 0};
        poll(&ready, 1, -1);
        const double latency = std::chrono::duration<double>(Clock::now() - written).count();
        state.SetIterationTime(latency);
        latencies.push_back(latency * 1e9);
    }
    close(fd);
    ReportMedian(state, latencies);
}

// Starts one asynchronous call and runs the main context until it ends.
template <typename Start>
void RunAsync(benchmark::State& state, Start start) {
    for (auto _ : state) {
        bool ended = false;
        start(&ended);
        while (!ended) g_main_context_iteration(nullptr, TRUE);
    }
}

void BM_Consent_IsServiceAvailableAsync(benchmark::State& state) {
    RunAsync(state, [](bool* ended) {
        ConsentIsServiceAvailableAsync(
            0, [](ConsentCallResult, int, void* flag) { *static_cast<bool*>(flag) = true; }, ended);
    });
}

void BM_Lib_IsServiceAvailable(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Client().IsServiceAvailable());
}

void BM_Consent_StatusAsync(benchmark::State& state) {
    RunAsync(state, [](bool* ended) {
        ConsentGetStatusAsync(
            TERMS_REQUESTER_0, 0,
            [](ConsentCallResult, const ConsentStatus*, void* flag) { *static_cast<bool*>(flag) = true; }, ended);
    });
}

void Register() {
    using bench::Tune;
    Tune(benchmark::RegisterBenchmark("BM_Consent_Status", BM_Consent_Status));
    Tune(benchmark::RegisterBenchmark("BM_Lib_StatusCalls", BM_Lib_StatusCalls));
    Tune(benchmark::RegisterBenchmark("BM_Consent_StoreChangeToEvent", BM_Consent_StoreChangeToEvent)->UseManualTime(),
         bench::IsSmokeRun() ? 0 : 200);
    Tune(benchmark::RegisterBenchmark("BM_Bare_StoreChangeToInotifyWakeup", BM_Bare_StoreChangeToInotifyWakeup)
             ->UseManualTime(),
         bench::IsSmokeRun() ? 0 : 200);
    Tune(benchmark::RegisterBenchmark("BM_Consent_IsServiceAvailableAsync", BM_Consent_IsServiceAvailableAsync));
    Tune(benchmark::RegisterBenchmark("BM_Lib_IsServiceAvailable", BM_Lib_IsServiceAvailable));
    Tune(benchmark::RegisterBenchmark("BM_Consent_StatusAsync", BM_Consent_StatusAsync));
}

}  // namespace

int main(int argc, char** argv) {
    bench::TakeSmokeFlag(&argc, argv);
    Register();
    return bench::RunBenchmarks(argc, argv);
}
