#include "kernels/x86/avx2/ymm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/plane_convolution.inc"

namespace kern::x86 {

void avx2::convolve_plane(const PlaneConvolution& plane) {
    convolve<Ymm>(plane);
}

}  // namespace kern::x86
