#include "kernels/operators/convolution_forward.h"

#include "kernels/check.h"

namespace kern {

ConvolutionSizeRecord ConvolutionForward::check_exec(const RawTensor& src, const RawTensor& filter,
                                                     const RawTensor& dst,
                                                     const Workspace& workspace) {
    const auto size = convolution_size(m_param, src.layout, filter.layout, dst.layout);
    KERN_CHECK(workspace_in_bytes(src.layout, filter.layout, dst.layout) <= workspace.size);
    return size;
}

}  // namespace kern
