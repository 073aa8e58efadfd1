// How an operator uses its inputs: computed once, when the operator is first asked.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "kernels/types/layout.h"

namespace orb {

class GraphVar;

using DependencyFlags = uint32_t;

namespace dependency {

constexpr DependencyFlags DEVICE_VALUE = 1;
constexpr DependencyFlags HOST_VALUE = 2;
// The output's storage depends on the host value; only together with HOST_VALUE.
constexpr DependencyFlags HOST_VALUE_DYNAMIC = 4;
constexpr DependencyFlags SHAPE = 8;
// Counted for the reuse of memory; only together with DEVICE_VALUE or HOST_VALUE.
constexpr DependencyFlags COUNTED = 32;

constexpr DependencyFlags READS_VALUE = DEVICE_VALUE | HOST_VALUE;

}  // namespace dependency

struct OperatorProperties {
    static constexpr uint32_t SINGLE_NODE = 1;
    static constexpr uint32_t CROSS_MEMORY_NODE = 2;  // may read inputs of other memory nodes
    static constexpr uint32_t NO_INPUT_MEMORY_RULE = 0x80000000;

    // Whether a layout can be read by the operator as it is.
    using LayoutCheck = std::function<bool(const kern::TensorLayout&)>;

    uint32_t flags = 0;
    uint32_t memory_rules = 0;  // NO_INPUT_MEMORY_RULE, or nothing
    // In the order of first use.
    std::vector<std::pair<GraphVar*, DependencyFlags>> dependencies;
    // By input.
    std::vector<std::pair<size_t, LayoutCheck>> layout_checks;

    void add_dependency(GraphVar* var, DependencyFlags flags);
    // In place of what the var had; no flags take it out.
    void set_dependency(GraphVar* var, DependencyFlags flags);
};

}  // namespace orb
