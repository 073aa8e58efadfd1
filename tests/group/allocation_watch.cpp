#include "tests/group/allocation_watch.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> watched_bytes{allocation_watch::Watch::NEVER};
std::atomic<size_t> allowed{allocation_watch::Watch::NEVER};
std::atomic<size_t> failures{allocation_watch::Watch::NEVER};
std::atomic<size_t> nr_seen{0};
std::atomic<size_t> largest_seen{0};
std::atomic<size_t> largest_runtime{0};
std::atomic<size_t> mapped_bytes{0};

void raise_to(std::atomic<size_t>& largest, size_t size) {
    size_t seen = largest.load();
    while (seen < size && !largest.compare_exchange_weak(seen, size)) {
    }
}

bool must_fail(size_t size) {
    if (size < watched_bytes.load())
        return false;
    raise_to(largest_seen, size);
    const size_t before = nr_seen.fetch_add(1);
    return before >= allowed.load() && before - allowed.load() < failures.load();
}

void* allocate(size_t size, size_t alignment) {
    if (must_fail(size))
        return nullptr;
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

Watch::Watch(size_t bytes, size_t failing_after, size_t failing) {
    nr_seen = 0;
    largest_seen = 0;
    allowed = failing_after;
    failures = failing;
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

size_t mapped() {
    return mapped_bytes;
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
#define DELETE_WITH_FREE(parameters)           \
    void operator delete parameters noexcept { \
        std::free(memory);                     \
    }
DELETE_WITH_FREE((void* memory))
DELETE_WITH_FREE([](void* memory))
DELETE_WITH_FREE((void* memory, size_t))
DELETE_WITH_FREE([](void* memory, size_t))
DELETE_WITH_FREE((void* memory, const std::nothrow_t&))
DELETE_WITH_FREE((void* memory, std::align_val_t))
DELETE_WITH_FREE((void* memory, size_t, std::align_val_t))
DELETE_WITH_FREE((void* memory, std::align_val_t, const std::nothrow_t&))

// The linker sends the calls of this program's own files to the functions __wrap_*.
extern "C" void* __real_mmap(void*, size_t, int, int, int, off_t);
extern "C" void* __wrap_mmap(void*, size_t, int, int, int, off_t);
void* __wrap_mmap(void* place, size_t size, int protection, int flags, int file, off_t offset) {
    if (must_fail(size)) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    void* memory = __real_mmap(place, size, protection, flags, file, offset);
    if (memory != MAP_FAILED)
        mapped_bytes += size;
    return memory;
}

extern "C" int __real_munmap(void*, size_t);
extern "C" int __wrap_munmap(void*, size_t);
int __wrap_munmap(void* memory, size_t size) {
    mapped_bytes -= size;
    return __real_munmap(memory, size);
}

// Nothing but the runtime's nodes calls it.
extern "C" int __real_posix_memalign(void** memory, size_t alignment, size_t size);
extern "C" int __wrap_posix_memalign(void** memory, size_t alignment, size_t size);
int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    raise_to(largest_runtime, size);
    return __real_posix_memalign(memory, alignment, size);
}
