#include "kernels/arm_common/direct_float.h"

#include "kernels/arm_common/direct_tile.h"
#include "kernels/check.h"
#include "kernels/simd/f32x4.h"
#include "kernels/simd/windows.h"

namespace kern::arm_common {
namespace {

using simd::F32x4;
using FloatPlane = PlaneConvolution<float, float>;

// What the taps of one row of the filter meet, for four outputs.
template <size_t SIDE, size_t STRIDE>
struct FloatWindow;

template <size_t SIDE>
struct FloatWindow<SIDE, 1> {
    static constexpr size_t READ = 8;
    F32x4 values[5];

    // Moves on to the next line of the image, `width` elements further.
    FloatWindow(const float*& line, ptrdiff_t width) {
        values[0] = simd::load_next(line);
        values[4] = simd::load_and_move(line, width - 4);
        values[1] = simd::lanes_from<1>(values[0], values[4]);
        values[2] = simd::lanes_from<2>(values[0], values[4]);
        values[3] = simd::lanes_from<3>(values[0], values[4]);
    }
};

template <size_t SIDE>
struct FloatWindow<SIDE, 2> {
    static constexpr size_t READ = SIDE == 2 ? 8 : SIDE <= 5 ? 12 : 16;
    F32x4 values[7];

    FloatWindow(const float*& line, ptrdiff_t width) {
        const float* source = line;
        line += width;
        simd::keep_in_register(line);
        const auto first = simd::load_even_odd(source);
        values[0] = first.even;
        values[1] = first.odd;
        if constexpr (SIDE > 2) {
            simd::EvenOdd<F32x4> next;
            if constexpr (SIDE <= 5)
                next = simd::even_odd_lanes(simd::load(source + 8));
            else
                next = simd::load_even_odd(source + 8);
            values[2] = simd::lanes_from<1>(first.even, next.even);
            values[3] = simd::lanes_from<1>(first.odd, next.odd);
            values[4] = simd::lanes_from<2>(first.even, next.even);
            values[5] = simd::lanes_from<2>(first.odd, next.odd);
            values[6] = simd::lanes_from<3>(first.even, next.even);
        }
    }
};

struct FloatLanes {
    using In = float;
    using Out = float;
    using Sum = F32x4;
    using ScalarSum = float;
    static constexpr size_t LANES = 4;

    template <size_t SIDE, size_t STRIDE>
    using Window = FloatWindow<SIDE, STRIDE>;

    // A row of the filter in as many vectors as it takes.
    template <size_t SIDE>
    struct Taps {
        F32x4 rows[SIDE][(SIDE + 3) / 4];
        explicit Taps(const float* taps) {
            for_constants<SIDE>([&](auto y) {
                for_constants<(SIDE + 3) / 4>([&](auto vector) {
                    constexpr size_t X = decltype(vector)::value * 4;
                    constexpr size_t FIRST = decltype(y)::value * SIDE + X;
                    if constexpr (FIRST + 4 <= SIDE * SIDE)  // the rest is not used
                        rows[y][vector] = simd::load(taps + FIRST);
                    else
                        rows[y][vector] = simd::load_first(taps + FIRST, SIDE * SIDE - FIRST);
                });
            });
        }
    };

    static F32x4 zero() { return simd::zero(); }
    template <size_t Y, size_t X, typename AnyWindow, typename AnyTaps>
    static F32x4 add_tap(F32x4 sum, const AnyWindow& window, const AnyTaps& taps) {
        return simd::add_product_lane<X % 4>(sum, window.values[X], taps.rows[Y][X / 4]);
    }
};

// Filters of any shape: each tap loads what it meets.
template <size_t ROWS>
void add_tile(const FloatPlane& plane, const float* source, float* target, ptrdiff_t target_step) {
    F32x4 sums[ROWS];
    const float* old = target;
    for_constants<ROWS>([&](auto row) {
        sums[row] = plane.is_first ? simd::zero() : simd::load_and_move(old, target_step);
    });
    const auto width = static_cast<ptrdiff_t>(plane.source_width);
    const auto taps = static_cast<ptrdiff_t>(plane.fw);
    const ptrdiff_t step = plane.is_turned ? -1 : 1;
    const float* tap = plane.taps;
    if (plane.is_turned) {
        tap += plane.fh * plane.fw - 1;
        source += (plane.fh - 1) * plane.source_width + plane.fw - 1;
    }
    for (size_t y = 0; y < plane.fh; ++y) {
        for (size_t x = 0; x < plane.fw; ++x, tap += step, source += step) {
            const F32x4 factor = simd::broadcast(*tap);
            const float* line = source;
            for_constants<ROWS>([&](auto row) {
                sums[row] = simd::add_product(sums[row], simd::load_and_move(line, width), factor);
            });
        }
        source += step * (width - taps);
    }
    for_constants<ROWS>([&](auto row) { simd::store_next(target, sums[row], target_step); });
}

template <size_t ROWS>
void add_any_tiles(const FloatPlane& plane, const float* source, float* target,
                   ptrdiff_t target_step, size_t tiles) {
    for (; tiles != 0; --tiles, source += FloatLanes::LANES, target += FloatLanes::LANES)
        add_tile<ROWS>(plane, source, target, target_step);
}

void convolve_any(const FloatPlane& plane) {
    if (plane.oh < 4)
        convolve_in_tiles<1, FloatLanes::LANES>(plane, &add_any_tiles<1>);
    else
        convolve_in_tiles<4, FloatLanes::LANES>(plane, &add_any_tiles<4>);
}

template <PlaneKernel<float, float> KERNEL>
void run_directly(const ConvolutionRunRecord& run) {
    convolve_directly<float, float>(run, KERNEL);
}

template <size_t SIDE, size_t STRIDE>
constexpr ConvolutionAlgorithm::Kernel SQUARE =
    &run_directly<&convolve_square<FloatLanes, SIDE, STRIDE>>;

}  // namespace

ConvolutionAlgorithm::Kernel float_direct_kernel(const ConvolutionSizeRecord&) {
    return &run_directly<&convolve_any>;
}

ConvolutionAlgorithm::Kernel float_stride1_kernel(const ConvolutionSizeRecord& size) {
    switch (size.fw) {
        case 2:
            return SQUARE<2, 1>;
        case 3:
            return SQUARE<3, 1>;
        case 5:
            return SQUARE<5, 1>;
        default:
            KERN_FAIL();
    }
}

ConvolutionAlgorithm::Kernel float_stride2_kernel(const ConvolutionSizeRecord& size) {
    switch (size.fw) {
        case 2:
            return SQUARE<2, 2>;
        case 3:
            return SQUARE<3, 2>;
        case 5:
            return SQUARE<5, 2>;
        case 7:
            return SQUARE<7, 2>;
        default:
            KERN_FAIL();
    }
}

}  // namespace kern::arm_common
