// What the benchmarks of the whole library share: made-up features, groups over them, memory
// figures.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <type_traits>
#include <vector>

#include "vekfind/vekfind.h"

namespace vek_bench {

inline void check(VEKStatus status) {
    if (status != VEK_OK) {
        std::fprintf(stderr, "a call failed: %s\n", VEK_errorcode_to_string(status));
        std::exit(1);
    }
}

// xorshift64* (Vigna, "An experimental exploration of Marsaglia's xorshift generators, scrambled",
// 2016): fast enough not to be what is measured, and the same on every machine.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed * 2685821657736338717u + 1) {}

    uint64_t next() {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return m_state * 2685821657736338717u;
    }
    // Uniform in [-1, 1).
    float unit() { return static_cast<float>(static_cast<int64_t>(next()) >> 40) * 0x1p-23f; }

private:
    uint64_t m_state;
};

// Features as an element type of the library's groups: floats in [-1, 1), or integers of 8 bits.
template <typename T>
std::vector<T> random_features(size_t rows, size_t dim, uint64_t seed) {
    Random random(seed);
    std::vector<T> features(rows * dim);
    for (T& value : features)
        value = static_cast<T>(std::is_same_v<T, float> ? random.unit() : 127.0f * random.unit());
    return features;
}

inline std::vector<uint64_t> consecutive_ids(size_t count, uint64_t first = 0) {
    std::vector<uint64_t> ids(count);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

template <typename T>
const uint8_t* as_bytes(const T* features) {
    return static_cast<const uint8_t*>(static_cast<const void*>(features));
}

struct ReleaseContext {
    void operator()(VEKContext context) const { VEK_release(context); }
};
using Group = std::unique_ptr<std::remove_pointer_t<VEKContext>, ReleaseContext>;

template <typename T>
VEKFeatureGroupSettings settings_for(size_t dim, uint32_t tag_bytes = 0) {
    constexpr bool is_float = std::is_same_v<T, float>;
    VEKFeatureGroupSettings settings{};
    settings.feature_size = static_cast<uint32_t>(dim * sizeof(T));
    settings.tag_size = tag_bytes;
    settings.comparison.scale =
        (is_float ? 1.0f : 1.0f / (127.0f * 127.0f)) / static_cast<float>(dim);
    settings.index_type = is_float ? VEK_INDEX_BRUTE_FORCE_FLOAT32 : VEK_INDEX_BRUTE_FORCE_INT8;
    return settings;
}

template <typename T>
Group make_group(size_t dim, uint32_t tag_bytes = 0) {
    const VEKFeatureGroupSettings settings = settings_for<T>(dim, tag_bytes);
    VEKContext context = nullptr;
    check(VEK_make_feature_group_context(&settings, &context));
    return Group(context);
}

template <typename T>
void insert(const Group& group, const std::vector<T>& features, const std::vector<uint64_t>& ids,
            const std::vector<uint8_t>& tags = {}) {
    check(VEK_insert_features_to_feature_group(group.get(), as_bytes(features.data()), ids.data(),
                                               tags.data(), ids.size(), nullptr));
}

// A group of made-up rows. They are made and inserted in pieces, so that no second copy of a large
// group is ever held.
template <typename T>
Group make_filled_group(size_t rows, size_t dim, uint32_t tag_bytes = 0) {
    constexpr size_t PIECE = 16384;
    Group group = make_group<T>(dim, tag_bytes);
    check(VEK_reserve_feature_group_size(group.get(), rows));
    for (size_t first = 0; first < rows; first += PIECE) {
        const size_t count = std::min(PIECE, rows - first);
        insert(group, random_features<T>(count, dim, first + 1), consecutive_ids(count, first),
               std::vector<uint8_t>(count * tag_bytes));
    }
    return group;
}

// Resident memory now, and its highest value since `reset_peak_memory`, in bytes (Linux).
inline size_t memory_figure(const char* field) {
    size_t kilobytes = 0;
    if (std::FILE* file = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof(line), file)) {
            if (std::strncmp(line, field, std::strlen(field)) == 0)
                kilobytes = std::strtoull(line + std::strlen(field) + 1, nullptr, 10);
        }
        std::fclose(file);
    }
    return kilobytes * 1024;
}
inline size_t resident_memory() {
    return memory_figure("VmRSS");
}
inline size_t peak_memory() {
    return memory_figure("VmHWM");
}
inline void reset_peak_memory() {
    if (std::FILE* file = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", file);
        std::fclose(file);
    }
}

}  // namespace vek_bench
