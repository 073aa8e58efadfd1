#include "kernels/arm_common/direct_frame.h"

#include <algorithm>

#include "kernels/checked_math.h"
#include "kernels/simd/vector_types.h"
#include "kernels/workspace.h"

namespace kern::arm_common {
namespace {

bool is_padded(const ConvolutionSizeRecord& size) {
    return size.pad_h != 0 || size.pad_w != 0;
}
size_t padded_width(const ConvolutionSizeRecord& size) {
    return checked_add(size.iw, checked_mul(size_t{2}, size.pad_w));
}
size_t padded_plane(const ConvolutionSizeRecord& size) {
    const size_t height = checked_add(size.ih, checked_mul(size_t{2}, size.pad_h));
    return checked_mul(height, padded_width(size));
}

// The copied planes, and for turned filters a copy of them.
WorkspaceBundle parts(const ConvolutionSizeRecord& size, void* base) {
    const size_t element = size.src_type.element_bytes();
    const size_t overrun = element == 1 ? OVERRUN<int8_t> : OVERRUN<float>;
    const size_t planes = is_padded(size) ? size.icpg : 1;
    const size_t source = checked_add(checked_mul(planes, padded_plane(size)), overrun);
    const bool is_turned = size.mode == ConvolutionMode::CONVOLUTION;
    const size_t filter = is_turned ? checked_mul(size.ocpg, size.depth()) : 0;
    return {base, {checked_mul(source, element), checked_mul(filter, element)}};
}

// In whole vectors: what is too much is overwritten by what follows, or lies in the overrun. Rows
// and their padding are short; the compiler would make calls of memset and memcpy of plain loops,
// which cost as much as a row.
template <typename Element>
void fill_zeros(Element* target, size_t count) {
    constexpr size_t LANES = simd::LANES<Element>;
    for (const Element* end = target + count; target < end;)
        simd::store_next(target, simd::Vector<Element>{}, LANES);
}

template <typename Element>
void copy_row(const Element* source, size_t count, Element* target) {
    constexpr size_t LANES = simd::LANES<Element>;
    if (count < LANES) {
        std::copy_n(source, count, target);
        return;
    }
    const size_t last = count - LANES;
    const Element* source_end = source + last;
    Element* target_end = target + last;
    while (source < source_end)
        simd::store_next(target, simd::load_next(source), LANES);
    simd::store(target_end, simd::load(source_end));
}

template <typename Element>
void copy_padded(const ConvolutionRunRecord& run, const Element* source, Element* target) {
    const size_t width = padded_width(run), border = run.pad_h * width + run.pad_w;
    const size_t length = run.iw, both_pads = 2 * run.pad_w;
    fill_zeros(target, border);
    target += border;
    copy_row(source, length, target);
    for (size_t rows = run.ih - 1; rows != 0; --rows) {
        fill_zeros(target + length, both_pads);  // of this row and of the next
        source += length;
        target += width;
        copy_row(source, length, target);
    }
    fill_zeros(target + length, border);
}

// The filters with the taps of each plane in the opposite order; as they are where none is turned.
template <typename Element>
const Element* taps_in_place(const ConvolutionRunRecord& run) {
    const auto* filter = static_cast<const Element*>(run.filter);
    if (run.mode == ConvolutionMode::CROSS_CORRELATION)
        return filter;
    auto* target = static_cast<Element*>(parts(run, run.workspace.raw_ptr).get(1));
    for (size_t plane = 0; plane < run.ocpg * run.icpg; ++plane)
        std::reverse_copy(filter + plane * run.taps(), filter + (plane + 1) * run.taps(),
                          target + plane * run.taps());
    return target;
}

}  // namespace

size_t direct_workspace(const ConvolutionSizeRecord& size) {
    return parts(size, nullptr).total_size();
}

template <typename Element>
SourcePlanes<Element> source_planes(const ConvolutionRunRecord& run, size_t image) {
    const auto* source = static_cast<const Element*>(run.src) + image * run.src_image_step;
    auto* copy = static_cast<Element*>(parts(run, run.workspace.raw_ptr).get(0));
    if (!is_padded(run)) {
        std::copy_n(source + (run.icpg - 1) * run.src_plane(), run.src_plane(), copy);
        return {source, run.src_plane(), run.iw, run.icpg, copy};
    }
    const size_t plane = padded_plane(run);
    for (size_t channel = 0; channel < run.icpg; ++channel)
        copy_padded(run, source + channel * run.src_plane(), copy + channel * plane);
    return {copy, plane, padded_width(run), run.icpg, nullptr};
}

template <typename In, typename Out>
void convolve_directly(const ConvolutionRunRecord& run, PlaneKernel<In, Out> kernel) {
    PlaneConvolution<In, Out> call{};
    call.fh = run.fh;
    call.fw = run.fw;
    call.stride = run.stride_w;
    call.is_turned = run.mode == ConvolutionMode::CONVOLUTION;
    call.oh = run.oh;
    call.ow = run.ow;
    const In* taps = taps_in_place<In>(run);
    for (size_t image = 0; image < run.n; ++image) {
        const auto planes = source_planes<In>(run, image);
        call.source_width = planes.width;
        call.taps = taps;
        call.target = static_cast<Out*>(run.dst) + image * run.dst_image_step;
        for (size_t oc = 0; oc < run.ocpg; ++oc, call.target += run.dst_plane()) {
            for (size_t ic = 0; ic < run.icpg; ++ic, call.taps += run.taps()) {
                call.source = planes.at(ic);
                call.is_first = ic == 0;
                kernel(call);
            }
        }
    }
}

template SourcePlanes<int8_t> source_planes<int8_t>(const ConvolutionRunRecord&, size_t);
template void convolve_directly(const ConvolutionRunRecord&, PlaneKernel<float, float>);
template void convolve_directly(const ConvolutionRunRecord&, PlaneKernel<int8_t, int16_t>);

}  // namespace kern::arm_common
