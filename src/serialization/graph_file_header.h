// What stands in a graph file ahead of its operators. docs/graph-file.md has the format.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace orb {

// Both forms of the magic; the eighth byte of the first is the feature byte.
constexpr char GRAPH_MAGIC[] = "orb0001";
constexpr char GRAPH_MAGIC_WITHOUT_FEATURES[] = "orb0000a";
constexpr size_t GRAPH_MAGIC_BYTES = 7;

namespace graph_feature {
constexpr uint8_t ALIGNED_VALUES = 0x01;
constexpr uint8_t DTYPE_TABLE = 0x02;
constexpr uint8_t PRIORITIES = 0x04;
constexpr uint8_t NODES = 0x08;  // and the version word
constexpr uint8_t OUTPUT_DTYPES = 0x10;
constexpr uint8_t RESERVED = 0xE0;
}  // namespace graph_feature

constexpr uint32_t GRAPH_FORMAT_VERSION = 702600;
constexpr uint64_t GRAPH_HASH_SEED = 0x4B4E74B36B5D11;

// 0 stands for no hash.
constexpr uint64_t graph_hash_of(uint64_t digest) {
    return digest == 0 ? 1 : digest;
}

constexpr size_t MAX_LISTED_TYPES = 6;
constexpr size_t NR_LISTED_DTYPES = 7;
constexpr uint64_t VALUE_ALIGNMENT = 32;

struct GraphFileHeader {
    uint8_t features = 0;
    uint32_t version = 0;
    uint64_t hash = 0;
    uint64_t nr_shared_tensors = 0;
    // Grows by the ids that stand literally in records.
    std::vector<uint64_t> type_ids;
    std::array<uint8_t, NR_LISTED_DTYPES> dtypes = {0, 1, 2, 3, 4, 5, 6};
    // Positions of the operators that carry an output dtype, in ascending order.
    std::vector<uint64_t> dtype_operators;
    uint64_t nr_operators = 0;

    bool has(uint8_t feature) const { return (features & feature) != 0; }
};

}  // namespace orb
