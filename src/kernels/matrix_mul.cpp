#include "kernels/matrix_mul.h"

#include "kernels/check.h"

namespace kern {
namespace {

// Rows may be padded but never interleaved.
void check_matrix(const TensorLayout& layout) {
    KERN_CHECK(layout.stride[1] == 1);
    KERN_CHECK(layout.stride[0] >= 0 && static_cast<size_t>(layout.stride[0]) >= layout.shape[1]);
}

bool is_enum(const TensorLayout& layout, DTypeEnum wanted) {
    return layout.dtype.enum_value() == wanted;
}

bool dtypes_fit(MatrixMulDataType data_type, const TensorLayout& a, const TensorLayout& b,
                const TensorLayout& c) {
    if (a.dtype.enum_value() != b.dtype.enum_value())
        return false;
    switch (data_type) {
        case MatrixMulDataType::DEFAULT:
        case MatrixMulDataType::FLOAT_IO16_CO32:
            return a.dtype.category() == DTypeCategory::FLOAT && c.dtype == a.dtype;
        case MatrixMulDataType::INT8_TO_INT16:
            return is_enum(a, DTypeEnum::INT8) && is_enum(c, DTypeEnum::INT16);
        case MatrixMulDataType::INT8_TO_INT32:
            return (is_enum(a, DTypeEnum::INT8) && is_enum(c, DTypeEnum::INT32)) ||
                   (is_enum(a, DTypeEnum::QUANTIZED_S8) && is_enum(c, DTypeEnum::QUANTIZED_S32));
        case MatrixMulDataType::ASYMM8_TO_S32:
            return is_enum(a, DTypeEnum::QUANTIZED8_ASYMM) && is_enum(c, DTypeEnum::QUANTIZED_S32);
    }
    return false;
}

}  // namespace

TensorLayout MatrixMul::deduce_layout(const TensorLayout& a, const TensorLayout& b,
                                      DType c_dtype) const {
    KERN_CHECK(a.ndim == 2 && b.ndim == 2);
    KERN_CHECK(a[m_param.transpose_a ? 0 : 1] == b[m_param.transpose_b ? 1 : 0]);
    return TensorLayout({a[m_param.transpose_a ? 1 : 0], b[m_param.transpose_b ? 0 : 1]}, c_dtype);
}

void MatrixMul::check_exec(const TensorLayout& a, const TensorLayout& b, const TensorLayout& c,
                           size_t workspace_size) {
    KERN_CHECK(a.ndim == 2 && b.ndim == 2 && c.ndim == 2);
    check_matrix(a);
    check_matrix(b);
    check_matrix(c);
    KERN_CHECK(c.same_shape(deduce_layout(a, b, c.dtype)));
    KERN_CHECK(a.dtype.valid() && b.dtype.valid() && c.dtype.valid());
    KERN_CHECK(a.dtype.size_log2() == b.dtype.size_log2());
    KERN_CHECK(dtypes_fit(m_param.data_type, a, b, c));
    KERN_CHECK(workspace_in_bytes(a, b, c) <= workspace_size);
}

}  // namespace kern
