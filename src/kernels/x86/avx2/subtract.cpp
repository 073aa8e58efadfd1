// x - y along a row. For every set of this level: wider vectors gain nothing over rows that fill
// the second-level cache.
#include "kernels/vectorise.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {
namespace {

template <typename T>
void subtract(const void* x_ptr, ptrdiff_t x_stride, const void* y_ptr, ptrdiff_t y_stride,
              void* out_ptr, size_t count) {
    const T* x = static_cast<const T*>(x_ptr);
    const T* y = static_cast<const T*>(y_ptr);
    T* out = static_cast<T*>(out_ptr);
    if (x_stride == 1 && y_stride == 1) {
        KERN_INDEPENDENT_LOOP
        for (size_t i = 0; i < count; ++i)
            out[i] = x[i] - y[i];
    } else if (x_stride == 1 && y_stride == 0) {
        const T all = *y;
        KERN_INDEPENDENT_LOOP
        for (size_t i = 0; i < count; ++i)
            out[i] = x[i] - all;
    } else if (x_stride == 0 && y_stride == 1) {
        const T all = *x;
        KERN_INDEPENDENT_LOOP
        for (size_t i = 0; i < count; ++i)
            out[i] = all - y[i];
    } else {
        for (size_t i = 0; i < count; ++i, x += x_stride, y += y_stride)
            out[i] = *x - *y;
    }
}

}  // namespace

void avx2::subtract_float(const void* x, ptrdiff_t x_stride, const void* y, ptrdiff_t y_stride,
                          void* out, size_t count) {
    subtract<float>(x, x_stride, y, y_stride, out, count);
}

// Unsigned, so that differences wrap.
void avx2::subtract_int32(const void* x, ptrdiff_t x_stride, const void* y, ptrdiff_t y_stride,
                          void* out, size_t count) {
    subtract<uint32_t>(x, x_stride, y, y_stride, out, count);
}

}  // namespace kern::x86
