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

// Memory of at least so many bytes is mapped, from the beginning of a huge page on: rows are read
// from one end to the other, which small pages slow down. 32-bit devices have no memory to round up
// with.
constexpr size_t HUGE_PAGE = size_t{2} << 20;

bool is_mapped(size_t bytes) {
    return sizeof(void*) >= 8 && bytes >= HUGE_PAGE;
}

size_t whole_pages(size_t bytes) {
    static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size_sum(bytes, page - 1) / page * page;
}

struct Unmap {
    size_t bytes;
    void operator()(uint8_t* memory) const { munmap(memory, whole_pages(bytes)); }
};
using Mapping = std::unique_ptr<uint8_t, Unmap>;

Mapping map_memory(size_t bytes) {
    const size_t used = whole_pages(bytes);
    const size_t mapped = size_sum(used, HUGE_PAGE);
    void* memory =
        mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    auto* begin = static_cast<uint8_t*>(memory);
    const size_t before = HUGE_PAGE - reinterpret_cast<uintptr_t>(begin) % HUGE_PAGE;
    munmap(begin, before);
    begin += before;
    if (mapped > before + used)
        munmap(begin + used, mapped - before - used);
    madvise(begin, used, MADV_HUGEPAGE);  // a request, which some systems refuse
    return {begin, Unmap{bytes}};
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
    if (is_mapped(bytes))
        return map_memory(bytes);
    const auto alignment = static_cast<std::align_val_t>(node.memory_alignment());
    // The form that does not throw: the address sanitizer ends the process in the other one.
    void* memory = ::operator new(bytes, alignment, std::nothrow);
    if (!memory)
        throw std::bad_alloc();
    return {static_cast<uint8_t*>(memory),
            [alignment](uint8_t* data) { ::operator delete(data, alignment); }};
}

std::vector<std::shared_ptr<uint8_t>> allocate_blocks(orb::CompNode node, size_t bytes,
                                                      size_t count) {
    const size_t all = size_product(bytes, count);
    std::vector<std::shared_ptr<uint8_t>> blocks;
    if (is_mapped(all) && bytes == whole_pages(bytes)) {
        Mapping rest = map_memory(all);
        blocks.reserve(count);
        while (blocks.size() < count) {
            const size_t left = rest.get_deleter().bytes - bytes;
            uint8_t* block = rest.release();
            rest = left > 0 ? Mapping(block + bytes, Unmap{left}) : nullptr;
            blocks.emplace_back(block, Unmap{bytes});
        }
        return blocks;
    }
    // With a wide address space, a number out of all proportion is found out by one allocation that
    // is given back at once, before it has taken up thousands of blocks.
    if (sizeof(size_t) > sizeof(uint32_t) && count > 1)
        allocate_adoptable(node, all);
    blocks.reserve(count);
    while (blocks.size() < count)
        blocks.push_back(allocate_adoptable(node, bytes));
    return blocks;
}

uint8_t* allocate_large(size_t bytes) {
    return is_mapped(bytes) ? map_memory(bytes).release()
                            : static_cast<uint8_t*>(::operator new(bytes));
}

void free_large(uint8_t* memory, size_t bytes) noexcept {
    if (is_mapped(bytes))
        Unmap{bytes}(memory);
    else
        ::operator delete(memory);
}

}  // namespace vek
