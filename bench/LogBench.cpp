// bench-log: one line of the library's log format through the log stand-in,
// written and filtered out, beside writing a line of the same length with
// one write(2) and beside calling a function that does nothing.
//
// Run with DLOG_OUTPUT=file:<path> and DLOG_MIN_PRIO=I: the info line is
// written to the file, the debug line is below the minimum priority.
#define LOG_TAG "Veranti"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "BenchSupport.h"
#include "TermsLog.h"

namespace {

int g_Requester = 2;

void BM_Log_Written(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TLOG_INFO("GetDisclaimerNum called with requester: %d", g_Requester));
}

void BM_Log_FilteredOut(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(TLOG_TRACE("GetDisclaimerNum called with requester: %d", g_Requester));
}

// The file the log writes to, or /dev/null when it writes to no file.
int OpenLogTarget() {
    const char* output = std::getenv("DLOG_OUTPUT");
    const char* path = output && std::strncmp(output, "file:", 5) == 0 ? output + 5 : "/dev/null";
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
}

// The same line, already formatted, appended with one write(2).
void BM_Baseline_WriteLine(benchmark::State& state) {
    const std::string line =
        "2024-01-01 12:00:00.000 I/Veranti(1234:1234) main: LogBench.cpp: BM_Log_Written(24) > "
        "\033[32mGetDisclaimerNum called with requester: 2\033[0m\n";
    const int fd = OpenLogTarget();
    for (auto _ : state) {
        if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            state.SkipWithError("write failed");
    }
    close(fd);
}

__attribute__((noinline)) int DoNothing(const char* format, int value) {
    benchmark::DoNotOptimize(format);
    return value;
}

void BM_Baseline_EmptyCall(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(DoNothing("%d", g_Requester));
}

void Register() {
    using bench::Tune;
    Tune(benchmark::RegisterBenchmark("BM_Log_Written", BM_Log_Written));
    Tune(benchmark::RegisterBenchmark("BM_Baseline_WriteLine", BM_Baseline_WriteLine));
    Tune(benchmark::RegisterBenchmark("BM_Log_FilteredOut", BM_Log_FilteredOut));
    Tune(benchmark::RegisterBenchmark("BM_Baseline_EmptyCall", BM_Baseline_EmptyCall));
}

}  // namespace

int main(int argc, char** argv) {
    bench::TakeSmokeFlag(&argc, argv);
    Register();
    return bench::RunBenchmarks(argc, argv);
}
