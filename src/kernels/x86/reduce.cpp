#include "kernels/x86/reduce.h"

#include <algorithm>

#include "kernels/fallback/reduce_lines.h"
#include "kernels/operators/axis_split.h"
#include "kernels/operators/reduce_policies.h"

namespace kern::x86 {
namespace {

// Rows whose squares are summed, for `fallback::reduce_range`.
class SquaredRows {
public:
    SquaredRows(SumSquares kernel, const float* first, size_t row_step, size_t count)
        : m_kernel(kernel), m_first(first), m_row_step(row_step), m_count(count) {}

    size_t count() const { return m_count; }
    void accumulate(size_t low, size_t high, float* results) const {
        m_kernel(m_first + low, m_row_step, m_count, high - low, results);
    }

private:
    SumSquares m_kernel;
    const float* m_first;
    size_t m_row_step;
    size_t m_count;
};

void sum_squares(SumSquares kernel, const AxisSplit& split, const float* src, float* dst) {
    for (size_t a = 0; a < split.outer; a += fallback::MAX_LINES) {
        const SquaredRows rows(kernel, src + a * split.length, split.length,
                               std::min(fallback::MAX_LINES, split.outer - a));
        fallback::reduce_range<reduction::SumSqr<float>>(rows, 0, split.length, dst + a);
    }
}

}  // namespace

void ReduceImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const AxisSplit split = AxisSplit::of(src.layout, static_cast<size_t>(m_param.axis));
    if (m_param.mode != ReduceMode::SUM_SQR || m_param.data_type != ReduceDataType::DEFAULT ||
        src.layout.dtype != DType::Float32() || split.inner != 1 || !src.layout.is_dense_raw() ||
        !dst.layout.is_dense_raw()) {
        fallback::ReduceImpl::exec(src, dst, workspace);
        return;
    }
    dispatch([kernel = m_kernels.sum_squares, split, from = src.ptr<float>(),
              to = dst.ptr<float>()] { sum_squares(kernel, split, from, to); });
}

}  // namespace kern::x86
