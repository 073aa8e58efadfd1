#include "kernels/reduce.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/quantise.h"

namespace kern {

void Reduce::check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size) {
    KERN_CHECK(m_param.data_type != ReduceDataType::FLOAT_IO16_CO32);
    KERN_CHECK(src.is_dense() && dst.is_dense() && src.ndim == dst.ndim);
    const auto reduced = static_cast<size_t>(m_param.axis);  // a negative axis is beyond any ndim
    KERN_CHECK(reduced < src.ndim);
    for (size_t axis = 0; axis < src.ndim; ++axis)
        KERN_CHECK(dst[axis] == (axis == reduced ? 1 : src[axis]));

    KERN_CHECK(src.dtype.valid() && dst.dtype.valid());
    const DTypeCategory category = src.dtype.category();
    KERN_CHECK(category == dst.dtype.category());
    switch (m_param.data_type) {
        case ReduceDataType::DEFAULT:
            KERN_CHECK(src.dtype == dst.dtype);
            KERN_CHECK(category == DTypeCategory::FLOAT || category == DTypeCategory::INTEGER ||
                       category == DTypeCategory::QUANTISED);
            break;
        case ReduceDataType::QUINT_I8_O32:
            KERN_CHECK(src.dtype.enum_value() == DTypeEnum::QUANTIZED8_ASYMM);
            break;
        default:
            KERN_CHECK(category == DTypeCategory::FLOAT);
    }
    KERN_CHECK(m_param.mode <= ReduceMode::MEAN);
    KERN_CHECK(workspace_in_bytes(src, dst) <= workspace_size);
}

DType Reduce::working_dtype(DType src) const {
    if (m_param.data_type != ReduceDataType::DEFAULT)
        return DType::Float32();
    if (src.category() != DTypeCategory::QUANTISED)
        return src;
    switch (m_param.mode) {
        case ReduceMode::SUM:
        case ReduceMode::MEAN:
            return DType::QuantizedS32(Quantisation::of(src).scale);
        case ReduceMode::MIN:
        case ReduceMode::MAX:
            return src;  // elements are in the order of the numbers they stand for
        default:
            // A product of two elements has another scale than either.
            return DType::Float32();
    }
}

AxisSplit AxisSplit::of(const TensorLayout& layout, size_t axis) {
    AxisSplit split{1, layout[axis], 1};
    for (size_t i = 0; i < axis; ++i)
        split.outer = checked_mul(split.outer, layout[i]);
    for (size_t i = axis + 1; i < layout.ndim; ++i)
        split.inner = checked_mul(split.inner, layout[i]);
    return split;
}

}  // namespace kern
