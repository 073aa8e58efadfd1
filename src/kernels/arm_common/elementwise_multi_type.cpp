#include "kernels/arm_common/elementwise_multi_type.h"

#include "kernels/arm_common/elementwise_plan.h"
#include "kernels/arm_common/wide_packet.h"
#include "kernels/operators/elementwise_multi_type_rules.h"
#include "kernels/simd/f32x4_functions.h"

namespace kern::arm_common {
namespace {

using multi_type::QuantisedAdd;
using multi_type::ShiftTo;
using simd::F32x4;
using simd::I32x4;

// multi_type::rounding_shift_right of vectors.
class RoundingShift {
public:
    explicit RoundingShift(int32_t count) {
        const bool all_bits = static_cast<uint32_t>(count) >= 32;
        const int32_t mask = all_bits ? 0 : static_cast<int32_t>((1u << count) - 1);
        m_count = simd::broadcast(all_bits ? 31 : count);
        m_mask = simd::broadcast(mask);
        m_half = simd::broadcast(mask >> 1);
    }

    I32x8 operator()(I32x8 x) const { return {shift(x.first), shift(x.last)}; }

private:
    // A comparison that holds is -1.
    I32x4 shift(I32x4 x) const {
        const I32x4 zero{};
        const I32x4 threshold = m_half - simd::greater(zero, x);
        return (x >> m_count) - simd::greater(x & m_mask, threshold);
    }

    I32x4 m_count;
    I32x4 m_mask;
    I32x4 m_half;
};

template <typename Out, typename X, typename Count>
void run(const ShiftTo<Out, X, Count>&, const BroadcastSet& inputs, void* output) {
    const Stream<WidePacket<X>> x{static_cast<const X*>(inputs.views[0].raw_ptr)};
    const RoundingShift shift(*static_cast<const Count*>(inputs.views[1].raw_ptr));
    map_packets<WidePacket<Out>>(static_cast<Out*>(output), inputs.element_count, shift, x);
}

// The rule QuantisedAdd of vectors. The quotient is a division, because a product with the
// reciprocal would round some sums to the other neighbour.
template <bool RELU, typename Out>
class VectorQuantisedAdd {
public:
    explicit VectorQuantisedAdd(const QuantisedAdd<RELU, Out>& rule)
        : m_x_scale(simd::broadcast(rule.x_scale)),
          m_y_scale(simd::broadcast(rule.y_scale)),
          m_out_scale(simd::broadcast(rule.out.scale)),
          m_least(simd::broadcast(int32_t{Limits::min()} - rule.out.zero_point)),
          m_most(simd::broadcast(int32_t{Limits::max()} - rule.out.zero_point)),
          m_zero_point(simd::broadcast(rule.out.zero_point)) {}

    I32x8 operator()(I32x8 x, I32x8 y) const {
        return {sum(x.first, y.first), sum(x.last, y.last)};
    }

private:
    using Limits = std::numeric_limits<Out>;

    I32x4 sum(I32x4 x, I32x4 y) const {
        using namespace simd;
        F32x4 real = add(mul(to_float(x), m_x_scale), mul(to_float(y), m_y_scale));
        if (RELU)
            real = select(greater(real, zero()), real, zero());
        I32x4 q = round_to_int32(divide(real, m_out_scale));
        q = select(greater(q, m_most), m_most, q);
        q = select(greater(m_least, q), m_least, q);
        return q + m_zero_point;
    }

    F32x4 m_x_scale, m_y_scale, m_out_scale;
    I32x4 m_least, m_most, m_zero_point;
};

template <bool RELU, typename Out>
void run(QuantisedAdd<RELU, Out> rule, const BroadcastSet& inputs, void* output) {
    using Packet = WidePacket<int8_t>;
    auto* out = static_cast<Out*>(output);
    auto* x = static_cast<const int8_t*>(inputs.views[0].raw_ptr);
    auto* y = static_cast<const int8_t*>(inputs.views[1].raw_ptr);
    if (inputs.views[0].layout.is_dense_raw() && inputs.views[1].layout.is_dense_raw()) {
        map_packets<WidePacket<Out>>(out, inputs.element_count, VectorQuantisedAdd(rule),
                                     Stream<Packet>{x}, Stream<Packet>{y});
        return;
    }
    if (is_scalar(inputs.views[0].layout)) {
        std::swap(x, y);
        std::swap(rule.x_scale, rule.y_scale);
    }
    const I32x4 lanes = simd::broadcast(int32_t{*y});
    map_packets<WidePacket<Out>>(out, inputs.element_count, VectorQuantisedAdd(rule),
                                 Stream<Packet>{x}, Constant<I32x8>{{lanes, lanes}});
}

}  // namespace

bool has_vector_form(ElementwiseMultiType::Mode mode, const BroadcastSet& inputs) {
    using Mode = ElementwiseMultiType::Mode;
    const TensorLayout& x = inputs.views[0].layout;
    const TensorLayout& y = inputs.views[1].layout;
    const bool x_dense = x.is_dense_raw(), y_dense = y.is_dense_raw();
    switch (mode) {
        case Mode::SHIFT_TO_INT8:
        case Mode::SHIFT_TO_INT16:
            return x_dense && is_scalar(y);
        case Mode::QUANTISED_ADD:
        case Mode::QUANTISED_ADD_RELU:
            return (x_dense && (y_dense || is_scalar(y))) || (is_scalar(x) && y_dense);
        default:
            return false;
    }
}

#define KERN_VECTOR_METHOD(NAME, method)                                                         \
    void ElementwiseMultiTypeImpl::method(const BroadcastSet& inputs, const RawTensor& output) { \
        if (!output.layout.is_dense_raw() || !has_vector_form(Mode::NAME, inputs))               \
            return fallback::ElementwiseMultiTypeImpl::method(inputs, output);                   \
        multi_type::with_rule<Mode::NAME>(inputs, output.layout.dtype, [&](auto rule) {          \
            dispatch([rule, inputs, out = output.raw_ptr] { run(rule, inputs, out); });          \
        });                                                                                      \
    }
KERN_VECTOR_METHOD(SHIFT_TO_INT8, shift_to_int8)
KERN_VECTOR_METHOD(SHIFT_TO_INT16, shift_to_int16)
KERN_VECTOR_METHOD(QUANTISED_ADD, quantised_add)
KERN_VECTOR_METHOD(QUANTISED_ADD_RELU, quantised_add_relu)
#undef KERN_VECTOR_METHOD

}  // namespace kern::arm_common
