// Hands out chunks of one size from blocks that grow geometrically; blocks are given back only by
// `clear` and the destructor. For many small list records with one owner. Not locked: the owner
// guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace orb {

class ChunkPool final {
public:
    // Chunks are aligned like any object if `chunk_size` is a multiple of the strictest alignment.
    explicit ChunkPool(size_t chunk_size);

    void* alloc();
    // Keeps the chunk for a later `alloc`.
    void free(void* chunk);
    // Frees all blocks: every chunk handed out so far becomes invalid.
    void clear();

    // Bytes of all blocks.
    size_t reserved_bytes() const { return m_reserved; }

private:
    size_t next_block_size() const;

    size_t m_chunk_size;
    size_t m_block_size = 0;  // of the newest block, 0 when there is none
    size_t m_used = 0;        // bytes handed out of the newest block
    size_t m_reserved = 0;
    std::vector<std::unique_ptr<uint8_t[]>> m_blocks;
    std::vector<void*> m_free;
};

}  // namespace orb
