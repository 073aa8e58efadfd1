#include "kernels/naive/mask_conv.h"

#include <cstring>

#include "kernels/operators/convolution_patches.h"
#include "kernels/types/arithmetic.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

template <typename T>
bool is_live(T value) {
    return !(widen(value) == 0);
}

template <typename Mask>
void clear(const RawTensor& mask, const RawTensor& dst) {
    const auto* live = mask.ptr<const Mask>();
    const size_t plane = mask.layout.element_count();
    const size_t bytes = dst.layout.dtype.element_bytes();
    for (size_t i = 0; i < dst.layout.element_count(); ++i) {
        if (!is_live(live[i % plane]))
            std::memset(dst.ptr<uint8_t>() + i * bytes, 0, bytes);
    }
}

template <typename Mask>
bool meets_live(const ConvolutionAxes& axes, size_t y, size_t x, const Mask* src) {
    for (size_t tap_y = 0; tap_y < axes.rows.taps; ++tap_y) {
        const ptrdiff_t row = axes.rows.element(y, tap_y);
        if (!axes.rows.is_inside(row))
            continue;
        const Mask* line = src + static_cast<size_t>(row) * axes.columns.length;
        for (size_t tap_x = 0; tap_x < axes.columns.taps; ++tap_x) {
            const ptrdiff_t column = axes.columns.element(x, tap_x);
            if (axes.columns.is_inside(column) && is_live(line[column]))
                return true;
        }
    }
    return false;
}

template <typename Mask>
void propagate(const ConvolutionSizeRecord& size, const void* src, void* dst) {
    const ConvolutionAxes axes(size);
    auto* live = static_cast<Mask*>(dst);
    for (size_t y = 0; y < size.oh; ++y) {
        for (size_t x = 0; x < size.ow; ++x)
            *live++ = narrow<Mask>(meets_live(axes, y, x, static_cast<const Mask*>(src)) ? 1 : 0);
    }
}

}  // namespace

MaskConvForwardImpl::MaskConvForwardImpl(KernelHandle* handle)
    : MaskConvForward(handle), m_convolution(handle->create_operator<ConvolutionForward>()) {}

ConvolutionForward& MaskConvForwardImpl::convolution() {
    m_convolution->param() = m_param;
    return *m_convolution;
}

size_t MaskConvForwardImpl::workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                                               const TensorLayout&, const TensorLayout& dst) {
    return convolution().workspace_in_bytes(src, filter, dst);
}

void MaskConvForwardImpl::exec(const RawTensor& src, const RawTensor& filter, const RawTensor& mask,
                               const RawTensor& dst, const Workspace& workspace) {
    check_mask(mask.layout, dst.layout);
    const auto kernel = with_number_type(mask.layout.dtype.enum_value(), [](auto tag) {
        return &clear<typename decltype(tag)::Type>;
    });
    KERN_CHECK(kernel);
    convolution().exec(src, filter, dst, workspace);
    dispatch([kernel, mask, dst] { kernel(mask, dst); });
}

void MaskPropagateImpl::exec(const RawTensor& src, const RawTensor& dst, const Workspace&) {
    const ConvolutionSizeRecord size = check_exec(src.layout, dst.layout);
    const auto kernel = with_number_type(src.layout.dtype.enum_value(), [](auto tag) {
        return &propagate<typename decltype(tag)::Type>;
    });
    KERN_CHECK(kernel);
    dispatch([kernel, size, src, dst] { kernel(size, src.raw_ptr, dst.raw_ptr); });
}

}  // namespace kern::naive
