// Shapes of matrix products and how they are run, for the tests of MatrixMul.
#pragma once

#include "kernels/matrix_mul.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {

using kern::MatrixMulDataType;

struct Problem {
    size_t rows, columns, depth;
    bool transpose_a, transpose_b;
    size_t padding;  // elements between rows

    TensorLayout layout(size_t height, size_t width, bool transposed, DType dtype) const {
        if (transposed)
            std::swap(height, width);
        return strided({height, width}, {static_cast<ptrdiff_t>(width + padding), 1}, dtype);
    }
    TensorLayout a(DType dtype) const { return layout(rows, depth, transpose_a, dtype); }
    TensorLayout b(DType dtype) const { return layout(depth, columns, transpose_b, dtype); }
    TensorLayout c(DType dtype) const { return layout(rows, columns, false, dtype); }
    size_t a_position(size_t i, size_t k) const {
        return transpose_a ? k * rows + i : i * depth + k;
    }
    size_t b_position(size_t k, size_t j) const {
        return transpose_b ? j * depth + k : k * columns + j;
    }
    std::string text() const {
        return std::to_string(rows) + "x" + std::to_string(depth) + "x" + std::to_string(columns) +
               (transpose_a ? " ta" : "") + (transpose_b ? " tb" : "") + (padding ? " padded" : "");
    }
};

// Runs the operator in a workspace of just the size it asks for, `misalignment` bytes before a
// boundary of 16. Operations, if any, must all be folded.
inline void run(kern::HandleLevel level, const Problem& problem, MatrixMulDataType data_type,
                const Tensor& a, const Tensor& b, const Tensor& c, size_t misalignment = 0,
                const std::vector<kern::MatrixMul::FollowUp>& operations = {}) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {problem.transpose_a, problem.transpose_b, data_type};
    const size_t bytes = op->workspace_in_bytes(a.layout(), b.layout(), c.layout());
    const GuardedBuffer workspace(bytes + 16);
    const kern::Workspace place{workspace.data() + 16 - misalignment, bytes};
    if (operations.empty())
        return op->exec(a.raw(), b.raw(), c.raw(), place);
    ASSERT_EQ(op->nr_foldable(a.layout(), c.layout(), operations), operations.size());
    op->exec_folded(a.raw(), b.raw(), c.raw(), operations, place);
}

}  // namespace kern_test
