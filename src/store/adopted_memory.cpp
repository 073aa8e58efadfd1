#include "store/adopted_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <new>
#include <stdexcept>

namespace vek {
namespace {

size_t checked(size_t size, bool overflow) {
    if (overflow || size > static_cast<size_t>(PTRDIFF_MAX))
        throw std::length_error("size");
    return size;
}

// Rows are read from beginning to end, which small pages slow down. A wish: systems without huge
// pages refuse it. Neighbouring blocks are advised up to the pages they share, so that a huge page
// may lie across two of them. 32-bit devices have no memory to round up with.
void ask_for_huge_pages(void* memory, size_t bytes) {
    constexpr size_t HUGE_PAGE = size_t{2} << 20;
    if (sizeof(void*) < 8 || bytes < HUGE_PAGE)
        return;
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t offset = reinterpret_cast<uintptr_t>(memory) % page;
    madvise(static_cast<uint8_t*>(memory) - offset, (offset + bytes + page - 1) / page * page,
            MADV_HUGEPAGE);
}

}  // namespace

size_t size_product(size_t a, size_t b) {
    size_t product = 0;
    const bool overflow = __builtin_mul_overflow(a, b, &product);
    return checked(product, overflow);
}

size_t size_sum(size_t a, size_t b) {
    size_t sum = 0;
    const bool overflow = __builtin_add_overflow(a, b, &sum);
    return checked(sum, overflow);
}

std::shared_ptr<uint8_t> allocate_adoptable(orb::CompNode node, size_t bytes) {
    const auto alignment = static_cast<std::align_val_t>(node.memory_alignment());
    // The form that does not throw: the address sanitizer ends the process in the other one.
    void* memory = ::operator new(bytes, alignment, std::nothrow);
    if (!memory)
        throw std::bad_alloc();
    ask_for_huge_pages(memory, bytes);
    return {static_cast<uint8_t*>(memory),
            [alignment](uint8_t* data) { ::operator delete(data, alignment); }};
}

}  // namespace vek
