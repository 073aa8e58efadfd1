#include "kernels/arm_common/type_cvt.h"

#include "kernels/arm_common/wide_packet.h"
#include "kernels/simd/f32x4_functions.h"
#include "kernels/types/quantise.h"

namespace kern::arm_common {
namespace {

struct Rescale {
    float ratio;
    int32_t zero_point;

    // What is beyond every byte, with any zero point added, but far from the ends of 16 bits.
    static constexpr float FAR = 16384.0f;

    I32x8 operator()(I32x8 elements) const {
        return {rescaled(elements.first), rescaled(elements.last)};
    }

private:
    simd::I32x4 rescaled(simd::I32x4 elements) const {
        simd::F32x4 x = simd::mul(simd::to_float(elements), simd::broadcast(ratio));
        const simd::F32x4 high = simd::broadcast(FAR);
        const simd::F32x4 low = simd::broadcast(-FAR);
        x = simd::select(simd::greater(x, high), high, x);
        x = simd::select(simd::greater(low, x), low, x);
        return simd::round_to_int32(x) + simd::broadcast(zero_point);
    }
};

template <typename Out>
void convert(const Rescale& rescale, const int32_t* src, void* dst, size_t count) {
    map_packets<WidePacket<Out>>(static_cast<Out*>(dst), count, rescale,
                                 Stream<WidePacket<int32_t>>{src});
}

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    const DTypeEnum to = dst.layout.dtype.enum_value();
    const bool to_signed = to == DTypeEnum::QUANTIZED_S8;
    if (src.layout.dtype.enum_value() != DTypeEnum::QUANTIZED_S32 || src.layout.is_empty() ||
        !src.layout.is_dense_raw() || !dst.layout.is_dense_raw() ||
        !(to_signed || to == DTypeEnum::QUANTIZED8_ASYMM)) {
        fallback::TypeCvtImpl::exec(src, dst);
        return;
    }
    const Quantisation target = Quantisation::of(dst.layout.dtype);
    const Rescale rescale{Quantisation::of(src.layout.dtype).scale / target.scale,
                          target.zero_point};
    const auto kernel = to_signed ? &convert<int8_t> : &convert<uint8_t>;
    dispatch([kernel, rescale, from = src.ptr<const int32_t>(), target_ptr = dst.raw_ptr,
              count = src.layout.element_count()] { kernel(rescale, from, target_ptr, count); });
}

}  // namespace kern::arm_common
