#include "kernels/naive/arg_max.h"

#include <limits>
#include <type_traits>

#include "kernels/naive/tensor_iterator.h"
#include "kernels/types/arithmetic.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

template <typename T>
Working<T> highest_finite() {
    if constexpr (std::is_same<T, Float16>::value)
        return 65504.0f;
    else
        return std::numeric_limits<T>::max();
}
template <typename T>
Working<T> lowest_finite() {
    if constexpr (std::is_integral<T>::value)
        return std::numeric_limits<T>::lowest();
    else
        return -highest_finite<T>();
}

// Comparisons are strict, so the first of equals stays.
template <typename T, bool MAX>
int32_t select_of_line(const T* line, size_t length, ptrdiff_t step) {
    Working<T> best = MAX ? lowest_finite<T>() : highest_finite<T>();
    int32_t index = -1;
    for (size_t b = 0; b < length; ++b, line += step) {
        const Working<T> x = widen(*line);
        if (MAX ? x > best : x < best) {
            best = x;
            index = static_cast<int32_t>(b);
        }
    }
    return index;
}

template <typename T, bool MAX>
void select_lines(size_t axis, const RawTensor& src, const RawTensor& dst) {
    AxisLines lines(src.layout, axis);
    TensorIterator<int32_t> index(dst.ptr<int32_t>(), dst.layout);
    for (size_t left = dst.layout.element_count(); left > 0; --left, lines.advance(), ++index)
        *index = select_of_line<T, MAX>(src.ptr<const T>() + lines.start(), lines.length(),
                                        lines.step());
}

template <bool MAX>
auto select_kernel(DType dtype) {
    const auto kernel = with_number_type(dtype.enum_value(), [](auto tag) {
        return &select_lines<typename decltype(tag)::Type, MAX>;
    });
    KERN_CHECK(kernel);
    return kernel;
}

}  // namespace

void ArgMaxImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    dispatch([kernel = select_kernel<true>(src.layout.dtype),
              axis = static_cast<size_t>(m_param.axis), src, dst] { kernel(axis, src, dst); });
}

void ArgMinImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    dispatch([kernel = select_kernel<false>(src.layout.dtype),
              axis = static_cast<size_t>(m_param.axis), src, dst] { kernel(axis, src, dst); });
}

}  // namespace kern::naive
