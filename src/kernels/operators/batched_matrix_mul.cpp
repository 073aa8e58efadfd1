#include "kernels/operators/batched_matrix_mul.h"

#include "kernels/check.h"

namespace kern {

TensorShape BatchedMatrixMul::deduce_shape(const Param& param, const TensorShape& a,
                                           const TensorShape& b) {
    KERN_CHECK(a.ndim == 3 && b.ndim == 3);
    KERN_CHECK(a[0] == b[0]);
    const TensorShape matrix = MatrixMul::deduce_shape(param, {a[1], a[2]}, {b[1], b[2]});
    return {a[0], matrix[0], matrix[1]};
}

void BatchedMatrixMul::check_batches(const TensorLayout& a, const TensorLayout& b,
                                     const TensorLayout& c) {
    KERN_CHECK(a.ndim == 3 && b.ndim == 3 && c.ndim == 3);
    KERN_CHECK(a[0] == b[0] && a[0] == c[0]);
}

}  // namespace kern
