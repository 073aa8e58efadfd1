#include "kernels/naive/arg_max.h"

#include <limits>
#include <type_traits>

#include "kernels/arithmetic.h"
#include "kernels/dtype_switch.h"

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
int32_t select_of_line(const T* line, size_t length, size_t step) {
    Working<T> best = MAX ? lowest_finite<T>() : highest_finite<T>();
    int32_t index = -1;
    for (size_t b = 0; b < length; ++b) {
        const Working<T> x = widen(line[b * step]);
        if (MAX ? x > best : x < best) {
            best = x;
            index = static_cast<int32_t>(b);
        }
    }
    return index;
}

template <typename T, bool MAX>
void select_lines(const AxisSplit& split, const void* src_ptr, int32_t* dst) {
    const T* src = static_cast<const T*>(src_ptr);
    for (size_t a = 0; a < split.outer; ++a, src += split.length * split.inner)
        for (size_t c = 0; c < split.inner; ++c)
            *dst++ = select_of_line<T, MAX>(src + c, split.length, split.inner);
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
              split = AxisSplit::of(src.layout, m_param.axis), from = src.raw_ptr,
              to = dst.ptr<int32_t>()] { kernel(split, from, to); });
}

void ArgMinImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    dispatch([kernel = select_kernel<false>(src.layout.dtype),
              split = AxisSplit::of(src.layout, m_param.axis), from = src.raw_ptr,
              to = dst.ptr<int32_t>()] { kernel(split, from, to); });
}

}  // namespace kern::naive
