#include "kernels/arm_common/direct_int8.h"

#include "kernels/arm_common/direct_tile.h"
#include "kernels/check.h"
#include "kernels/simd/i8x16.h"
#include "kernels/simd/windows.h"

namespace kern::arm_common {
namespace {

using simd::I16x8;
using simd::I8x8;

// What the taps of one row of the filter meet, for eight outputs.
template <size_t SIDE, size_t STRIDE>
struct Int8Window;

template <size_t SIDE>
struct Int8Window<SIDE, 1> {
    static constexpr size_t READ = 16;
    I8x8 values[5];

    // Moves on to the next line of the image, `width` elements further.
    Int8Window(const int8_t*& line, ptrdiff_t width) {
        const simd::I8x16 both = simd::load_and_move(line, width);
        const I8x8 first = simd::first_eight(both), next = simd::last_eight(both);
        values[0] = first;
        values[1] = simd::lanes_from<1>(first, next);
        values[2] = simd::lanes_from<2>(first, next);
        values[3] = simd::lanes_from<3>(first, next);
        values[4] = simd::lanes_from<4>(first, next);
    }
};

template <size_t SIDE>
struct Int8Window<SIDE, 2> {
    static constexpr size_t READ = SIDE == 2 ? 16 : 32;
    I8x8 values[5];

    Int8Window(const int8_t*& line, ptrdiff_t width) {
        const int8_t* source = line;
        line += width;
        simd::keep_in_register(line);
        const auto first = simd::load_even_odd(source);
        values[0] = first.even;
        values[1] = first.odd;
        if constexpr (SIDE > 2) {
            const auto next = simd::load_even_odd(source + 16);
            values[2] = simd::lanes_from<1>(first.even, next.even);
            values[3] = simd::lanes_from<1>(first.odd, next.odd);
            values[4] = simd::lanes_from<2>(first.even, next.even);
        }
    }
};

struct Int8Lanes {
    using In = int8_t;
    using Out = int16_t;
    using Sum = I16x8;
    using ScalarSum = uint32_t;
    static constexpr size_t LANES = 8;

    template <size_t SIDE, size_t STRIDE>
    using Window = Int8Window<SIDE, STRIDE>;

    template <size_t SIDE>
    struct Taps {
        I8x8 values[SIDE][SIDE];
        explicit Taps(const int8_t* taps) {
            for_constants<SIDE * SIDE>(
                [&](auto tap) { values[tap / SIDE][tap % SIDE] = simd::load_lane(taps + tap); });
        }
    };

    static I16x8 zero() { return simd::broadcast(int16_t{0}); }
    template <size_t Y, size_t X, typename AnyWindow, typename AnyTaps>
    static I16x8 add_tap(I16x8 sum, const AnyWindow& window, const AnyTaps& taps) {
        return simd::add_product(sum, window.values[X], taps.values[Y][X]);
    }
};

template <size_t SIDE, size_t STRIDE>
void run_directly(const ConvolutionRunRecord& run) {
    convolve_directly<int8_t, int16_t>(run, &convolve_square<Int8Lanes, SIDE, STRIDE>);
}

constexpr size_t POINTS = 16;
static_assert(POINTS - 1 <= OVERRUN<int8_t>, "the last points may stick out of the last plane");

// CHANNELS output channels at POINTS neighbouring points, of which `points` are stored.
template <size_t CHANNELS>
void multiply_points(const SourcePlanes<int8_t>& planes, size_t first, const int8_t* filter,
                     int16_t* target, size_t points) {
    I16x8 sums[CHANNELS][2] = {};
    for (size_t channel = 0; channel < planes.count; ++channel) {
        const simd::I8x16 values = simd::load(planes.at(channel) + first);
        const I8x8 low = simd::first_eight(values), high = simd::last_eight(values);
        for_constants<CHANNELS>([&](auto oc) {
            const I8x8 factor = simd::load_lane(filter + oc * planes.count + channel);
            sums[oc][0] = simd::add_product(sums[oc][0], low, factor);
            sums[oc][1] = simd::add_product(sums[oc][1], high, factor);
        });
    }
    for_constants<CHANNELS>([&](auto oc) {
        int16_t values[POINTS];
        int16_t* row = target + oc * planes.plane + first;
        int16_t* stored = points == POINTS ? row : values;
        simd::store(stored, sums[oc][0]);
        simd::store(stored + 8, sums[oc][1]);
        if (stored == values)
            std::copy_n(values, points, row);
    });
}

void multiply_planes(const ConvolutionRunRecord& run) {
    constexpr size_t CHANNELS = 4;
    for (size_t image = 0; image < run.n; ++image) {
        const auto planes = source_planes<int8_t>(run, image);
        for (size_t first = 0; first < planes.plane; first += POINTS) {
            const auto* filter = static_cast<const int8_t*>(run.filter);
            int16_t* target = static_cast<int16_t*>(run.dst) + image * run.dst_image_step;
            const size_t points = std::min(POINTS, planes.plane - first);
            size_t channels = run.ocpg;
            for (; channels >= CHANNELS; channels -= CHANNELS) {
                multiply_points<CHANNELS>(planes, first, filter, target, points);
                filter += CHANNELS * run.icpg;
                target += CHANNELS * planes.plane;
            }
            for (; channels != 0; --channels) {
                multiply_points<1>(planes, first, filter, target, points);
                filter += run.icpg;
                target += planes.plane;
            }
        }
    }
}

}  // namespace

ConvolutionAlgorithm::Kernel int8_direct_kernel(const ConvolutionSizeRecord& size) {
    const bool is_strided = size.stride_w == 2;
    switch (size.fw) {
        case 2:
            return is_strided ? &run_directly<2, 2> : &run_directly<2, 1>;
        case 3:
            return is_strided ? &run_directly<3, 2> : &run_directly<3, 1>;
        case 5:
            return is_strided ? &run_directly<5, 2> : &run_directly<5, 1>;
        default:
            KERN_FAIL();
    }
}

ConvolutionAlgorithm::Kernel int8_pointwise_kernel(const ConvolutionSizeRecord&) {
    return &multiply_planes;
}

}  // namespace kern::arm_common
