#include "kernels/naive/reduce.h"

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

template <typename T, typename Policy>
void reduce_all(const AxisSplit& split, const void* src_ptr, void* dst_ptr) {
    const T* src = static_cast<const T*>(src_ptr);
    T* dst = static_cast<T*>(dst_ptr);
    for (size_t a = 0; a < split.outer; ++a) {
        for (size_t c = 0; c < split.inner; ++c) {
            const T* line = src + a * split.length * split.inner + c;
            *dst++ = Policy::finish(reduce_range<Policy>(line, split.inner, 0, split.length),
                                    split.length);
        }
    }
}

template <typename T>
struct OfType {
    template <typename Policy>
    struct Kernel {
        static void run(const AxisSplit& split, const void* src, void* dst) {
            reduce_all<T, Policy>(split, src, dst);
        }
    };
};

using KernelFunction = void (*)(const AxisSplit&, const void*, void*);

// Stops the process on the quantised types, which have no kernels yet.
KernelFunction select_kernel(ReduceMode mode, DTypeEnum dtype) {
    using reduction::select_mode;
    switch (dtype) {
        case DTypeEnum::FLOAT32:
            return select_mode<float, OfType<float>::Kernel>(mode);
        case DTypeEnum::FLOAT16:
            return select_mode<Float16, OfType<Float16>::Kernel>(mode);
        case DTypeEnum::INT32:
            return select_mode<int32_t, OfType<int32_t>::Kernel>(mode);
        case DTypeEnum::INT16:
            return select_mode<int16_t, OfType<int16_t>::Kernel>(mode);
        case DTypeEnum::INT8:
            return select_mode<int8_t, OfType<int8_t>::Kernel>(mode);
        case DTypeEnum::UINT8:
            return select_mode<uint8_t, OfType<uint8_t>::Kernel>(mode);
        default:
            KERN_FAIL();
    }
}

DType working_dtype(const Reduce::Param& param, const TensorLayout& src) {
    return param.data_type == ReduceDataType::DEFAULT ? src.dtype : DType::Float32();
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
    const DType working = working_dtype(m_param, src);
    if (src.dtype == working && dst.dtype == working)
        return 0;
    return make_bundle(nullptr, src, dst, working).total_size();
}

void ReduceImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const DType working = working_dtype(m_param, src.layout);
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
    dispatch([kernel, split = AxisSplit::of(src.layout, static_cast<size_t>(m_param.axis)),
              from = wide_src.raw_ptr, to = wide_dst.raw_ptr] { kernel(split, from, to); });
    if (narrow_dst)
        convert->exec(wide_dst, dst);
}

}  // namespace kern::naive
