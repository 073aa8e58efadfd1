#include "kernels/x86/avx2/ymm.h"
#include "kernels/x86/avx512/zmm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/plane_convolution.inc"

namespace kern::x86 {

// Narrow vectors for what they hold.
void avx512::convolve_plane(const PlaneConvolution& plane) {
    if (plane.ow <= Ymm::LANES)
        convolve<Ymm>(plane);
    else
        convolve<Zmm>(plane);
}

}  // namespace kern::x86
