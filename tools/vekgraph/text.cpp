#include "vekgraph/text.h"

#include "common/text.h"

namespace vekgraph {

void write_shape(tools::JsonWriter& json, const kern::TensorShape& shape) {
    json.begin_array();
    for (size_t axis = 0; axis < shape.ndim; ++axis)
        json.value(uint64_t{shape[axis]});
    json.end_array();
}

std::string dtype_text(kern::DType dtype) {
    if (!dtype.valid())
        return "none";
    std::string name = dtype.name();
    using tools::formatted;
    const auto scaled = [&name](float scale) {
        return name + "(scale " + formatted("%.9g", static_cast<double>(scale));
    };
    switch (dtype.enum_value()) {
        case kern::DTypeEnum::QUANTIZED8_ASYMM: {
            const auto& param = dtype.param<kern::Quantized8AsymmParam>();
            return scaled(param.scale) + ", zero point " + std::to_string(param.zero_point) + ")";
        }
        case kern::DTypeEnum::QUANTIZED_S32:
            return scaled(dtype.param<kern::QuantizedS32Param>().scale) + ")";
        case kern::DTypeEnum::QUANTIZED_S8:
            return scaled(dtype.param<kern::QuantizedS8Param>().scale) + ")";
        default:
            return name;
    }
}

std::string tensor_text(const kern::TensorLayout& layout) {
    const kern::TensorShape& shape = layout;
    return dtype_text(layout.dtype) + " " + shape.to_string();
}

}  // namespace vekgraph
