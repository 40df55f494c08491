// Counts heap allocations of the whole process: a program linked with
// AllocationCounter.cpp has malloc, calloc and realloc of its own, which
// count and hand over to the C library's allocator.
#ifndef BENCH_ALLOCATION_COUNTER_H
#define BENCH_ALLOCATION_COUNTER_H

#include <benchmark/benchmark.h>

#include <cstdint>

namespace bench {

// Allocation calls (malloc, calloc, realloc) since the program started, in all threads.
uint64_t AllocationCount();

// Reports the allocations made between its construction and Report() per
// unit of work (one call) as the counter "allocs_per_call".
class AllocationProbe {
public:
    AllocationProbe() : m_Start(AllocationCount()) {}
    void Report(benchmark::State& state, int64_t calls) const {
        state.counters["allocs_per_call"] =
            static_cast<double>(AllocationCount() - m_Start) / static_cast<double>(calls);
    }

private:
    uint64_t m_Start;
};

}  // namespace bench

#endif  // BENCH_ALLOCATION_COUNTER_H
