#include "kernels/arm_common/winograd.h"

#include <algorithm>

#include "kernels/arm_common/winograd_transforms.h"
#include "kernels/checked_math.h"
#include "kernels/operators/convolution_products.h"
#include "kernels/workspace.h"

namespace kern::arm_common {
namespace {

using simd::F32x4;

constexpr size_t LANES = 4;  // channels that are transformed at once
constexpr size_t FILTER = 3;
constexpr size_t OUT = 6;                // a tile of outputs is 6 x 6,
constexpr size_t IN = OUT + FILTER - 1;  // and comes from 8 x 8 inputs
constexpr size_t POSITIONS = IN * IN;

// A tile of four channels.
using Transformed = F32x4[POSITIONS];

size_t tiles_along(size_t outputs) {
    return (outputs - 1) / OUT + 1;
}
size_t count_tiles(const ConvolutionSizeRecord& size) {
    return checked_mul(size.n, checked_mul(tiles_along(size.oh), tiles_along(size.ow)));
}

// The transforms of filters, inputs and outputs, each as 64 matrices; scratch for a tile, which is
// on the stack instead; the product's own.
WorkspaceBundle parts(const ConvolutionSizeRecord& size, void* base) {
    const size_t tiles = count_tiles(size);
    const auto matrices = [](size_t rows, size_t columns) {
        return checked_mul(checked_mul(rows, columns), POSITIONS * sizeof(float));
    };
    return {base,
            {matrices(size.icpg, size.ocpg), matrices(tiles, size.icpg), matrices(tiles, size.ocpg),
             checked_mul(checked_mul(size.depth(), sizeof(float)), size.fw),
             size.products->matrix_workspace(tiles, size.ocpg, size.icpg)}};
}

struct Matrices {
    float* filters;  // {icpg, ocpg} for each position
    float* inputs;   // {tiles, icpg}
    float* outputs;  // {tiles, ocpg}
    void* workspace;

    explicit Matrices(const ConvolutionRunRecord& run) {
        const WorkspaceBundle bundle = parts(run, run.workspace.raw_ptr);
        filters = static_cast<float*>(bundle.get(0));
        inputs = static_cast<float*>(bundle.get(1));
        outputs = static_cast<float*>(bundle.get(2));
        workspace = bundle.get(4);
    }
};

// Four values of each of four lanes, side by side in memory, as one vector for each value.
void load_lanes(const float* first, size_t lane_step, F32x4* values) {
    for (size_t lane = 0; lane < LANES; ++lane)
        values[lane] = simd::load(first + lane * lane_step);
    simd::transpose(values[0], values[1], values[2], values[3]);
}

// Along the rows of IN values, then along the columns, into a matrix for each position.
void transform_tile(const Transformed& values, float* target, size_t matrix) {
    Transformed half;
    for (size_t y = 0; y < IN; ++y)
        transform_input(values + y * IN, 1, half + y * IN, 1);
    for (size_t x = 0; x < IN; ++x) {
        F32x4 column[IN];
        transform_input(half + x, IN, column, 1);
        for (size_t y = 0; y < IN; ++y)
            simd::store(target + (y * IN + x) * matrix, column[y]);
    }
}

void transform_filters(const ConvolutionRunRecord& run, float* target) {
    const auto* filter = static_cast<const float*>(run.filter);
    for (size_t oc = 0; oc < run.ocpg; oc += LANES) {
        for (size_t ic = 0; ic < run.icpg; ++ic) {
            const float* taps = filter + (oc * run.icpg + ic) * run.taps();
            F32x4 values[FILTER * FILTER];
            load_lanes(taps, run.depth(), values);
            load_lanes(taps + 4, run.depth(), values + 4);
            const float last[LANES] = {taps[8], taps[run.depth() + 8], taps[2 * run.depth() + 8],
                                       taps[3 * run.depth() + 8]};
            values[8] = simd::load(last);
            F32x4 half[FILTER * IN];
            for (size_t y = 0; y < FILTER; ++y)
                transform_filter(values + y * FILTER, 1, half + y * IN, 1);
            for (size_t x = 0; x < IN; ++x) {
                F32x4 column[IN];
                transform_filter(half + x, IN, column, 1);
                for (size_t y = 0; y < IN; ++y)
                    simd::store(target + (y * IN + x) * run.icpg * run.ocpg + ic * run.ocpg + oc,
                                column[y]);
            }
        }
    }
}

// `work(image, first row, first column of outputs)` for every tile, in their order.
template <typename Work>
void for_each_tile(const ConvolutionSizeRecord& size, Work work) {
    for (size_t image = 0; image < size.n; ++image) {
        for (size_t y = 0; y < size.oh; y += OUT) {
            for (size_t x = 0; x < size.ow; x += OUT)
                work(image, y, x);
        }
    }
}

void transform_inputs(const ConvolutionRunRecord& run, float* target) {
    const size_t matrix = count_tiles(run) * run.icpg;
    for_each_tile(run, [&](size_t image, size_t y, size_t x) {
        const float* source =
            static_cast<const float*>(run.src) + image * run.src_image_step + y * run.iw + x;
        const size_t rows = std::min(IN, run.ih - y), columns = std::min(IN, run.iw - x);
        for (size_t ic = 0; ic < run.icpg; ic += LANES, source += LANES * run.src_plane()) {
            Transformed values;
            float whole[LANES * POSITIONS];
            const float* tile = source;
            size_t width = run.iw, plane = run.src_plane();
            if (rows < IN || columns < IN) {  // what sticks out of the image is zero
                std::fill_n(whole, LANES * POSITIONS, 0.0f);
                for (size_t row = 0; row < LANES * rows; ++row)
                    std::copy_n(source + row / rows * plane + row % rows * width, columns,
                                whole + row / rows * POSITIONS + row % rows * IN);
                tile = whole;
                width = IN;
                plane = POSITIONS;
            }
            for (size_t row = 0; row < IN; ++row) {
                load_lanes(tile + row * width, plane, values + row * IN);
                load_lanes(tile + row * width + LANES, plane, values + row * IN + LANES);
            }
            transform_tile(values, target + ic, matrix);
        }
        target += run.icpg;
    });
}

// Of four channels: one row of a tile of outputs, cut off where the image ends.
void store_row(const F32x4* values, size_t columns, float* target, size_t plane) {
    F32x4 low[LANES] = {values[0], values[1], values[2], values[3]};
    F32x4 high[LANES] = {values[4], values[5], values[5], values[5]};
    simd::transpose(low[0], low[1], low[2], low[3]);
    simd::transpose(high[0], high[1], high[2], high[3]);
    for (size_t lane = 0; lane < LANES; ++lane, target += plane) {
        float row[2 * LANES];
        simd::store(row, low[lane]);
        simd::store(row + LANES, high[lane]);
        if (columns == OUT)
            std::copy_n(row, OUT, target);
        else
            std::copy_n(row, columns, target);
    }
}

void transform_outputs(const ConvolutionRunRecord& run, const float* source) {
    const size_t matrix = count_tiles(run) * run.ocpg;
    for_each_tile(run, [&](size_t image, size_t y, size_t x) {
        float* target = static_cast<float*>(run.dst) + image * run.dst_image_step + y * run.ow + x;
        const size_t rows = std::min(OUT, run.oh - y), columns = std::min(OUT, run.ow - x);
        for (size_t oc = 0; oc < run.ocpg; oc += LANES, target += LANES * run.dst_plane()) {
            F32x4 half[OUT * IN];
            for (size_t column = 0; column < IN; ++column) {
                F32x4 values[IN];
                for (size_t row = 0; row < IN; ++row)
                    values[row] = simd::load(source + (row * IN + column) * matrix + oc);
                transform_output(values, 1, half + column, IN);
            }
            for (size_t row = 0; row < rows; ++row) {
                F32x4 values[OUT];
                transform_output(half + row * IN, 1, values, 1);
                store_row(values, columns, target + row * run.ow, run.dst_plane());
            }
        }
        source += run.ocpg;
    });
}

void convolve(const ConvolutionRunRecord& run) {
    const Matrices matrices(run);
    const size_t tiles = count_tiles(run);
    transform_filters(run, matrices.filters);
    transform_inputs(run, matrices.inputs);
    for (size_t position = 0; position < POSITIONS; ++position)
        run.products->multiply_matrix(
            {matrices.inputs + position * tiles * run.icpg,
             matrices.filters + position * run.icpg * run.ocpg,
             matrices.outputs + position * tiles * run.ocpg, tiles, run.ocpg, run.icpg},
            matrices.workspace);
    transform_outputs(run, matrices.outputs);
}

}  // namespace

size_t winograd_workspace(const ConvolutionSizeRecord& size) {
    return parts(size, nullptr).total_size();
}

ConvolutionAlgorithm::Kernel winograd_kernel(const ConvolutionSizeRecord&) {
    return &convolve;
}

}  // namespace kern::arm_common
