#include "tests/group/allocation_watch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> watched_bytes{allocation_watch::Watch::NEVER};
std::atomic<size_t> allowed{allocation_watch::Watch::NEVER};
std::atomic<size_t> nr_seen{0};
std::atomic<size_t> largest_seen{0};
std::atomic<size_t> largest_runtime{0};

void raise_to(std::atomic<size_t>& largest, size_t size) {
    size_t seen = largest.load();
    while (seen < size && !largest.compare_exchange_weak(seen, size)) {
    }
}

void* allocate(size_t size, size_t alignment) {
    if (size >= watched_bytes.load()) {
        raise_to(largest_seen, size);
        if (nr_seen.fetch_add(1) >= allowed.load())
            return nullptr;
    }
    if (alignment <= alignof(std::max_align_t))
        return std::malloc(size == 0 ? 1 : size);
    const size_t rounded = (size + alignment - 1) / alignment * alignment;
    return rounded < size ? nullptr : std::aligned_alloc(alignment, rounded);
}

void* allocate_or_throw(size_t size, size_t alignment) {
    void* memory = allocate(size, alignment);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

namespace allocation_watch {

Watch::Watch(size_t bytes, size_t failing_after) {
    nr_seen = 0;
    largest_seen = 0;
    allowed = failing_after;
    watched_bytes = bytes;
}

Watch::~Watch() {
    watched_bytes = NEVER;
}

size_t Watch::seen() const {
    return nr_seen;
}

size_t Watch::largest() const {
    return largest_seen;
}

size_t largest_of_runtime() {
    return largest_runtime;
}

}  // namespace allocation_watch

void* operator new(size_t size) {
    return allocate_or_throw(size, 1);
}
void* operator new[](size_t size) {
    return allocate_or_throw(size, 1);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 1);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 1);
}
void* operator new(size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<size_t>(alignment));
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(memory);
}

// The linker sends all calls here (--wrap); nothing but the runtime's nodes makes any.
extern "C" int __real_posix_memalign(void** memory, size_t alignment, size_t size);
extern "C" int __wrap_posix_memalign(void** memory, size_t alignment, size_t size);
int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    raise_to(largest_runtime, size);
    return __real_posix_memalign(memory, alignment, size);
}
