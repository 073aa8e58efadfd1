#include "kernels/arm_common/elementwise.h"

#include <cmath>
#include <type_traits>

#include "kernels/arm_common/elementwise_plan.h"
#include "kernels/arm_common/vector_loop.h"
#include "kernels/arm_common/vector_math.h"
#include "kernels/check.h"
#include "kernels/operators/elementwise_formulas.h"

namespace kern::arm_common {
namespace {

template <typename V>
V relu(V x) {
    return simd::select(simd::less_equal(x, V{}), V{}, x);
}

// Narrow integers are added in 32 bits, so the sum's sign is that of x + y before it is cut to the
// width: not negative where x > ~y, which is -y - 1.
template <typename V>
V add_relu(V x, V y) {
    if constexpr (std::is_same<V, simd::I16x8>::value || std::is_same<V, simd::I8x16>::value)
        return simd::select(simd::greater(x, ~y), simd::add(x, y), V{});
    else
        return relu(simd::add(x, y));
}

template <ElementwiseMode MODE>
struct VectorFormula;

#define KERN_VECTOR_MODE(NAME, types, ...)                               \
    template <>                                                          \
    struct VectorFormula<ElementwiseMode::NAME> {                        \
        static constexpr unsigned TYPES = types;                         \
                                                                         \
        template <typename V>                                            \
        static V apply([[maybe_unused]] V x, [[maybe_unused]] V y = V{}, \
                       [[maybe_unused]] V z = V{}) {                     \
            using namespace simd;                                        \
            return __VA_ARGS__;                                          \
        }                                                                \
    };
#include "kernels/arm_common/elementwise_vector_modes.inc"
#undef KERN_VECTOR_MODE

// Bits of a result may depend on which input is which: a NaN, or zeros of two signs.
constexpr bool order_matters(ElementwiseMode mode) {
    return mode == ElementwiseMode::MAX || mode == ElementwiseMode::MIN;
}

template <ElementwiseMode MODE, typename T>
struct UnaryKernel {
    static void run(const VectorPlan& plan, const BroadcastSet& set, void* output) {
        using Packet = VectorPacket<T>;
        const T* x = static_cast<const T*>(set.views[0].raw_ptr);
        T* out = static_cast<T*>(output);
        const auto operation = [](auto v) { return VectorFormula<MODE>::apply(v); };
        if constexpr (MODE != ElementwiseMode::EXP) {
            map_packets<Packet>(out, plan.inner, operation, Stream<Packet>{x});
        } else {
            // The exponential alone finishes with the library's function, in double precision and
            // without a clamp: the rest is less than a vector, so the better result costs little.
            const size_t whole = plan.inner - plan.inner % Packet::WIDTH;
            map_packets<Packet>(out, whole, operation, Stream<Packet>{x});
            for (size_t i = whole; i < plan.inner; ++i)
                out[i] = static_cast<float>(std::exp(static_cast<double>(x[i])));
        }
    }
};

template <ElementwiseMode MODE, typename T>
struct BinaryKernel {
    using Packet = VectorPacket<T>;

    static void run(const VectorPlan& plan, const BroadcastSet& set, void* output) {
        const T* x = static_cast<const T*>(set.views[0].raw_ptr);
        const T* y = static_cast<const T*>(set.views[1].raw_ptr);
        T* out = static_cast<T*>(output);
        switch (plan.form) {
            case VectorForm::DENSE_SCALAR:
            case VectorForm::DENSE_CHANNEL:
                return walk_channels<false>(plan, x, y, out);
            case VectorForm::SCALAR_DENSE:
            case VectorForm::CHANNEL_DENSE:
                return walk_channels<order_matters(MODE)>(plan, y, x, out);
            default:
                return walk_rows(plan, x, y, out);
        }
    }

private:
    template <bool EXCHANGED>
    static void walk_channels(const VectorPlan& plan, const T* dense, const T* values, T* out) {
        const auto operation = [](auto a, auto b) {
            return EXCHANGED ? VectorFormula<MODE>::apply(b, a) : VectorFormula<MODE>::apply(a, b);
        };
        for (size_t outer = 0; outer < plan.outer; ++outer) {
            for (size_t channel = 0; channel < plan.channels; ++channel) {
                map_packets<Packet>(out, plan.inner, operation, Stream<Packet>{dense},
                                    repeated(values + channel, plan.period));
                dense += plan.inner;
                out += plan.inner;
            }
        }
    }

    // Two dense inputs are a single row.
    static void walk_rows(const VectorPlan& plan, const T* x, const T* y, T* out) {
        const size_t x_step = plan.form == VectorForm::ROW_DENSE ? 0 : plan.inner;
        const size_t y_step = plan.form == VectorForm::DENSE_ROW ? 0 : plan.inner;
        for (size_t row = 0; row < plan.outer; ++row) {
            map_packets<Packet>(
                out, plan.inner, [](auto a, auto b) { return VectorFormula<MODE>::apply(a, b); },
                Stream<Packet>{x}, Stream<Packet>{y});
            x += x_step;
            y += y_step;
            out += plan.inner;
        }
    }
};

template <ElementwiseMode MODE, typename T>
struct TernaryKernel {
    static void run(const VectorPlan& plan, const BroadcastSet& set, void* output) {
        using Packet = VectorPacket<T>;
        const auto pointer = [&](size_t i) { return static_cast<const T*>(set.views[i].raw_ptr); };
        const auto dense = [&](size_t i) { return set.views[i].layout.is_dense_raw(); };
        const auto with = [&](auto x, auto y) {
            map_packets<Packet>(
                static_cast<T*>(output), plan.inner,
                [](auto a, auto b, auto c) { return VectorFormula<MODE>::apply(a, b, c); }, x, y,
                Stream<Packet>{pointer(2)});
        };
        const auto lanes = [&](size_t i) { return repeated(pointer(i), 1); };
        const auto stream = [&](size_t i) { return Stream<Packet>{pointer(i)}; };
        // The factors may change places.
        if (dense(0) && dense(1))
            with(stream(0), stream(1));
        else if (dense(0))
            with(stream(0), lanes(1));
        else if (dense(1))
            with(stream(1), lanes(0));
        else
            with(lanes(0), lanes(1));
    }
};

using Function = void (*)(const VectorPlan& plan, const BroadcastSet& set, void* output);

template <ElementwiseMode MODE, VectorTypes TYPE, typename T>
constexpr Function kernel_of() {
    if constexpr ((VectorFormula<MODE>::TYPES & TYPE) == 0)
        return nullptr;
    else if constexpr (Formula<MODE>::TRAIT.arity == 1)
        return &UnaryKernel<MODE, T>::run;
    else if constexpr (Formula<MODE>::TRAIT.arity == 2)
        return &BinaryKernel<MODE, T>::run;
    else
        return &TernaryKernel<MODE, T>::run;
}

template <ElementwiseMode MODE>
Function kernel_for_type(unsigned type) {
    switch (type) {
        case FLOAT32:
            return kernel_of<MODE, FLOAT32, float>();
        case INT32:
            return kernel_of<MODE, INT32, int32_t>();
        case INT16:
            return kernel_of<MODE, INT16, int16_t>();
        case INT8:
            return kernel_of<MODE, INT8, int8_t>();
        default:
            return nullptr;
    }
}

Function select_kernel(ElementwiseMode mode, unsigned type) {
    switch (mode) {
#define KERN_VECTOR_MODE(NAME, ...) \
    case ElementwiseMode::NAME:     \
        return kernel_for_type<ElementwiseMode::NAME>(type);
#include "kernels/arm_common/elementwise_vector_modes.inc"
#undef KERN_VECTOR_MODE
        default:
            return nullptr;
    }
}

}  // namespace

void ElementwiseImpl::exec(const std::vector<RawTensor>& inputs, const RawTensor& output) {
    check_exec(inputs, output);
    if (!output.layout.is_dense_raw())
        return fallback::ElementwiseImpl::exec(inputs, output);
    const DTypeEnum dtype = output.layout.dtype.enum_value();
    const BroadcastSet set(inputs, output.layout);
    const VectorPlan plan = plan_vector_form(m_param.mode, dtype, set);
    if (plan.form == VectorForm::NONE)
        return fallback::ElementwiseImpl::exec(inputs, output);
    const Function kernel = select_kernel(m_param.mode, vector_type(dtype));
    KERN_CHECK(kernel);
    dispatch([kernel, plan, set, target = output.raw_ptr] { kernel(plan, set, target); });
}

}  // namespace kern::arm_common
