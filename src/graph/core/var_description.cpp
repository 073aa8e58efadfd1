#include <algorithm>
#include <cstdio>

#include "graph/core/compute_graph.h"

namespace orb {
namespace {

std::string describe(const GraphVar& var) {
    const GraphOperator& op = *var.owner_operator();
    const bool has_value = var.has_device_value();
    const std::string extent =
        has_value ? var.device_value().layout().to_string() : var.shape().to_string();
    const auto slot = std::find(op.output().begin(), op.output().end(), &var) - op.output().begin();
    const InferenceManager& inference = op.owner_graph().inference_manager();
    char numbers[64];
    std::string text = "{id:" + std::to_string(var.id());
    text += std::string(", ") + (has_value ? "layout" : "shape") + ":" + extent;
    text += std::string(", ") + var.dtype().name_or_invalid();
    text += ", owner:" + op.name() + "{" + op.type_record()->name + "}";
    text += ", name:" + var.name() + ", slot:" + std::to_string(slot);
    text += ", " + (var.comp_node().valid() ? var.comp_node().to_string() : std::string());
    std::snprintf(numbers, sizeof(numbers), ", %c, %d, %d}", var.is_static_storage() ? 's' : 'd',
                  static_cast<int>(inference.shape_kind(&var)),
                  static_cast<int>(inference.value_kind(&var)));
    return text + numbers;
}

}  // namespace

std::string var_description(const std::vector<const GraphVar*>& vars) {
    std::string text;
    for (size_t i = 0; i < vars.size(); ++i) {
        if (i > 0)
            text += " ";
        if (vars.size() > 1)
            text += std::to_string(i) + "=";
        text += describe(*vars[i]);
    }
    return text;
}

}  // namespace orb
