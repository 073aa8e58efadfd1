#include "graph/core/operator_config.h"

namespace orb {
namespace {

constexpr uint32_t MULTIPLIER = 20141203;

}  // namespace

uint32_t OperatorConfig::hash() const {
    auto result = static_cast<uint32_t>(comp_nodes.size());
    for (CompNode node : comp_nodes) {
        const auto word = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(node.impl()));
        result = word + MULTIPLIER * result;
    }
    return user_value + (result + instance_id * MULTIPLIER) * MULTIPLIER;
}

bool OperatorConfig::is_same(const OperatorConfig& other) const {
    return comp_nodes == other.comp_nodes && instance_id == other.instance_id &&
           user_value == other.user_value && output_dtype == other.output_dtype;
}

}  // namespace orb
