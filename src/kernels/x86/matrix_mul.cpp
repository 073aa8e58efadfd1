#include "kernels/x86/matrix_mul.h"

#include <algorithm>

#include "kernels/checked_math.h"
#include "kernels/operators/matrix_mul_args.h"

namespace kern::x86 {
namespace {

// Lines of a B stored as K x N that are transposed at a time: whole panels of every kernel.
constexpr size_t TRANSPOSED_LINES = 192;
constexpr size_t ALIGNMENT = alignment_of(HandleLevel::X86);

// Copies `count` lines, elements of neighbouring lines side by side, to lines that are contiguous.
template <typename T>
void transpose(const void* source, ptrdiff_t k_step, size_t count, size_t depth, void* target) {
    const T* from = static_cast<const T*>(source);
    T* to = static_cast<T*>(target);
    for (size_t k = 0; k < depth; ++k, from += k_step) {
        for (size_t line = 0; line < count; ++line)
            to[line * depth + k] = from[line];
    }
}

// The parts of the workspace: the kernel's own, and the operands whose lines along k are not
// contiguous, transposed.
template <typename In>
WorkspaceBundle parts(const MatrixMul::Param& param, size_t a_count, size_t b_count, size_t depth,
                      void* base) {
    const auto transposed = [depth](size_t lines) {
        return checked_mul(checked_mul(lines, depth), sizeof(In));
    };
    // Its size is at most a few times that of 32 lines, and of what A takes.
    KERN_CHECK(depth < SIZE_MAX / 1024);
    return {base,
            {sizeof(In) == 1 ? int8_workspace(a_count, depth) : 0,
             param.transpose_a ? transposed(a_count) : 0,
             param.transpose_b ? 0 : transposed(std::min(b_count, TRANSPOSED_LINES))},
            ALIGNMENT};
}

// The epilogues that are folded: at most one of each kind.
struct Folded {
    const void* row_epilogue = nullptr;
    const void* column_epilogue = nullptr;
    size_t count = 0;

    Folded(const TensorLayout& c, const std::vector<MatrixMul::Epilogue>& epilogues) {
        const auto take = [&](const TensorShape& shape, size_t axis) -> const void* {
            if (count == epilogues.size() || epilogues[count].mode != ElementwiseMode::SUB)
                return nullptr;
            const RawTensor& operand = epilogues[count].operand;
            const TensorLayout& layout = operand.layout;
            if (layout.dtype != c.dtype || c.dtype.category() == DTypeCategory::QUANTISED ||
                !layout.same_shape(shape) || (layout.stride[axis] != 1 && layout.shape[axis] != 1))
                return nullptr;
            ++count;
            return operand.raw_ptr;
        };
        row_epilogue = take({c[0], 1}, 0);
        column_epilogue = take({1, c[1]}, 1);
    }
};

template <typename In, typename Out>
void multiply(void (*kernel)(const Product&), const MatrixMul::Param& param,
              const MatrixMulArgs& args, const Folded& folded, void* base) {
    const auto workspace = parts<In>(param, args.rows, args.columns, args.depth, base);
    Product product{args.a,        args.a_row,       args.rows,           args.b,
                    args.b_column, args.columns,     args.depth,          args.c,
                    args.c_row,    workspace.get(0), folded.row_epilogue, folded.column_epilogue};
    const auto dense_step = static_cast<ptrdiff_t>(args.depth);
    if (param.transpose_a) {
        transpose<In>(args.a, args.a_k, args.rows, args.depth, workspace.get(1));
        product.a = workspace.get(1);
        product.a_step = dense_step;
    }
    if (param.transpose_b) {
        kernel(product);
        return;
    }
    product.b = workspace.get(2);
    product.b_step = dense_step;
    for (size_t j = 0; j < args.columns; j += TRANSPOSED_LINES) {
        product.b_count = std::min(TRANSPOSED_LINES, args.columns - j);
        transpose<In>(static_cast<const In*>(args.b) + j, args.b_k, product.b_count, args.depth,
                      workspace.get(2));
        product.c = static_cast<Out*>(args.c) + j;
        if (folded.column_epilogue)
            product.column_epilogue = static_cast<const Out*>(folded.column_epilogue) + j;
        kernel(product);
    }
}

}  // namespace

MatrixMulImpl::MatrixMulImpl(KernelHandle* handle)
    : fallback::MatrixMulImpl(handle), m_kernels(kernel_table(instruction_set())) {}

bool MatrixMulImpl::can_run_int8(const TensorLayout& a) const {
    return m_param.data_type == MatrixMulDataType::INT8_TO_INT32 &&
           (a.dtype.enum_value() == DTypeEnum::INT8 ||
            a.dtype.enum_value() == DTypeEnum::QUANTIZED_S8);
}

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                         const TensorLayout& c) {
    const size_t depth = a[m_param.transpose_a ? 0 : 1];
    if (can_run_float(a))
        return parts<float>(m_param, c[0], c[1], depth, nullptr).total_size();
    if (can_run_int8(a))
        return parts<int8_t>(m_param, c[0], c[1], depth, nullptr).total_size();
    return fallback::MatrixMulImpl::workspace_in_bytes(a, b, c);
}

size_t MatrixMulImpl::nr_foldable(const TensorLayout& a, const TensorLayout& c,
                                  const std::vector<Epilogue>& epilogues) const {
    return can_run_float(a) || can_run_int8(a) ? Folded(c, epilogues).count : 0;
}

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    exec_folded(a, b, c, {}, workspace);
}

void MatrixMulImpl::exec_folded(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                                const std::vector<Epilogue>& epilogues,
                                const Workspace& workspace) {
    const bool is_int8 = can_run_int8(a.layout);
    if (!is_int8 && !can_run_float(a.layout)) {
        KERN_CHECK(epilogues.empty());
        fallback::MatrixMulImpl::exec(a, b, c, workspace);
        return;
    }
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    const Folded folded(c.layout, epilogues);
    KERN_CHECK(folded.count == epilogues.size());
    dispatch([is_int8, kernels = &m_kernels, param = m_param,
              args = MatrixMulArgs(m_param, a, b, c), folded, base = workspace.raw_ptr] {
        if (is_int8)
            multiply<int8_t, int32_t>(kernels->int8_product, param, args, folded, base);
        else
            multiply<float, float>(kernels->float_product, param, args, folded, base);
    });
}

}  // namespace kern::x86
