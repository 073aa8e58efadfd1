#include "graph/core/operator_copy.h"

#include <unordered_map>

#include "kernels/check.h"

namespace orb {
namespace {

using CopyTable = std::unordered_map<const OperatorType*, OperatorCopy::Function>;

// Made at first use: entries come from the start-up of other files.
CopyTable& copy_table() {
    static CopyTable table;
    return table;
}

}  // namespace

OperatorCopy::OperatorCopy(const OperatorType* type, Function function) {
    KERN_CHECK(copy_table().emplace(type, function).second);
}

OperatorCopy::Function OperatorCopy::find(const OperatorType* type) {
    const auto found = copy_table().find(type);
    return found == copy_table().end() ? nullptr : found->second;
}

}  // namespace orb
