#include "kernels/arm_common/type_cvt.h"

#include "kernels/quantise.h"
#include "kernels/simd/f32x4_functions.h"
#include "kernels/simd/integers.h"

namespace kern::arm_common {
namespace {

constexpr size_t STEP = 8;

struct Rescale {
    float ratio;
    int32_t zero_point;

    // What is beyond every byte, with any zero point added, but far from the ends of 16 bits.
    static constexpr float FAR = 16384.0f;

    simd::I32x4 operator()(simd::I32x4 elements) const {
        simd::F32x4 x = simd::mul(simd::to_float(elements), simd::broadcast(ratio));
        const simd::F32x4 high = simd::broadcast(FAR);
        const simd::F32x4 low = simd::broadcast(-FAR);
        x = simd::select(simd::greater(x, high), high, x);
        x = simd::select(simd::greater(low, x), low, x);
        return simd::round_to_int32(x) + simd::broadcast(zero_point);
    }
};

template <bool SIGNED>
void convert_step(const Rescale& rescale, const int32_t* src, int8_t* dst) {
    const simd::I16x8 wide =
        simd::saturate_to_int16(rescale(simd::load(src)), rescale(simd::load(src + STEP / 2)));
    simd::store_eight(dst, SIGNED ? simd::saturate_to_int8(wide) : simd::saturate_to_uint8(wide));
}

template <bool SIGNED>
void convert(const Rescale& rescale, const int32_t* src, int8_t* dst, size_t count) {
    size_t i = 0;
    for (; i + STEP <= count; i += STEP)
        convert_step<SIGNED>(rescale, src + i, dst + i);
    if (i == count)
        return;
    // The same operations for the rest, so that an element's result does not depend on its place.
    int32_t last_src[STEP] = {};
    int8_t last_dst[STEP];
    std::memcpy(last_src, src + i, (count - i) * sizeof(*src));
    convert_step<SIGNED>(rescale, last_src, last_dst);
    std::memcpy(dst + i, last_dst, count - i);
}

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    const DTypeEnum to = dst.layout.dtype.enum_value();
    const bool to_signed = to == DTypeEnum::QUANTIZED_S8;
    if (src.layout.dtype.enum_value() != DTypeEnum::QUANTIZED_S32 || !src.layout.is_dense() ||
        src.layout.ndim == 0 || !(to_signed || to == DTypeEnum::QUANTIZED8_ASYMM)) {
        fallback::TypeCvtImpl::exec(src, dst);
        return;
    }
    const Quantisation target = Quantisation::of(dst.layout.dtype);
    const Rescale rescale{Quantisation::of(src.layout.dtype).scale / target.scale,
                          target.zero_point};
    const auto kernel = to_signed ? &convert<true> : &convert<false>;
    dispatch([kernel, rescale, from = src.ptr<const int32_t>(), to_bytes = dst.ptr<int8_t>(),
              count = src.layout.element_count()] { kernel(rescale, from, to_bytes, count); });
}

}  // namespace kern::arm_common
