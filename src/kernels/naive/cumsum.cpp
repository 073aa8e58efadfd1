#include "kernels/naive/cumsum.h"

#include "kernels/arithmetic.h"
#include "kernels/axis_split.h"
#include "kernels/dtype_switch.h"

namespace kern::naive {
namespace {

template <typename T>
void sum_line(const T* src, T* dst, size_t length, ptrdiff_t step, bool exclusive) {
    T sum{};
    for (size_t i = 0; i < length; ++i, src += step, dst += step) {
        const T next = narrow<T>(widen(sum) + widen(*src));
        *dst = exclusive ? sum : next;
        sum = next;
    }
}

template <typename T>
void sum_lines(const void* src_ptr, void* dst_ptr, const AxisSplit& split, bool exclusive,
               bool reverse) {
    const auto step = static_cast<ptrdiff_t>(split.inner);
    const size_t first = reverse ? (split.length - 1) * split.inner : 0;
    for (size_t a = 0; a < split.outer; ++a)
        for (size_t c = 0; c < split.inner; ++c) {
            const size_t start = a * split.length * split.inner + c + first;
            sum_line(static_cast<const T*>(src_ptr) + start, static_cast<T*>(dst_ptr) + start,
                     split.length, reverse ? -step : step, exclusive);
        }
}

}  // namespace

void CumsumImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const auto kernel = with_number_type(src.layout.dtype.enum_value(), [](auto tag) {
        return &sum_lines<typename decltype(tag)::Type>;
    });
    KERN_CHECK(kernel);
    dispatch([kernel, split = AxisSplit::of(src.layout, axis_of(src.layout)), param = m_param,
              from = src.raw_ptr,
              to = dst.raw_ptr] { kernel(from, to, split, param.exclusive, param.reverse); });
}

}  // namespace kern::naive
