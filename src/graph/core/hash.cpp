#include "graph/core/hash.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "kernels/check.h"

namespace orb {

Hasher::Hasher(uint64_t seed) : m_state(XXH64_createState()) {
    KERN_CHECK(m_state);
    XXH64_reset(static_cast<XXH64_state_t*>(m_state), seed);
}

Hasher::~Hasher() {
    XXH64_freeState(static_cast<XXH64_state_t*>(m_state));
}

Hasher& Hasher::update(const void* bytes, size_t size) {
    XXH64_update(static_cast<XXH64_state_t*>(m_state), bytes, size);
    return *this;
}

uint64_t Hasher::digest() const {
    return XXH64_digest(static_cast<const XXH64_state_t*>(m_state));
}

uint64_t hash_bytes(const void* bytes, size_t size, uint64_t seed) {
    return XXH64(bytes, size, seed);
}

}  // namespace orb
