#include "graph/memory/chunk_sharing.h"

#include <algorithm>

#include "graph/core/operator.h"

namespace orb {

void ChunkSharing::clear() {
    m_views.clear();
    m_overwrites.clear();
    m_sources.clear();
    m_destinations.clear();
    m_written.clear();
}

std::vector<GraphVar*> ChunkSharing::views(const MemChunk* chunk) const {
    const auto found = m_views.find(chunk);
    return found == m_views.end() ? std::vector<GraphVar*>() : found->second;
}

bool ChunkSharing::add_overwrite(MemChunk* src, MemChunk* dest) {
    if (m_sources.count(src) || m_destinations.count(dest))
        return false;
    m_sources.insert(src);
    m_destinations.insert(dest);
    m_overwrites.push_back({src, dest});
    return true;
}

bool ChunkSharing::is_last_read(const GraphVar* input, const GraphVar* output) const {
    const MemChunk* chunk = input->mem_plan().chunk;
    const size_t step = m_uses.of(output).writer;
    const auto is_done = [&](const GraphVar* sharer) {
        // One past the last step that needs the value.
        const size_t end = m_uses.end_of_life(sharer);
        return sharer == input ? end <= step + 1 : end <= step;
    };
    const auto found = m_views.find(chunk);
    return is_done(chunk->owner) && is_done(input) &&
           (found == m_views.end() ||
            std::all_of(found->second.begin(), found->second.end(), is_done));
}

size_t ChunkSharing::end_of_life(const MemChunk* chunk) const {
    size_t end = m_uses.end_of_life(chunk->owner);
    const auto found = m_views.find(chunk);
    if (found == m_views.end())
        return end;
    for (const GraphVar* view : found->second)
        end = std::max(end, m_uses.end_of_life(view));
    return end;
}

}  // namespace orb
