#include "kernels/naive/batched_matrix_mul.h"

namespace kern::naive {

BatchedMatrixMulImpl::Batches::Operand::Operand(const RawTensor& batches)
    : first(batches.raw_ptr, batches.layout.remove_axis(0)),
      step(batches.layout.stride[0] *
           static_cast<ptrdiff_t>(batches.layout.dtype.element_bytes())) {}

RawTensor BatchedMatrixMulImpl::Batches::Operand::at(size_t batch) const {
    return {static_cast<uint8_t*>(first.raw_ptr) + static_cast<ptrdiff_t>(batch) * step,
            first.layout};
}

BatchedMatrixMulImpl::Batches::Batches(const RawTensor& a, const RawTensor& b, const RawTensor& c)
    : m_a(a), m_b(b), m_c(c), m_count(c.layout[0]) {}

void BatchedMatrixMulImpl::Batches::run(MatrixMul& inner, const Workspace& workspace) const {
    for (size_t batch = 0; batch < m_count; ++batch)
        inner.exec(m_a.at(batch), m_b.at(batch), m_c.at(batch), workspace);
}

BatchedMatrixMulImpl::BatchedMatrixMulImpl(KernelHandle* handle, KernelHandle* inner_handle)
    : BatchedMatrixMul(handle), m_inner(inner_handle->create_operator<MatrixMul>()) {}

MatrixMul& BatchedMatrixMulImpl::inner() {
    m_inner->param() = m_param;
    return *m_inner;
}

void BatchedMatrixMulImpl::check_exec(const TensorLayout& a, const TensorLayout& b,
                                      const TensorLayout& c, size_t workspace_size) {
    check_batches(a, b, c);
    inner().check_exec(a.remove_axis(0), b.remove_axis(0), c.remove_axis(0), workspace_size);
}

size_t BatchedMatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                                const TensorLayout& c) {
    check_batches(a, b, c);
    return inner().workspace_in_bytes(a.remove_axis(0), b.remove_axis(0), c.remove_axis(0));
}

void BatchedMatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                                const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    Batches(a, b, c).run(inner(), workspace);
}

}  // namespace kern::naive
