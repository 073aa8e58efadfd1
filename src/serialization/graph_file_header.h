// The constants of the graph file format, and what stands ahead of its operators.
// docs/graph-file.md has the format.
#pragma once

#include <array>
#include <cstddef>
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

// An operator's header byte: the selector of its type, whether names follow, the number of inputs.
constexpr unsigned SELECT_BY_INDEX = 6;
constexpr unsigned SELECT_LITERAL = 7;
constexpr uint8_t HAS_NAMES = 0x10;
constexpr unsigned NR_INPUTS_FOLLOWS = 7;
constexpr char END_MARK = 'e';

// The byte ahead of an operator's nodes, and of a tensor's, with what follows in the other bits.
constexpr uint8_t NODE_LIST = 0x01;
constexpr uint8_t NODE_INDEX = 0x02;
constexpr uint8_t TENSOR_NODE_INDEX = 0x80;

// A tensor's header byte, with the codes of its rank and dtype in the other bits.
constexpr uint8_t TENSOR_HAS_NAME = 0x01;
constexpr uint8_t TENSOR_HAS_VALUE = 0x02;
constexpr uint8_t TENSOR_ON_FIRST_NODE = 0x04;
constexpr unsigned RANK_FOLLOWS = 3;
constexpr unsigned DTYPE_FOLLOWS = 7;

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
