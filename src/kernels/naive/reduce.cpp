#include "kernels/naive/reduce.h"

#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/reduce_policies.h"
#include "kernels/operators/type_cvt.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

// The elements low to high of one line along the axis. The halving bounds the rounding error of a
// long float sum by the depth of the tree.
template <typename Policy, typename T>
T reduce_range(const T* line, ptrdiff_t step, size_t low, size_t high) {
    if (high <= low + 1)
        return Policy::leaf(line[static_cast<ptrdiff_t>(low) * step]);
    const size_t middle = low + (high - low) / 2;
    return Policy::combine(reduce_range<Policy>(line, step, low, middle),
                           reduce_range<Policy>(line, step, middle, high));
}

using KernelFunction = void (*)(ReduceMode, size_t axis, const RawTensor& src,
                                const RawTensor& dst);

template <typename T>
struct OfType {
    template <typename Policy>
    struct Kernel {
        static void run(ReduceMode mode, size_t axis, const RawTensor& src, const RawTensor& dst) {
            AxisLines lines(src.layout, axis);
            TensorIterator<T> out(dst.ptr<T>(), dst.layout);
            for (size_t left = dst.layout.element_count(); left > 0; --left) {
                *out = reduce_range<Policy>(src.ptr<const T>() + lines.start(), lines.step(), 0,
                                            lines.length());
                reduction::finish(mode, lines.length(), &*out, 1);
                lines.advance();
                ++out;
            }
        }
    };
};

KernelFunction select_kernel(ReduceMode mode, DTypeEnum dtype) {
    const KernelFunction kernel = with_stored_type(dtype, [mode](auto tag) {
        using T = typename decltype(tag)::Type;
        return reduction::select_mode<T, OfType<T>::template Kernel>(mode);
    });
    KERN_CHECK(kernel);
    return kernel;
}

// Bytes of a copy of the tensor in the working dtype; 0 when it is not needed.
size_t copy_bytes(const TensorLayout& layout, DType working) {
    return layout.dtype == working ? 0 : working.byte_size(layout.element_count());
}

WorkspaceBundle make_bundle(void* base, const TensorLayout& src, const TensorLayout& dst,
                            DType working) {
    return WorkspaceBundle(base, {copy_bytes(src, working), copy_bytes(dst, working)});
}

}  // namespace

size_t ReduceImpl::workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) {
    const DType working = working_dtype(src.dtype);
    if (src.dtype == working && dst.dtype == working)
        return 0;
    return make_bundle(nullptr, src, dst, working).total_size();
}

void ReduceImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const DType working = working_dtype(src.layout.dtype);
    const auto kernel = select_kernel(m_param.mode, working.enum_value());
    const auto bundle = make_bundle(workspace.raw_ptr, src.layout, dst.layout, working);
    const bool widen_src = src.layout.dtype != working;
    const bool narrow_dst = dst.layout.dtype != working;

    const auto copy_of = [&](const RawTensor& tensor, size_t part) {
        return RawTensor(bundle.get(part), TensorLayout(tensor.layout, working));
    };
    const RawTensor wide_src = widen_src ? copy_of(src, 0) : src;
    const RawTensor wide_dst = narrow_dst ? copy_of(dst, 1) : dst;
    // The tasks of one dispatcher run in the order in which they are given here.
    std::unique_ptr<TypeCvt> convert;
    if (widen_src || narrow_dst)
        convert = handle()->create_operator<TypeCvt>();
    if (widen_src)
        convert->exec(src, wide_src);
    dispatch([kernel, mode = m_param.mode, axis = static_cast<size_t>(m_param.axis), wide_src,
              wide_dst] { kernel(mode, axis, wide_src, wide_dst); });
    if (narrow_dst)
        convert->exec(wide_dst, dst);
}

}  // namespace kern::naive
