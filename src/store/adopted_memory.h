// Large memory that a caller's numbers ask for. The graph runtime's own allocator stops the process
// when memory runs out, so whatever is in proportion to rows or queries is allocated here, by a
// call that throws, and handed to the runtime as adopted storage. No state: any thread may call.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "graph/tensor/tensor.h"

namespace vek {

// Sizes in bytes or elements; std::length_error when the result is beyond PTRDIFF_MAX.
size_t size_product(size_t a, size_t b);
size_t size_sum(size_t a, size_t b);

// `bytes` uninitialised bytes, aligned as tensors of the node are; std::bad_alloc when there are
// none. The memory belongs to no node and may outlive all of them.
std::shared_ptr<uint8_t> allocate_adoptable(orb::CompNode node, size_t bytes);

// `count` times such memory of `bytes` each. Neighbours where that makes reading one after the
// other faster; each is freed by itself.
std::vector<std::shared_ptr<uint8_t>> allocate_blocks(orb::CompNode node, size_t bytes,
                                                      size_t count);

// Memory of no node, aligned for every type of the language; freed with the same number of bytes.
uint8_t* allocate_large(size_t bytes);
void free_large(uint8_t* memory, size_t bytes) noexcept;

// Of a std::vector that grows large and is read all over.
template <typename T>
struct LargeAllocator {
    using value_type = T;

    LargeAllocator() = default;
    template <typename Other>
    LargeAllocator(const LargeAllocator<Other>&) {}

    T* allocate(size_t count) {
        void* memory = allocate_large(size_product(count, sizeof(T)));
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, size_t count) noexcept {
        void* bytes = memory;
        free_large(static_cast<uint8_t*>(bytes), count * sizeof(T));
    }
    friend bool operator==(LargeAllocator, LargeAllocator) { return true; }
    friend bool operator!=(LargeAllocator, LargeAllocator) { return false; }
};

// A storage on memory that is adopted, and one on new memory.
template <typename Storage>
Storage adopt(orb::CompNode node, size_t bytes, std::shared_ptr<uint8_t> memory) {
    Storage storage(node);
    storage.reset(node, bytes, std::move(memory));
    return storage;
}
template <typename Storage>
Storage make_adopted(orb::CompNode node, size_t bytes) {
    return adopt<Storage>(node, bytes, allocate_adoptable(node, bytes));
}

// The size of memory for `bytes` that takes the place of `old_bytes`: at least half as much again,
// so that a size which creeps up does not reallocate at each step.
inline size_t grown_size(size_t old_bytes, size_t bytes) {
    return std::max(bytes, old_bytes + old_bytes / 2);
}

// The tensor has no memory and no shape any more.
template <typename Trait>
void drop_memory(orb::TensorND<Trait>& tensor) {
    tensor.reset(orb::TensorStorage<Trait>(tensor.comp_node()), kern::TensorLayout(tensor.dtype()));
}

// From now on the tensor can be resized to `bytes` without an allocation. When it has to grow, its
// shape and contents go, also when this throws.
template <typename Trait>
void reserve_bytes(orb::TensorND<Trait>& tensor, size_t bytes) {
    const size_t old_bytes = tensor.storage().capacity();
    if (old_bytes >= bytes)
        return;
    // The old memory goes first, so that both never exist together.
    drop_memory(tensor);
    tensor.reset(
        make_adopted<orb::TensorStorage<Trait>>(tensor.comp_node(), grown_size(old_bytes, bytes)),
        kern::TensorLayout(tensor.dtype()));
}

}  // namespace vek
