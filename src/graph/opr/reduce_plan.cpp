#include <algorithm>

#include "graph/opr/reduce_operator.h"
#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace orb {
namespace {

using kern::ReduceMode;
using kern::TensorLayout;
using kern::TensorShape;

constexpr size_t BUFFER_ALIGNMENT = 64;

size_t aligned(size_t bytes) {
    return kern::round_up(bytes, BUFFER_ALIGNMENT);
}

size_t product(const TensorShape& shape, size_t begin, size_t end) {
    size_t result = 1;
    for (size_t axis = begin; axis < end; ++axis)
        result = kern::checked_mul(result, shape[axis]);
    return result;
}

// Squares are summed once; what follows adds up the sums. The first step leaves the asymmetric
// 8-bit form.
kern::Reduce::Param param_of_step(kern::Reduce::Param param, size_t nr_steps_before) {
    param.axis = 1;
    if (nr_steps_before > 0 && param.mode == ReduceMode::SUM_SQR)
        param.mode = ReduceMode::SUM;
    if (nr_steps_before > 0 && param.data_type == kern::ReduceDataType::QUINT_I8_O32)
        param.data_type = kern::ReduceDataType::DEFAULT;
    return param;
}

}  // namespace

void ReducePlan::update(const TensorLayout& source, const TensorShape& target,
                        kern::DType target_dtype, const kern::Reduce::Param& param,
                        kern::Reduce& kernel) {
    if (m_source.ndim != 0 && m_source.same_shape(source) && m_target.same_shape(target))
        return;
    KERN_CHECK(source.ndim == target.ndim);
    m_source = source;
    m_target = target;
    m_steps.clear();
    m_between_bytes = 0;
    TensorShape shape = source;
    kern::DType dtype = source.dtype;
    const auto add_step = [&](size_t outer, size_t length, size_t inner) {
        Step step{param_of_step(param, m_steps.size()), TensorLayout({outer, length, inner}, dtype),
                  TensorLayout({outer, 1, inner}, target_dtype), 0};
        kernel.param() = step.param;
        step.scratch_bytes = kernel.workspace_in_bytes(step.src, step.dst);
        if (!m_steps.empty())
            m_between_bytes = std::max(m_between_bytes, m_steps.back().dst.span().high_byte);
        m_steps.push_back(step);
        dtype = target_dtype;
    };
    for (size_t axis = 0; axis < shape.ndim; ++axis) {
        if (shape[axis] == target[axis])
            continue;
        KERN_CHECK(target[axis] == 1);
        add_step(product(shape, 0, axis), shape[axis], product(shape, axis + 1, shape.ndim));
        shape[axis] = 1;
    }
    // Nothing collapses, but squares and other dtypes are not copies.
    if (m_steps.empty() && (param.mode == ReduceMode::SUM_SQR || target_dtype != source.dtype))
        add_step(shape.element_count(), 1, 1);
}

size_t ReducePlan::scratch_offset() const {
    return 2 * aligned(m_between_bytes);
}

size_t ReducePlan::workspace_bytes() const {
    size_t total = scratch_offset();
    for (const Step& step : m_steps)
        total = kern::checked_add(total, aligned(step.scratch_bytes));
    return total;
}

void ReducePlan::run(const kern::RawTensor& src, const kern::RawTensor& dst,
                     const kern::Workspace& workspace, kern::Reduce& kernel) const {
    void* input = src.raw_ptr;
    size_t scratch = scratch_offset();
    for (size_t i = 0; i < m_steps.size(); ++i) {
        const Step& step = m_steps[i];
        const bool is_last = i + 1 == m_steps.size();
        void* output =
            is_last ? dst.raw_ptr : workspace.raw_ptr + (i % 2) * aligned(m_between_bytes);
        kernel.param() = step.param;
        kernel.exec({input, step.src}, {output, step.dst},
                    {workspace.raw_ptr + scratch, step.scratch_bytes});
        scratch += aligned(step.scratch_bytes);
        input = output;
    }
}

}  // namespace orb
