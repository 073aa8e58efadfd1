#include "graph/memory/static_plan.h"

#include "graph/memory/static_allocator.h"

namespace orb {

StaticPlan plan_chunks(const std::vector<ChunkLife>& chunks,
                       const std::vector<ChunkSharing::Overwrite>& overwrites, size_t alignment) {
    StaticMemoryAllocator allocator(alignment);
    std::unordered_map<const MemChunk*, size_t> ids;
    for (const ChunkLife& life : chunks)
        ids[life.chunk] = allocator.add(life.begin, life.end, life.chunk->size);
    for (const ChunkSharing::Overwrite& overwrite : overwrites) {
        if (ids.count(overwrite.src))
            allocator.add_overwrite_spec(ids.at(overwrite.src), ids.at(overwrite.dest), 0);
    }
    allocator.solve();
    StaticPlan plan;
    for (const ChunkLife& life : chunks)
        plan.offsets.push_back(allocator.get_interval_addr(ids.at(life.chunk)));
    plan.size = allocator.peak();
    return plan;
}

}  // namespace orb
