#include "kernels/packing/image_patches.h"

namespace kern {

PatchAxis PatchAxis::of(size_t length, size_t taps, size_t stride, size_t pad, size_t dilate,
                        bool is_turned) {
    const auto step = static_cast<ptrdiff_t>(dilate);
    const ptrdiff_t before = -static_cast<ptrdiff_t>(pad);
    if (is_turned)
        return {length, taps, static_cast<ptrdiff_t>(stride),
                before + static_cast<ptrdiff_t>(taps - 1) * step, -step};
    return {length, taps, static_cast<ptrdiff_t>(stride), before, step};
}

}  // namespace kern
