// Finds a place for each chunk of one node: a pure function of when the chunks live.
#pragma once

#include <vector>

#include "graph/memory/chunk_sharing.h"

namespace orb {

struct ChunkLife {
    MemChunk* chunk;
    size_t begin, end;  // the first step, and one past the last
};

struct StaticPlan {
    std::vector<size_t> offsets;  // of the chunks, in their order
    size_t size = 0;              // bytes of all
};

// Chunks that live at the same time do not overlap, but for those of `overwrites`; pairs of other
// chunks are passed over.
StaticPlan plan_chunks(const std::vector<ChunkLife>& chunks,
                       const std::vector<ChunkSharing::Overwrite>& overwrites, size_t alignment);

}  // namespace orb
