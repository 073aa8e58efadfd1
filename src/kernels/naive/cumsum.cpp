#include "kernels/naive/cumsum.h"

#include "kernels/naive/tensor_iterator.h"
#include "kernels/types/arithmetic.h"
#include "kernels/types/dtype_switch.h"

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

// Both tensors have one layout.
template <typename T>
void sum_lines(const RawTensor& src, const RawTensor& dst, size_t axis,
               const Cumsum::Param& param) {
    AxisLines lines(src.layout, axis);
    const ptrdiff_t step = lines.step();
    const ptrdiff_t last = static_cast<ptrdiff_t>(lines.length() - 1) * step;
    const size_t count = src.layout.element_count() / lines.length();
    for (size_t left = count; left > 0; --left, lines.advance()) {
        const ptrdiff_t first = lines.start() + (param.reverse ? last : 0);
        sum_line(src.ptr<const T>() + first, dst.ptr<T>() + first, lines.length(),
                 param.reverse ? -step : step, param.exclusive);
    }
}

}  // namespace

void CumsumImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const auto kernel = with_number_type(src.layout.dtype.enum_value(), [](auto tag) {
        return &sum_lines<typename decltype(tag)::Type>;
    });
    KERN_CHECK(kernel);
    dispatch([kernel, axis = axis_of(src.layout), param = m_param, src, dst] {
        kernel(src, dst, axis, param);
    });
}

}  // namespace kern::naive
