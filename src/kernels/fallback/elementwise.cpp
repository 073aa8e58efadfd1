#include "kernels/fallback/elementwise.h"

#include <optional>

#include "kernels/operators/broadcast.h"
#include "kernels/operators/elementwise_formulas.h"
#include "kernels/simd/vectorise.h"

namespace kern::fallback {
namespace {

// The kernels below do one row of output; a stride of 0 reads one element for the whole row. The
// output may be the memory of an input with stride 1.

template <ElementwiseMode MODE, typename T>
struct UnaryRow {
    static void run(const void* x_ptr, ptrdiff_t x_stride, void* out_ptr, size_t count) {
        const T* x = static_cast<const T*>(x_ptr);
        T* out = static_cast<T*>(out_ptr);
        if (x_stride == 1) {
            KERN_INDEPENDENT_LOOP
            for (size_t i = 0; i < count; ++i)
                out[i] = Formula<MODE>::template apply<T>(x[i]);
            return;
        }
        for (size_t i = 0; i < count; ++i, x += x_stride)
            out[i] = Formula<MODE>::template apply<T>(*x);
    }
};

template <ElementwiseMode MODE, typename T>
struct BinaryRow {
    static void run(const void* x_ptr, ptrdiff_t x_stride, const void* y_ptr, ptrdiff_t y_stride,
                    void* out_ptr, size_t count) {
        const T* x = static_cast<const T*>(x_ptr);
        const T* y = static_cast<const T*>(y_ptr);
        T* out = static_cast<T*>(out_ptr);
        if (x_stride == 1 && y_stride == 1) {
            KERN_INDEPENDENT_LOOP
            for (size_t i = 0; i < count; ++i)
                out[i] = Formula<MODE>::template apply<T>(x[i], y[i]);
        } else if (x_stride == 1 && y_stride == 0) {
            const T scalar = *y;
            KERN_INDEPENDENT_LOOP
            for (size_t i = 0; i < count; ++i)
                out[i] = Formula<MODE>::template apply<T>(x[i], scalar);
        } else if (x_stride == 0 && y_stride == 1) {
            const T scalar = *x;
            KERN_INDEPENDENT_LOOP
            for (size_t i = 0; i < count; ++i)
                out[i] = Formula<MODE>::template apply<T>(scalar, y[i]);
        } else {
            for (size_t i = 0; i < count; ++i, x += x_stride, y += y_stride)
                out[i] = Formula<MODE>::template apply<T>(*x, *y);
        }
    }
};

// An input seen over the common axes (outer, middle, row), in elements.
struct Operand {
    const uint8_t* base;
    ptrdiff_t stride[3];

    const void* row(size_t outer, size_t middle, size_t element_bytes) const {
        const ptrdiff_t elements =
            static_cast<ptrdiff_t>(outer) * stride[0] + static_cast<ptrdiff_t>(middle) * stride[1];
        return base + elements * static_cast<ptrdiff_t>(element_bytes);
    }
};

// Both inputs over the same axes.
struct BinaryWalk {
    size_t length[3];
    Operand x;
    Operand y;
};

// `view` has one axis, or as many as are used of `length` (its last ones).
Operand spread(const BroadcastView& view, const size_t (&length)[3]) {
    Operand result{static_cast<const uint8_t*>(view.raw_ptr), {}};
    if (view.layout.ndim == 1) {
        result.stride[2] = view.layout.stride[0];
        for (size_t axis = 2; axis-- > 0;)
            result.stride[axis] =
                result.stride[axis + 1] * static_cast<ptrdiff_t>(length[axis + 1]);
    } else {
        for (size_t axis = 0; axis < view.layout.ndim; ++axis)
            result.stride[3 - view.layout.ndim + axis] = view.layout.stride[axis];
    }
    return result;
}

// The walk of the broadcasts that have a fast form; nothing for the others.
std::optional<BinaryWalk> plan_binary(const BroadcastSet& set) {
    const BroadcastView& x = set.views[0];
    const BroadcastView& y = set.views[1];
    if (x.layout.ndim != 1 && y.layout.ndim != 1)
        return std::nullopt;
    const TensorLayout& vector = x.layout.ndim == 1 ? y.layout : x.layout;
    if (vector.ndim > 3)
        return std::nullopt;
    const bool per_channel = vector.ndim == 3;
    if (per_channel && (vector.stride[0] != 0 || vector.stride[2] != 0))
        return std::nullopt;

    BinaryWalk walk{{1, 1, 1}, {}, {}};
    for (size_t axis = 0; axis < vector.ndim; ++axis)
        walk.length[3 - vector.ndim + axis] = vector.shape[axis];
    walk.x = spread(x, walk.length);
    walk.y = spread(y, walk.length);
    return walk;
}

template <typename RowKernel>
void run_binary(const BinaryWalk& walk, RowKernel kernel, void* output, size_t element_bytes) {
    auto* out = static_cast<uint8_t*>(output);
    for (size_t outer = 0; outer < walk.length[0]; ++outer) {
        for (size_t middle = 0; middle < walk.length[1]; ++middle) {
            kernel(walk.x.row(outer, middle, element_bytes), walk.x.stride[2],
                   walk.y.row(outer, middle, element_bytes), walk.y.stride[2], out, walk.length[2]);
            out += walk.length[2] * element_bytes;
        }
    }
}

}  // namespace

void ElementwiseImpl::exec(const std::vector<RawTensor>& inputs, const RawTensor& output) {
    check_exec(inputs, output);
    if (!output.layout.is_dense_raw()) {
        naive::ElementwiseImpl::exec(inputs, output);
        return;
    }
    const DType dtype = output.layout.dtype;
    const BroadcastSet set(inputs, output.layout);
    if (inputs.size() == 1 && set.max_ndim == 1) {
        const auto kernel = select_elementwise<UnaryRow, 1>(m_param.mode, dtype.enum_value());
        dispatch([kernel, x = set.views[0].raw_ptr, stride = set.views[0].layout.stride[0],
                  out = output.raw_ptr,
                  count = set.element_count] { kernel(x, stride, out, count); });
        return;
    }
    if (inputs.size() == 2) {
        if (const auto walk = plan_binary(set)) {
            const auto kernel = select_elementwise<BinaryRow, 2>(m_param.mode, dtype.enum_value());
            dispatch([kernel, walk = *walk, out = output.raw_ptr,
                      element_bytes = dtype.element_bytes()] {
                run_binary(walk, kernel, out, element_bytes);
            });
            return;
        }
    }
    naive::ElementwiseImpl::exec(inputs, output);
}

}  // namespace kern::fallback
