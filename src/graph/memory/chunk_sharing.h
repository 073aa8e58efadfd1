// Which vars of a plan live in one chunk, and which chunk takes over the memory of another: what
// operators ask for while they plan their outputs. Filled anew for every plan.
#pragma once

#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "graph/memory/var_uses.h"

namespace orb {

class ChunkSharing final {
public:
    struct Overwrite {
        MemChunk* src;
        MemChunk* dest;  // whose memory `src` takes over
    };

    // `uses` must outlive this object.
    explicit ChunkSharing(const VarUses& uses) : m_uses(uses) {}
    void clear();

    // A var beside the chunk's owner that lives in the chunk.
    void add_view(const MemChunk* chunk, GraphVar* var) { m_views[chunk].push_back(var); }
    std::vector<GraphVar*> views(const MemChunk* chunk) const;
    // An operator writes into the chunk of its input on purpose.
    void mark_written(const MemChunk* chunk) { m_written.insert(chunk); }
    bool is_written(const MemChunk* chunk) const { return m_written.count(chunk) != 0; }
    // False when either has a part in such a pair already.
    bool add_overwrite(MemChunk* src, MemChunk* dest);
    const std::vector<Overwrite>& overwrites() const { return m_overwrites; }

    // Whether nobody reads the chunk of `input` once the operator of `output` has run, nor that
    // operator itself through another view: it may overwrite elements that it has yet to read
    // there.
    bool is_last_read(const GraphVar* input, const GraphVar* output) const;
    // The first position at which nobody needs the chunk any more.
    size_t end_of_life(const MemChunk* chunk) const;

private:
    const VarUses& m_uses;
    std::unordered_map<const MemChunk*, std::vector<GraphVar*>> m_views;
    std::vector<Overwrite> m_overwrites;
    std::unordered_set<const MemChunk*> m_sources, m_destinations;  // of overwrites
    std::unordered_set<const MemChunk*> m_written;
};

}  // namespace orb
