#include "kernels/naive/matrix_mul.h"

#include "kernels/arithmetic.h"
#include "kernels/check.h"
#include "kernels/matrix_mul_args.h"

namespace kern::naive {
namespace {

// Policies: the stored types, and the type that one element of C is accumulated in. `add_product`
// rounds the product and the sum to the accumulator's precision.

template <typename Element, typename Accumulator>
struct FloatProduct {
    using In = Element;
    using Sum = Accumulator;
    using Out = Element;

    static Sum add_product(Sum sum, In a, In b) {
        return narrow<Sum>(widen(sum) + widen(a) * widen(b));
    }
    static Out finish(Sum sum) { return narrow<Out>(widen(sum)); }
};

struct Int8Product {
    using In = int8_t;
    using Sum = uint32_t;  // wraps beyond 2^17 products of the largest magnitude
    using Out = int32_t;

    static Sum add_product(Sum sum, In a, In b) { return sum + static_cast<uint32_t>(a * b); }
    static Out finish(Sum sum) { return static_cast<Out>(sum); }
};

template <typename Policy>
typename Policy::Sum dot(const typename Policy::In* a, ptrdiff_t a_step,
                         const typename Policy::In* b, ptrdiff_t b_step, size_t depth) {
    typename Policy::Sum sum{};
    if (a_step == 1 && b_step == 1) {  // apart, so that integer sums are vectorised
        for (size_t k = 0; k < depth; ++k)
            sum = Policy::add_product(sum, a[k], b[k]);
        return sum;
    }
    for (size_t k = 0; k < depth; ++k)
        sum = Policy::add_product(sum, *at_step(a, k, a_step), *at_step(b, k, b_step));
    return sum;
}

template <typename Policy>
void multiply(const MatrixMulArgs& args) {
    const auto* a = static_cast<const typename Policy::In*>(args.a);
    const auto* b = static_cast<const typename Policy::In*>(args.b);
    auto* c = static_cast<typename Policy::Out*>(args.c);
    for (size_t i = 0; i < args.rows; ++i) {
        for (size_t j = 0; j < args.columns; ++j)
            at_step(c, i, args.c_row)[j] =
                Policy::finish(dot<Policy>(at_step(a, i, args.a_row), args.a_k,
                                           at_step(b, j, args.b_column), args.b_k, args.depth));
    }
}

// Stops the process on the combinations that have no kernel yet: 16-bit integer accumulation and
// the quantised types.
auto select_kernel(MatrixMulDataType data_type, DTypeEnum dtype) -> void (*)(const MatrixMulArgs&) {
    const bool wide_sum = data_type == MatrixMulDataType::FLOAT_IO16_CO32;
    if (wide_sum || data_type == MatrixMulDataType::DEFAULT) {
        if (dtype == DTypeEnum::FLOAT32)
            return &multiply<FloatProduct<float, float>>;
        if (dtype == DTypeEnum::FLOAT16)
            return wide_sum ? &multiply<FloatProduct<Float16, float>>
                            : &multiply<FloatProduct<Float16, Float16>>;
    }
    if (data_type == MatrixMulDataType::INT8_TO_INT32 && dtype == DTypeEnum::INT8)
        return &multiply<Int8Product>;
    KERN_FAIL();
}

}  // namespace

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout&, const TensorLayout&,
                                         const TensorLayout&) {
    return 0;
}

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    const auto kernel = select_kernel(m_param.data_type, a.layout.dtype.enum_value());
    dispatch([kernel, args = MatrixMulArgs(m_param, a, b, c)] { kernel(args); });
}

}  // namespace kern::naive
