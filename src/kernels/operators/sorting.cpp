#include "kernels/operators/sorting.h"

#include <cstdlib>

#include "kernels/check.h"

namespace kern {
namespace {

// Rows whose indices fit their dtype.
void check_rows(const TensorLayout& layout) {
    KERN_CHECK(layout.ndim == 2 && layout.is_dense());
    KERN_CHECK(layout[1] <= INT32_MAX);
}

void check_output(const TensorLayout& given, const TensorLayout& wanted) {
    KERN_CHECK(given.dtype == wanted.dtype && given.same_shape(wanted) && given.is_dense());
}

}  // namespace

void Argsort::check_exec(const TensorLayout& src, const TensorLayout& dst,
                         const TensorLayout& indices, size_t workspace_size) {
    KERN_CHECK(m_param.order <= Order::DESCENDING);
    check_rows(src);
    KERN_CHECK(src.dtype == DType::Float32());
    check_output(dst, src);
    check_output(indices, TensorLayout(src, DType::Int32()));
    KERN_CHECK(workspace_in_bytes(src, dst, indices) <= workspace_size);
}

TopK::Outputs TopK::deduce_outputs(int32_t k, const TensorLayout& data) const {
    check_rows(data);
    const auto count = static_cast<size_t>(std::abs(int64_t{k}));
    KERN_CHECK(count != 0 && count <= data[1]);
    if (m_param.mode == Mode::KTH_VALUE)
        return {TensorLayout({data[0]}, data.dtype), TensorLayout(DType::Int32())};
    const TensorShape selected({data[0], count});
    return {TensorLayout(selected, data.dtype), TensorLayout(selected, DType::Int32())};
}

void TopK::check_exec(int32_t k, const TensorLayout& data, const TensorLayout& values,
                      const TensorLayout& indices, size_t workspace_size) {
    KERN_CHECK(m_param.mode <= Mode::ORDERED);
    KERN_CHECK(data.dtype.valid());
    const Outputs wanted = deduce_outputs(k, data);
    check_output(values, wanted.values);
    if (m_param.mode != Mode::KTH_VALUE)
        check_output(indices, wanted.indices);
    KERN_CHECK(workspace_in_bytes(k, data, values, indices) <= workspace_size);
}

}  // namespace kern
