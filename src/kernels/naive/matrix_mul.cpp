#include "kernels/naive/matrix_mul.h"

#include "kernels/check.h"
#include "kernels/naive/product_policies.h"
#include "kernels/operators/matrix_mul_args.h"

namespace kern::naive {
namespace {

template <typename Policy>
typename Policy::Sum dot(const Policy& policy, const typename Policy::In* a, ptrdiff_t a_step,
                         const typename Policy::In* b, ptrdiff_t b_step, size_t depth) {
    typename Policy::Sum sum{};
    if (a_step == 1 && b_step == 1) {  // apart, so that integer sums are vectorised
        for (size_t k = 0; k < depth; ++k)
            sum = policy.add_product(sum, a[k], b[k]);
        return sum;
    }
    for (size_t k = 0; k < depth; ++k)
        sum = policy.add_product(sum, *at_step(a, k, a_step), *at_step(b, k, b_step));
    return sum;
}

template <typename Policy>
Task multiply(const MatrixMulArgs& args, const Policy& policy) {
    return [args, policy] {
        const auto* a = static_cast<const typename Policy::In*>(args.a);
        const auto* b = static_cast<const typename Policy::In*>(args.b);
        auto* c = static_cast<typename Policy::Out*>(args.c);
        for (size_t i = 0; i < args.rows; ++i) {
            for (size_t j = 0; j < args.columns; ++j)
                at_step(c, i, args.c_row)[j] =
                    Policy::finish(dot(policy, at_step(a, i, args.a_row), args.a_k,
                                       at_step(b, j, args.b_column), args.b_k, args.depth));
        }
    };
}

// The arguments have been checked, so an integer data type tells the dtypes.
Task select_kernel(MatrixMulDataType data_type, DType a, DType b, const MatrixMulArgs& args) {
    const bool half = a == DType::Float16();
    switch (data_type) {
        case MatrixMulDataType::DEFAULT:
            return half ? multiply(args, FloatProduct<Float16, Float16>())
                        : multiply(args, FloatProduct<float, float>());
        case MatrixMulDataType::FLOAT_IO16_CO32:
            return half ? multiply(args, FloatProduct<Float16, float>())
                        : multiply(args, FloatProduct<float, float>());
        case MatrixMulDataType::INT8_TO_INT16:
            return multiply(args, Int8Product<int16_t>());
        case MatrixMulDataType::INT8_TO_INT32:
            return multiply(args, Int8Product<int32_t>());
        case MatrixMulDataType::ASYMM8_TO_S32:
            return multiply(args, Asymm8Product(a, b));
    }
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
    dispatch(select_kernel(m_param.data_type, a.layout.dtype, b.layout.dtype,
                           MatrixMulArgs(m_param, a, b, c)));
}

}  // namespace kern::naive
