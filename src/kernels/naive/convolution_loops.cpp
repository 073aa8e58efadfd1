#include "kernels/naive/convolution_loops.h"

#include "kernels/check.h"
#include "kernels/naive/product_policies.h"
#include "kernels/operators/convolution_patches.h"

namespace kern::naive {
namespace {

// `function` with how products of these types are summed; `a` and `b` are the operands' types.
template <typename Function>
void with_product(DType a, DType b, DType sum, Function function) {
    switch (a.enum_value()) {
        case DTypeEnum::FLOAT32:
            return function(FloatProduct<float, float>());
        case DTypeEnum::FLOAT16:
            return function(FloatProduct<Float16, float>());
        case DTypeEnum::QUANTIZED8_ASYMM:
            return function(Asymm8Product(a, b));
        case DTypeEnum::INT8:
        case DTypeEnum::QUANTIZED_S8:
            return sum == DType::Int16() ? function(Int8Product<int16_t>())
                                         : function(Int8Product<int32_t>());
        default:
            KERN_FAIL();
    }
}

// The taps along one axis that meet the image where an output looks at it, in their order in
// memory: tap t meets element `start + t * step`.
struct TapRange {
    size_t begin, end;
    ptrdiff_t start, step;

    TapRange(const PatchAxis& axis, size_t output)
        : begin(0), start(axis.element(output, 0)), step(axis.tap_step) {
        while (begin < axis.taps && !axis.is_inside(axis.element(output, begin)))
            ++begin;
        end = begin;
        while (end < axis.taps && axis.is_inside(axis.element(output, end)))
            ++end;
    }
    size_t element(size_t tap) const {
        return static_cast<size_t>(start + static_cast<ptrdiff_t>(tap) * step);
    }
};

// What one output sees.
struct Window {
    TapRange planes, rows, columns;

    Window(const ConvolutionAxes& axes, size_t z, size_t y, size_t x)
        : planes(axes.planes, z), rows(axes.rows, y), columns(axes.columns, x) {}
};

// One output: `image` is the first channel, `filter` the first tap of the output's channel.
template <typename Policy>
typename Policy::Out convolve_at(const Policy& policy, const ConvolutionSizeRecord& size,
                                 const typename Policy::In* image,
                                 const typename Policy::In* filter, const Window& window) {
    const auto& [planes, rows, columns] = window;
    typename Policy::Sum sum{};
    for (size_t channel = 0; channel < size.icpg; ++channel) {
        for (size_t z = planes.begin; z < planes.end; ++z) {
            for (size_t y = rows.begin; y < rows.end; ++y) {
                const auto* row = image + (planes.element(z) * size.ih + rows.element(y)) * size.iw;
                const auto* taps = filter + (z * size.fh + y) * size.fw;
                for (size_t x = columns.begin; x < columns.end; ++x)
                    sum = policy.add_product(sum, row[columns.element(x)], taps[x]);
            }
        }
        image += size.src_plane();
        filter += size.taps();
    }
    return Policy::finish(sum);
}

// `function(position, z, y, x)` for each position of a box in its order in memory.
template <typename Function>
void for_each_position(size_t planes, size_t rows, size_t columns, Function function) {
    size_t position = 0;
    for (size_t z = 0; z < planes; ++z) {
        for (size_t y = 0; y < rows; ++y) {
            for (size_t x = 0; x < columns; ++x)
                function(position++, z, y, x);
        }
    }
}

// The output whose tap meets the element; one that is not below `outputs` where there is none.
size_t output_meeting(const PatchAxis& axis, size_t element, size_t tap) {
    const ptrdiff_t way = static_cast<ptrdiff_t>(element) - axis.element(0, tap);
    return way % axis.stride == 0 ? static_cast<size_t>(way / axis.stride) : SIZE_MAX;
}

// One element of a channel of images; `dst` is the first channel of the outputs, `filter` the first
// tap that meets the channel.
template <typename Policy>
typename Policy::Out gather_at(const Policy& policy, const ConvolutionSizeRecord& size,
                               const ConvolutionAxes& axes, const typename Policy::In* dst,
                               const typename Policy::In* filter, size_t z, size_t y, size_t x) {
    typename Policy::Sum sum{};
    for (size_t channel = 0; channel < size.ocpg; ++channel) {
        for_each_position(
            size.fd, size.fh, size.fw, [&](size_t tap, size_t tap_z, size_t tap_y, size_t tap_x) {
                const size_t plane = output_meeting(axes.planes, z, tap_z);
                const size_t row = output_meeting(axes.rows, y, tap_y);
                const size_t column = output_meeting(axes.columns, x, tap_x);
                if (plane < size.od && row < size.oh && column < size.ow)
                    sum = policy.add_product(sum, filter[tap],
                                             dst[(plane * size.oh + row) * size.ow + column]);
            });
        dst += size.dst_plane();
        filter += size.depth();
    }
    return Policy::finish(sum);
}

// One tap; `src` and `dst` are the channels that it goes between, in the first image.
template <typename Policy>
typename Policy::Out correlate_at(const Policy& policy, const ConvolutionSizeRecord& size,
                                  const ConvolutionAxes& axes, const typename Policy::In* src,
                                  const typename Policy::In* dst, size_t tap_z, size_t tap_y,
                                  size_t tap_x) {
    typename Policy::Sum sum{};
    for (size_t image = 0; image < size.n; ++image) {
        for_each_position(
            size.od, size.oh, size.ow, [&](size_t output, size_t z, size_t y, size_t x) {
                const ptrdiff_t plane = axes.planes.element(z, tap_z);
                const ptrdiff_t row = axes.rows.element(y, tap_y);
                const ptrdiff_t column = axes.columns.element(x, tap_x);
                if (!axes.planes.is_inside(plane) || !axes.rows.is_inside(row) ||
                    !axes.columns.is_inside(column))
                    return;
                const size_t line = static_cast<size_t>(plane) * size.ih + static_cast<size_t>(row);
                sum = policy.add_product(sum, src[line * size.iw + static_cast<size_t>(column)],
                                         dst[output]);
            });
        src += size.src_image_step;
        dst += size.dst_image_step;
    }
    return Policy::finish(sum);
}

}  // namespace

void convolve(const ConvolutionRunRecord& run) {
    with_product(run.src_type, run.filter_type, run.dst_type, [&](const auto& policy) {
        using Policy = std::decay_t<decltype(policy)>;
        const auto* src = static_cast<const typename Policy::In*>(run.src);
        const auto* filter = static_cast<const typename Policy::In*>(run.filter);
        auto* dst = static_cast<typename Policy::Out*>(run.dst);
        const ConvolutionAxes axes(run);
        for_each_position(run.od, run.oh, run.ow, [&](size_t output, size_t z, size_t y, size_t x) {
            const Window window(axes, z, y, x);
            for (size_t image = 0; image < run.n; ++image) {
                for (size_t channel = 0; channel < run.ocpg; ++channel)
                    dst[image * run.dst_image_step + channel * run.dst_plane() + output] =
                        convolve_at(policy, run, src + image * run.src_image_step,
                                    filter + channel * run.depth(), window);
            }
        });
    });
}

void convolve_backward_data(const ConvolutionRunRecord& run) {
    with_product(run.filter_type, run.dst_type, run.src_type, [&](const auto& policy) {
        using Policy = std::decay_t<decltype(policy)>;
        auto* src = static_cast<typename Policy::Out*>(run.src);
        const auto* filter = static_cast<const typename Policy::In*>(run.filter);
        const auto* dst = static_cast<const typename Policy::In*>(run.dst);
        const ConvolutionAxes axes(run);
        for (size_t image = 0; image < run.n; ++image) {
            for (size_t channel = 0; channel < run.icpg; ++channel) {
                auto* plane = src + image * run.src_image_step + channel * run.src_plane();
                for_each_position(
                    run.id, run.ih, run.iw, [&](size_t element, size_t z, size_t y, size_t x) {
                        plane[element] =
                            gather_at(policy, run, axes, dst + image * run.dst_image_step,
                                      filter + channel * run.taps(), z, y, x);
                    });
            }
        }
    });
}

void convolve_backward_filter(const ConvolutionRunRecord& run) {
    with_product(run.src_type, run.dst_type, run.filter_type, [&](const auto& policy) {
        using Policy = std::decay_t<decltype(policy)>;
        const auto* src = static_cast<const typename Policy::In*>(run.src);
        auto* filter = static_cast<typename Policy::Out*>(run.filter);
        const auto* dst = static_cast<const typename Policy::In*>(run.dst);
        const ConvolutionAxes axes(run);
        for (size_t out = 0; out < run.ocpg; ++out) {
            for (size_t in = 0; in < run.icpg; ++in, filter += run.taps())
                for_each_position(
                    run.fd, run.fh, run.fw, [&](size_t tap, size_t z, size_t y, size_t x) {
                        filter[tap] = correlate_at(policy, run, axes, src + in * run.src_plane(),
                                                   dst + out * run.dst_plane(), z, y, x);
                    });
        }
    });
}

}  // namespace kern::naive
