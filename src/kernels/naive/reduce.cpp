#include "kernels/naive/reduce.h"

#include "kernels/dtype_switch.h"
#include "kernels/reduce_policies.h"
#include "kernels/type_cvt.h"

namespace kern::naive {
namespace {

// The elements low to high of one line along the axis. The halving bounds the rounding error of a
// long float sum by the depth of the tree.
template <typename Policy, typename T>
T reduce_range(const T* line, size_t step, size_t low, size_t high) {
    if (high <= low + 1)
        return Policy::leaf(line[low * step]);
    const size_t middle = low + (high - low) / 2;
    return Policy::combine(reduce_range<Policy>(line, step, low, middle),
                           reduce_range<Policy>(line, step, middle, high));
}

using KernelFunction = void (*)(ReduceMode, const AxisSplit&, const void*, void*);

template <typename T>
struct OfType {
    template <typename Policy>
    struct Kernel {
        static void run(ReduceMode mode, const AxisSplit& split, const void* src_ptr,
                        void* dst_ptr) {
            const T* src = static_cast<const T*>(src_ptr);
            T* out = static_cast<T*>(dst_ptr);
            for (size_t a = 0; a < split.outer; ++a) {
                for (size_t c = 0; c < split.inner; ++c) {
                    const T* line = src + a * split.length * split.inner + c;
                    *out++ = reduce_range<Policy>(line, split.inner, 0, split.length);
                }
            }
            reduction::finish(mode, split.length, static_cast<T*>(dst_ptr), split.nr_lines());
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

    const RawTensor wide_src(widen_src ? bundle.get(0) : src.raw_ptr,
                             TensorLayout(src.layout, working));
    const RawTensor wide_dst(narrow_dst ? bundle.get(1) : dst.raw_ptr,
                             TensorLayout(dst.layout, working));
    // The tasks of one dispatcher run in the order in which they are given here.
    std::unique_ptr<TypeCvt> convert;
    if (widen_src || narrow_dst)
        convert = handle()->create_operator<TypeCvt>();
    if (widen_src)
        convert->exec(src, wide_src);
    dispatch([kernel, mode = m_param.mode, split = AxisSplit::of(src.layout, m_param.axis),
              from = wide_src.raw_ptr, to = wide_dst.raw_ptr] { kernel(mode, split, from, to); });
    if (narrow_dst)
        convert->exec(wide_dst, dst);
}

}  // namespace kern::naive
