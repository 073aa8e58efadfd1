#include "store/adopted_memory.h"

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
    return {static_cast<uint8_t*>(memory),
            [alignment](uint8_t* data) { ::operator delete(data, alignment); }};
}

}  // namespace vek
