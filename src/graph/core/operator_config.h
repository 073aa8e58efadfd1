// What a caller may say about an operator beside its inputs and parameters.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "graph/node/comp_node.h"
#include "kernels/types/dtype.h"

namespace orb {

struct OperatorConfig {
    std::optional<std::string> name;  // does not count for equality
    std::vector<CompNode> comp_nodes;
    // Distinguish operators that would otherwise be one.
    uint32_t instance_id = 0;
    uint32_t user_value = 0;
    // For operators whose output dtype may be chosen; invalid otherwise. Takes part in equality,
    // not in the hash.
    kern::DType output_dtype;

    uint32_t hash() const;
    bool is_same(const OperatorConfig& other) const;
};

}  // namespace orb
