#include "graph/node/chunk_pool.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace orb {
namespace {

constexpr size_t MAX_CHUNKS_PER_BLOCK = 2048;
constexpr size_t MIN_CHUNKS_OF_LARGE_BLOCK = 16;
constexpr size_t LARGE_BLOCK = 32768;

}  // namespace

ChunkPool::ChunkPool(size_t chunk_size) : m_chunk_size(chunk_size) {
    KERN_CHECK(chunk_size != 0);
}

void* ChunkPool::alloc() {
    if (!m_free.empty()) {
        void* chunk = m_free.back();
        m_free.pop_back();
        return chunk;
    }
    if (m_block_size - m_used < m_chunk_size) {
        const size_t size = next_block_size();
        m_blocks.emplace_back(new uint8_t[size]);
        m_block_size = size;
        m_used = 0;
        m_reserved += size;
    }
    void* chunk = m_blocks.back().get() + m_used;
    m_used += m_chunk_size;
    return chunk;
}

void ChunkPool::free(void* chunk) {
    m_free.push_back(chunk);
}

void ChunkPool::clear() {
    *this = ChunkPool(m_chunk_size);  // gives the lists' own memory back as well
}

size_t ChunkPool::next_block_size() const {
    using kern::checked_mul;
    const size_t base = m_block_size != 0 ? m_block_size : checked_mul(2, m_chunk_size);
    const size_t size =
        std::min(checked_mul(MAX_CHUNKS_PER_BLOCK, m_chunk_size), checked_mul(2, base));
    if (size <= LARGE_BLOCK)
        return size;
    return std::max(LARGE_BLOCK - LARGE_BLOCK % m_chunk_size,
                    checked_mul(MIN_CHUNKS_OF_LARGE_BLOCK, m_chunk_size));
}

}  // namespace orb
