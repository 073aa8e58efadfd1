// What direct convolutions have in common: image by image and output channel by output channel,
// each input channel's plane is convolved and added to the output's plane, so that an output's
// products are added in the order of the filter's memory. Pure functions; any thread.
//
// Vectors may reach a little behind the last row of an image. So an image with padding is copied
// with it, and of one without padding the last plane is.
#pragma once

#include <algorithm>

#include "kernels/operators/convolution.h"

namespace kern::arm_common {

// Elements behind the last plane of an image that may be read.
template <typename Element>
constexpr size_t OVERRUN = 4;
template <>
inline constexpr size_t OVERRUN<int8_t> = 16;

// One input plane, padded, into one output plane.
template <typename In, typename Out>
struct PlaneConvolution {
    const In* source;
    size_t source_width;
    const In* taps;  // each meets the element at its own place
    size_t fh, fw;
    size_t stride;
    bool is_turned;  // the taps are added from the last to the first
    Out* target;
    size_t oh, ow;
    bool is_first;  // the sums begin at zero, not at what the target holds
};

template <typename In, typename Out>
using PlaneKernel = void (*)(const PlaneConvolution<In, Out>&);

size_t direct_workspace(const ConvolutionSizeRecord& size);

// The planes of an image as direct kernels read them.
template <typename Element>
struct SourcePlanes {
    const Element* first;
    size_t plane, width, count;
    Element* copy;  // of the last plane; null where nothing lies too near to the image's end

    // Valid until the next plane is asked for: planes smaller than an overrun are copied one by
    // one.
    const Element* at(size_t channel) const {
        const Element* source = first + channel * plane;
        if (copy == nullptr || (channel + 1 < count && plane >= OVERRUN<Element>))
            return source;
        if (plane < OVERRUN<Element>)
            std::copy_n(source, plane, copy);
        return copy;
    }
};

// With copies in the call's workspace where they are needed.
template <typename Element>
SourcePlanes<Element> source_planes(const ConvolutionRunRecord& run, size_t image);

// The whole call; a record of one group.
template <typename In, typename Out>
void convolve_directly(const ConvolutionRunRecord& run, PlaneKernel<In, Out> kernel);

}  // namespace kern::arm_common
