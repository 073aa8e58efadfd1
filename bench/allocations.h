// Counts what `operator new` hands out, in the whole program: included by its one source file.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

inline std::atomic<int64_t> nr_allocations{0};

// Not inline: the compiler would see a pointer of malloc in `delete`, or the other way round.
__attribute__((noinline)) void* operator new(size_t size) {
    nr_allocations.fetch_add(1, std::memory_order_relaxed);
    void* ptr = std::malloc(size);
    if (!ptr)
        throw std::bad_alloc();
    return ptr;
}
__attribute__((noinline)) void operator delete(void* ptr) noexcept {
    std::free(ptr);
}
__attribute__((noinline)) void operator delete(void* ptr, size_t) noexcept {
    std::free(ptr);
}
