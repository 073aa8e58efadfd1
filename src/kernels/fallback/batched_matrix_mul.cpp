#include "kernels/fallback/batched_matrix_mul.h"

namespace kern::fallback {

void BatchedMatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                                const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    // An operator of the task's own: the other one may get new parameters before the task runs.
    const std::shared_ptr<MatrixMul> inner = inplace_handle()->create_operator<MatrixMul>();
    inner->param() = m_param;
    dispatch([inner, workspace, batches = Batches(a, b, c)] { batches.run(*inner, workspace); });
}

}  // namespace kern::fallback
