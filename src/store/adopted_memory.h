// Large memory that a caller's numbers ask for. The graph runtime's own allocator stops the process
// when memory runs out, so whatever is in proportion to rows or queries is allocated here, by a
// call that throws, and handed to the runtime as adopted storage. No state: any thread may call.
#pragma once

#include <cstddef>
#include <memory>

#include "graph/tensor/tensor.h"

namespace vek {

// Sizes in bytes or elements; std::length_error when the result is beyond PTRDIFF_MAX.
size_t size_product(size_t a, size_t b);
size_t size_sum(size_t a, size_t b);

// `bytes` uninitialised bytes, aligned as tensors of the node are; std::bad_alloc when there are
// none. The memory belongs to no node and may outlive all of them.
std::shared_ptr<uint8_t> allocate_adoptable(orb::CompNode node, size_t bytes);

// A storage on such memory.
template <typename Storage>
Storage make_adopted(orb::CompNode node, size_t bytes) {
    Storage storage(node);
    storage.reset(node, bytes, allocate_adoptable(node, bytes));
    return storage;
}

// From now on the tensor can be resized to `bytes` without an allocation. When it has to grow, its
// shape and contents go, also when this throws.
template <typename Trait>
void reserve_bytes(orb::TensorND<Trait>& tensor, size_t bytes) {
    using Storage = orb::TensorStorage<Trait>;
    if (tensor.storage().capacity() >= bytes)
        return;
    const orb::CompNode node = tensor.comp_node();
    const kern::TensorLayout no_shape(tensor.dtype());
    // The old memory goes first, so that both never exist together.
    tensor.reset(Storage(node), no_shape);
    tensor.reset(make_adopted<Storage>(node, bytes), no_shape);
}

}  // namespace vek
