// C = op(A) x op(B) on two-axis tensors, op an optional transposition.
#pragma once

#include <cstdint>
#include <vector>

#include "kernels/handle.h"
#include "kernels/operators/elementwise.h"

namespace kern {

// What is accumulated into what; the numbers never change.
enum class MatrixMulDataType : uint32_t {
    DEFAULT = 0,          // any float, accumulated in the element type
    INT8_TO_INT16 = 1,    // 16-bit accumulation
    INT8_TO_INT32 = 2,    // Int8 to Int32, QuantizedS8 to QuantizedS32
    FLOAT_IO16_CO32 = 3,  // any float, accumulated in 32-bit float, rounded once
    ASYMM8_TO_S32 = 4,    // Quantized8Asymm to QuantizedS32, zero points subtracted
};

struct MatrixMulParam {
    bool transpose_a = false;  // A is stored as K x M
    bool transpose_b = false;  // B is stored as N x K
    MatrixMulDataType data_type = MatrixMulDataType::DEFAULT;
};

class MatrixMul : public ParamOperator<MatrixMulParam> {
public:
    using ParamOperator::ParamOperator;
    bool is_thread_safe() const override { return true; }

    // A is {M, K}, B {K, N}, C {M, N} after the transpositions. Rows may be padded: the last axis
    // has stride 1 and the first at least the row's length. The products of floats in one element
    // of C are added in one order at each level, whatever the sizes: that of increasing k into one
    // accumulator, but for Float32 at the x86 level that of x86/kernel_table.h. So naive, fallback
    // and armv7 give the same bits, but for denormals on 32-bit Arm: the vectors there take them
    // for zeros and give zeros for them, while the scalar loops of naive keep them. Sums of
    // integers wrap around, and have the same bits at every level but armv7: see
    // armv7/int8_product.h.
    virtual void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                      const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                      const TensorLayout& c) = 0;

    // An elementwise operation on the whole product, broadcast: C = mode(C, operand). Borrows the
    // operand's memory, which is not that of C.
    struct Epilogue {
        ElementwiseMode mode;
        RawTensor operand;
    };
    // `exec` and then each of the epilogues, with the same bits as one after the other, but C is
    // written once. An epilogue that the level does not fold stops the process.
    virtual void exec_folded(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                             const std::vector<Epilogue>& epilogues, const Workspace& workspace);
    // How many of the epilogues, from the first on, this level folds: none but where it says so.
    virtual size_t nr_foldable(const TensorLayout& a, const TensorLayout& c,
                               const std::vector<Epilogue>& epilogues) const;

    // What C is for operands of these shapes and of one dtype. Operands that do not fit each other
    // or the parameters stop the process. The scale of a quantised C is the caller's to choose.
    static TensorShape deduce_shape(const Param& param, const TensorShape& a, const TensorShape& b);
    static DTypeEnum deduce_dtype(MatrixMulDataType data_type, DTypeEnum operands);

    // What `exec` begins with: stops the process on arguments that the operator does not define.
    void check_exec(const TensorLayout& a, const TensorLayout& b, const TensorLayout& c,
                    size_t workspace_size);
};

}  // namespace kern
