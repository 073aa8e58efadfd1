#include "graph/core/mem_plan.h"

namespace orb {

void MemPlan::reset() {
    point_to(nullptr);
    layout.ndim = 0;
    offset_byte = 0;
}

void MemPlan::use_own_chunk(const kern::TensorLayout& new_layout, size_t bytes) {
    point_to(&own_chunk);
    own_chunk.size = bytes;
    layout = new_layout;
    offset_byte = 0;
}

void MemPlan::share_chunk(const MemPlan& other, const kern::TensorLayout& new_layout,
                          ptrdiff_t offset) {
    const ptrdiff_t base = other.offset_byte;
    point_to(other.chunk);
    layout = new_layout;
    offset_byte = base + offset;
}

void MemPlan::point_to(MemChunk* new_chunk) {
    // The new chunk first: it may be the old one.
    if (new_chunk)
        ++new_chunk->nr_plans;
    if (chunk && --chunk->nr_plans == 0) {
        chunk->size = 0;
        chunk->status = MemChunk::Status::NONE;
        chunk->storage = DeviceTensorStorage();
    }
    chunk = new_chunk;
}

}  // namespace orb
