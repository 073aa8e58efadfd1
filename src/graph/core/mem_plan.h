// Where a var's value lives: a layout at an offset of a chunk. A chunk is one piece of memory that
// one var or several (by forwarding) live in. Plans belong to their vars and are made anew by the
// memory manager whenever shapes change.
#pragma once

#include <atomic>
#include <cstddef>

#include "graph/tensor/storage.h"
#include "kernels/types/layout.h"

namespace orb {

class GraphVar;

struct MemChunk {
    enum class Status {
        NONE,     // no memory yet
        STATIC,   // at `static_offset` of its node's block
        STORAGE,  // memory of its own: dynamic, or lent by an operator
    };

    GraphVar* owner = nullptr;
    size_t size = 0;                  // bytes
    std::atomic<size_t> nr_plans{0};  // plans that point here; the last one to go frees the memory
    Status status = Status::NONE;
    size_t static_offset = 0;
    DeviceTensorStorage storage;
};

struct MemPlan {
    kern::TensorLayout layout;
    ptrdiff_t offset_byte = 0;  // of the layout's first element in the chunk
    MemChunk* chunk = nullptr;
    MemChunk own_chunk;

    // Forgets layout and chunk. Views of the chunk keep its memory.
    void reset();
    // A layout in the plan's own chunk, `bytes` long.
    void use_own_chunk(const kern::TensorLayout& new_layout, size_t bytes);
    // A layout in another plan's chunk, `offset` bytes behind that plan's first element.
    void share_chunk(const MemPlan& other, const kern::TensorLayout& new_layout, ptrdiff_t offset);

private:
    void point_to(MemChunk* new_chunk);
};

}  // namespace orb
