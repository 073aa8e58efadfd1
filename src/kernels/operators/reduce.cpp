#include "kernels/operators/reduce.h"

#include "kernels/check.h"
#include "kernels/types/quantise.h"

namespace kern {

void Reduce::check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size) {
    KERN_CHECK(m_param.data_type != ReduceDataType::FLOAT_IO16_CO32);
    KERN_CHECK(src.is_dense() && dst.is_dense());
    KERN_CHECK(dst.same_shape(collapse_axis(src, m_param.axis)));

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

}  // namespace kern
