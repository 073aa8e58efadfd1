#include "kernels/fallback/reduce.h"

#include <algorithm>

#include "kernels/fallback/reduce_lines.h"
#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/reduce_policies.h"
#include "kernels/types/dtype_switch.h"

namespace kern::fallback {
namespace {

// Reduces the lines and writes their results side by side.
template <typename Policy, typename T, typename Out, typename Lines>
void write_results(ReduceMode mode, const Lines& lines, size_t length, Out* dst) {
    T results[MAX_LINES];
    reduce_range<Policy>(lines, 0, length, results);
    reduction::finish(mode, length, results, lines.count());
    for (size_t line = 0; line < lines.count(); ++line)
        dst[line] = static_cast<Out>(results[line]);
}

// Images with padded rows: one line after another, each with the bits that it has among others.
template <typename Policy, typename T, typename In, typename Out>
void reduce_strided(ReduceMode mode, size_t axis, const RawTensor& src, const RawTensor& dst) {
    naive::AxisLines lines(src.layout, axis);
    naive::TensorIterator<Out> out(dst.ptr<Out>(), dst.layout);
    for (size_t left = dst.layout.element_count(); left > 0; --left, lines.advance(), ++out) {
        const ColumnLines<Policy, T, In> line(src.ptr<const In>() + lines.start(),
                                              static_cast<size_t>(lines.step()), 1);
        write_results<Policy, T>(mode, line, lines.length(), &*out);
    }
}

// Accumulates in T; a stored type that is not T is a narrower or wider float.
template <typename Policy, typename T, typename In, typename Out>
void reduce_dense(ReduceMode mode, const AxisSplit& split, const In* src, Out* dst) {
    if (split.inner == 1) {
        for (size_t a = 0; a < split.outer; a += MAX_LINES) {
            const RowLines<Policy, T, In> rows(src + a * split.length, split.length,
                                               std::min(MAX_LINES, split.outer - a));
            write_results<Policy, T>(mode, rows, split.length, dst + a);
        }
        return;
    }
    for (size_t a = 0; a < split.outer; ++a) {
        for (size_t c = 0; c < split.inner; c += MAX_LINES) {
            const ColumnLines<Policy, T, In> columns(src + c, split.inner,
                                                     std::min(MAX_LINES, split.inner - c));
            write_results<Policy, T>(mode, columns, split.length, dst + c);
        }
        src += split.length * split.inner;
        dst += split.inner;
    }
}

template <typename T, typename In, typename Out>
struct OfTypes {
    template <typename Policy>
    struct Kernel {
        static void run(ReduceMode mode, size_t axis, const RawTensor& src, const RawTensor& dst) {
            if (src.layout.is_dense_raw() && dst.layout.is_dense_raw())
                reduce_dense<Policy, T>(mode, AxisSplit::of(src.layout, axis), src.ptr<const In>(),
                                        dst.ptr<Out>());
            else
                reduce_strided<Policy, T, In, Out>(mode, axis, src, dst);
        }
    };
};

template <typename T, typename In = T, typename Out = T>
auto select_mode(ReduceMode mode) {
    return reduction::select_mode<T, OfTypes<T, In, Out>::template Kernel>(mode);
}

using KernelFunction = void (*)(ReduceMode, size_t axis, const RawTensor& src,
                                const RawTensor& dst);

// For elements that take part as they are stored.
KernelFunction find_same_type_kernel(ReduceMode mode, DTypeEnum dtype) {
    return with_stored_type(dtype, [mode](auto tag) -> KernelFunction {
        return select_mode<typename decltype(tag)::Type>(mode);
    });
}

// For floats that are accumulated in 32 bits.
KernelFunction find_float_kernel(ReduceMode mode, bool half_src, bool half_dst) {
    if (half_src)
        return half_dst ? select_mode<float, Float16, Float16>(mode)
                        : select_mode<float, Float16, float>(mode);
    return half_dst ? select_mode<float, float, Float16>(mode) : select_mode<float>(mode);
}

// Null where elements must be converted first.
KernelFunction find_kernel(const Reduce::Param& param, DType working, DType src, DType dst) {
    switch (param.data_type) {
        case ReduceDataType::DEFAULT:
            return working == src ? find_same_type_kernel(param.mode, src.enum_value()) : nullptr;
        case ReduceDataType::FLOAT_O32:
        case ReduceDataType::FLOAT_O16:
            return find_float_kernel(param.mode, src == DType::Float16(), dst == DType::Float16());
        default:
            return nullptr;
    }
}

}  // namespace

size_t ReduceImpl::workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) {
    if (find_kernel(m_param, working_dtype(src.dtype), src.dtype, dst.dtype))
        return 0;
    return naive::ReduceImpl::workspace_in_bytes(src, dst);
}

void ReduceImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) {
    check_exec(src.layout, dst.layout, workspace.size);
    const auto kernel =
        find_kernel(m_param, working_dtype(src.layout.dtype), src.layout.dtype, dst.layout.dtype);
    if (!kernel) {
        naive::ReduceImpl::exec(src, dst, workspace);
        return;
    }
    dispatch([kernel, mode = m_param.mode, axis = static_cast<size_t>(m_param.axis), src, dst] {
        kernel(mode, axis, src, dst);
    });
}

}  // namespace kern::fallback
