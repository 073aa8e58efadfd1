#include "kernels/naive/convolution_forward.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/naive/product_policies.h"

namespace kern::naive {
namespace {

// The taps along one axis that meet the image where an output looks at it, in their order in
// memory: tap t meets element `start + t * step`.
struct TapRange {
    size_t begin, end;
    ptrdiff_t start, step;

    size_t element(size_t tap) const {
        return static_cast<size_t>(start + static_cast<ptrdiff_t>(tap) * step);
    }
};

TapRange taps_inside(size_t output, size_t stride, size_t pad, size_t dilate, size_t taps,
                     size_t length, bool is_turned) {
    TapRange range{0, 0, static_cast<ptrdiff_t>(output * stride) - static_cast<ptrdiff_t>(pad),
                   static_cast<ptrdiff_t>(dilate)};
    if (is_turned) {
        range.start += static_cast<ptrdiff_t>(taps - 1) * range.step;
        range.step = -range.step;
    }
    const auto is_inside = [&](size_t tap) {
        return range.element(tap) < length;  // what is below 0 has wrapped to a large number
    };
    while (range.begin < taps && !is_inside(range.begin))
        ++range.begin;
    range.end = range.begin;
    while (range.end < taps && is_inside(range.end))
        ++range.end;
    return range;
}

// One output: `image` is the first channel, `filter` the first tap of the output's channel.
template <typename Policy>
typename Policy::Out convolve_at(const Policy& policy, const ConvolutionSizeRecord& size,
                                 const typename Policy::In* image,
                                 const typename Policy::In* filter, const TapRange& rows,
                                 const TapRange& columns) {
    typename Policy::Sum sum{};
    for (size_t channel = 0; channel < size.icpg; ++channel) {
        for (size_t y = rows.begin; y < rows.end; ++y) {
            const auto* row = image + rows.element(y) * size.iw;
            for (size_t x = columns.begin; x < columns.end; ++x)
                sum = policy.add_product(sum, row[columns.element(x)], filter[y * size.fw + x]);
        }
        image += size.src_plane();
        filter += size.taps();
    }
    return Policy::finish(sum);
}

template <typename Policy>
void convolve(const ConvolutionRunRecord& run, const Policy& policy) {
    const auto* src = static_cast<const typename Policy::In*>(run.src);
    const auto* filter = static_cast<const typename Policy::In*>(run.filter);
    auto* dst = static_cast<typename Policy::Out*>(run.dst);
    const bool is_turned = run.mode == ConvolutionMode::CONVOLUTION;
    for (size_t y = 0; y < run.oh; ++y) {
        const TapRange rows =
            taps_inside(y, run.stride_h, run.pad_h, run.dilate_h, run.fh, run.ih, is_turned);
        for (size_t x = 0; x < run.ow; ++x) {
            const TapRange columns =
                taps_inside(x, run.stride_w, run.pad_w, run.dilate_w, run.fw, run.iw, is_turned);
            for (size_t image = 0; image < run.n; ++image) {
                for (size_t channel = 0; channel < run.ocpg; ++channel)
                    dst[image * run.dst_image_step + channel * run.dst_plane() + y * run.ow + x] =
                        convolve_at(policy, run, src + image * run.src_image_step,
                                    filter + channel * run.depth(), rows, columns);
            }
        }
    }
}

template <typename Policy>
void run_kernel(const ConvolutionRunRecord& run) {
    convolve(run, Policy());
}
template <>
void run_kernel<Asymm8Product>(const ConvolutionRunRecord& run) {
    convolve(run, Asymm8Product(run.src_type, run.filter_type));
}

const ConvolutionAlgorithm ALGORITHM = {
    "DEFAULT", HandleLevel::NAIVE, [](const ConvolutionSizeRecord&) { return true; },
    [](const ConvolutionSizeRecord&) { return size_t{0}; }, &convolution_kernel};

}  // namespace

ConvolutionAlgorithm::Kernel convolution_kernel(const ConvolutionSizeRecord& size) {
    switch (size.src_type.enum_value()) {
        case DTypeEnum::FLOAT32:
            return &run_kernel<FloatProduct<float, float>>;
        case DTypeEnum::FLOAT16:
            return &run_kernel<FloatProduct<Float16, float>>;
        case DTypeEnum::QUANTIZED8_ASYMM:
            return &run_kernel<Asymm8Product>;
        case DTypeEnum::INT8:
        case DTypeEnum::QUANTIZED_S8:
            return size.dst_type == DType::Int16() ? &run_kernel<Int8Product<int16_t>>
                                                   : &run_kernel<Int8Product<int32_t>>;
        default:
            KERN_FAIL();
    }
}

void ConvolutionForwardImpl::exec(const RawTensor& src, const RawTensor& filter,
                                  const RawTensor& dst, const Workspace& workspace) {
    ConvolutionRunRecord run(check_exec(src, filter, dst, workspace));
    run.src = src.raw_ptr;
    run.filter = filter.raw_ptr;
    run.dst = dst.raw_ptr;
    dispatch([run, kernel = convolution_kernel(run)] {
        for (size_t group = 0; group < run.group; ++group)
            kernel(run.group_at(group));
    });
}

size_t ConvolutionForwardImpl::workspace_in_bytes(const TensorLayout&, const TensorLayout&,
                                                  const TensorLayout&) {
    return 0;
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms(const TensorLayout&,
                                                                      const TensorLayout&,
                                                                      const TensorLayout&) {
    return {&ALGORITHM};
}

const ConvolutionAlgorithm* ConvolutionForwardImpl::heuristic_algorithm(const TensorLayout&,
                                                                        const TensorLayout&,
                                                                        const TensorLayout&,
                                                                        size_t) {
    return &ALGORITHM;
}

}  // namespace kern::naive
