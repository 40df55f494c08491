#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {
std::atomic<uint64_t> g_Allocations{0};

void Count() {
    g_Allocations.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace

extern "C" {

void* malloc(size_t size) {
    Count();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    Count();
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    Count();
    return __libc_realloc(block, size);
}

}  // extern "C"

namespace bench {

uint64_t AllocationCount() {
    return g_Allocations.load(std::memory_order_relaxed);
}

}  // namespace bench
