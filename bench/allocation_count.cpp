#include "bench/allocation_count.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

std::uint64_t CountAllocations() {
    return allocations;
}

// These take the place of the C library's own, which has them under other names, too. operator new calls
// them. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
