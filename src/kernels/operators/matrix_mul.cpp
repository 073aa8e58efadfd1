#include "kernels/operators/matrix_mul.h"

#include "kernels/check.h"

namespace kern {
namespace {

// Rows may be padded but never interleaved.
void check_matrix(const TensorLayout& layout) {
    KERN_CHECK(layout.stride[1] == 1);
    KERN_CHECK(layout.stride[0] >= 0 && static_cast<size_t>(layout.stride[0]) >= layout.shape[1]);
}

}  // namespace

TensorShape MatrixMul::deduce_shape(const Param& param, const TensorShape& a,
                                    const TensorShape& b) {
    KERN_CHECK(a.ndim == 2 && b.ndim == 2);
    KERN_CHECK(a[param.transpose_a ? 0 : 1] == b[param.transpose_b ? 1 : 0]);
    return {a[param.transpose_a ? 1 : 0], b[param.transpose_b ? 0 : 1]};
}

DTypeEnum MatrixMul::deduce_dtype(MatrixMulDataType data_type, DTypeEnum operands) {
    const struct {
        MatrixMulDataType data_type;
        DTypeEnum operands;
        DTypeEnum result;
    } rows[] = {
        {MatrixMulDataType::DEFAULT, DTypeEnum::FLOAT32, DTypeEnum::FLOAT32},
        {MatrixMulDataType::DEFAULT, DTypeEnum::FLOAT16, DTypeEnum::FLOAT16},
        {MatrixMulDataType::FLOAT_IO16_CO32, DTypeEnum::FLOAT32, DTypeEnum::FLOAT32},
        {MatrixMulDataType::FLOAT_IO16_CO32, DTypeEnum::FLOAT16, DTypeEnum::FLOAT16},
        {MatrixMulDataType::INT8_TO_INT16, DTypeEnum::INT8, DTypeEnum::INT16},
        {MatrixMulDataType::INT8_TO_INT32, DTypeEnum::INT8, DTypeEnum::INT32},
        {MatrixMulDataType::INT8_TO_INT32, DTypeEnum::QUANTIZED_S8, DTypeEnum::QUANTIZED_S32},
        {MatrixMulDataType::ASYMM8_TO_S32, DTypeEnum::QUANTIZED8_ASYMM, DTypeEnum::QUANTIZED_S32},
    };
    for (const auto& row : rows) {
        if (row.data_type == data_type && row.operands == operands)
            return row.result;
    }
    KERN_FAIL();
}

void MatrixMul::exec_folded(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                            const std::vector<Epilogue>& epilogues, const Workspace& workspace) {
    KERN_CHECK(epilogues.empty());
    exec(a, b, c, workspace);
}

size_t MatrixMul::nr_foldable(const TensorLayout&, const TensorLayout&,
                              const std::vector<Epilogue>&) const {
    return 0;
}

void MatrixMul::check_exec(const TensorLayout& a, const TensorLayout& b, const TensorLayout& c,
                           size_t workspace_size) {
    KERN_CHECK(a.ndim == 2 && b.ndim == 2 && c.ndim == 2);
    check_matrix(a);
    check_matrix(b);
    check_matrix(c);
    KERN_CHECK(c.same_shape(deduce_shape(m_param, a, b)));
    KERN_CHECK(a.dtype.valid() && b.dtype.valid() && c.dtype.valid());
    KERN_CHECK(a.dtype.size_log2() == b.dtype.size_log2());
    const DTypeEnum operands = a.dtype.enum_value();
    KERN_CHECK(b.dtype.enum_value() == operands);
    KERN_CHECK(c.dtype.enum_value() == deduce_dtype(m_param.data_type, operands));
    KERN_CHECK(workspace_in_bytes(a, b, c) <= workspace_size);
}

}  // namespace kern
