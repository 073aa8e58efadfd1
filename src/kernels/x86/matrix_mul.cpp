#include "kernels/x86/matrix_mul.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/matrix_mul_args.h"

namespace kern::x86 {
namespace {

// Lines of a B stored as K x N that are turned at a time: whole panels of every kernel.
constexpr size_t TURNED_LINES = 192;
constexpr size_t ALIGNMENT = 64;

// The parts of the workspace: lines of A that the kernel packs, and the operands whose lines along
// k are not contiguous, turned.
WorkspaceBundle parts(const MatrixMul::Param& param, size_t element_bytes, size_t a_count,
                      size_t b_count, size_t depth, void* base) {
    const auto bytes = [&](size_t lines) {
        return checked_mul(checked_mul(lines, depth), element_bytes);
    };
    const size_t packed = std::min(round_up(a_count, NR_PARTIALS), a_block_lines(depth));
    return {base,
            {bytes(packed), param.transpose_a ? bytes(a_count) : 0,
             param.transpose_b ? 0 : bytes(std::min(b_count, TURNED_LINES))},
            ALIGNMENT};
}

// Copies `count` lines, elements of neighbouring lines side by side, to lines that are contiguous.
template <typename T>
void turn(const void* source, ptrdiff_t k_step, size_t count, size_t depth, void* target) {
    const T* from = static_cast<const T*>(source);
    T* to = static_cast<T*>(target);
    for (size_t k = 0; k < depth; ++k, from += k_step) {
        for (size_t line = 0; line < count; ++line)
            to[line * depth + k] = from[line];
    }
}

using Kernel = void (*)(const Product&);

template <typename In, typename Out>
void multiply(Kernel kernel, const MatrixMul::Param& param, const MatrixMulArgs& args,
              const WorkspaceBundle& workspace) {
    Product product{args.a,       args.a_row, args.rows, args.b,     args.b_column,
                    args.columns, args.depth, args.c,    args.c_row, workspace.get(0)};
    const auto dense_step = static_cast<ptrdiff_t>(args.depth);
    if (param.transpose_a) {
        turn<In>(args.a, args.a_k, args.rows, args.depth, workspace.get(1));
        product.a = workspace.get(1);
        product.a_step = dense_step;
    }
    if (param.transpose_b) {
        kernel(product);
        return;
    }
    product.b = workspace.get(2);
    product.b_step = dense_step;
    for (size_t j = 0; j < args.columns; j += TURNED_LINES) {
        product.b_count = std::min(TURNED_LINES, args.columns - j);
        turn<In>(static_cast<const In*>(args.b) + j, args.b_k, product.b_count, args.depth,
                 workspace.get(2));
        product.c = static_cast<Out*>(args.c) + j;
        kernel(product);
    }
}

}  // namespace

MatrixMulImpl::MatrixMulImpl(KernelHandle* handle)
    : fallback::MatrixMulImpl(handle), m_kernels(kernel_table(instruction_set())) {}

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                         const TensorLayout& c) {
    if (!can_run_float(a))
        return fallback::MatrixMulImpl::workspace_in_bytes(a, b, c);
    const size_t depth = a[m_param.transpose_a ? 0 : 1];
    return parts(m_param, sizeof(float), c[0], c[1], depth, nullptr).total_size();
}

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    if (!can_run_float(a.layout)) {
        fallback::MatrixMulImpl::exec(a, b, c, workspace);
        return;
    }
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    dispatch([kernel = m_kernels.float_product, param = m_param,
              args = MatrixMulArgs(m_param, a, b, c), base = workspace.raw_ptr] {
        multiply<float, float>(
            kernel, param, args,
            parts(param, sizeof(float), args.rows, args.columns, args.depth, base));
    });
}

}  // namespace kern::x86
