#include "graph/memory/mem_plan.h"

namespace orb {

void MemPlan::reset() {
    point_to(nullptr);
    layout.ndim = 0;
    offset_byte = 0;
    layout_fixed = false;
    own_chunk.size = 0;
    own_chunk.status = MemChunk::Status::NONE;
    own_chunk.storage = DeviceTensorStorage();
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
    if (chunk)
        --chunk->nr_plans;
    chunk = new_chunk;
    if (chunk)
        ++chunk->nr_plans;
}

}  // namespace orb
