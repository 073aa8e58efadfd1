// The one hash function of the runtime: XXH64.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orb {

// Digests bytes that are handed over piece by piece.
class Hasher {
public:
    explicit Hasher(uint64_t seed);
    ~Hasher();
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    Hasher& update(const void* bytes, size_t size);
    Hasher& update_word(uint64_t word) { return update(&word, sizeof(word)); }
    uint64_t digest() const;

private:
    void* m_state;
};

uint64_t hash_bytes(const void* bytes, size_t size, uint64_t seed = 0);

}  // namespace orb
