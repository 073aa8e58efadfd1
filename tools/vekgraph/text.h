// Types and shapes of tensors, for people and as JSON.
#pragma once

#include <string>

#include "common/json.h"
#include "kernels/types/layout.h"

namespace vekgraph {

std::string dtype_text(kern::DType dtype);                  // with its parameters
std::string tensor_text(const kern::TensorLayout& layout);  // such as "Float32 {2,3}"
// The axes' lengths as an array.
void write_shape(tools::JsonWriter& json, const kern::TensorShape& shape);

}  // namespace vekgraph
