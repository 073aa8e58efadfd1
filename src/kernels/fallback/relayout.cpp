#include "kernels/fallback/relayout.h"

#include <cstring>

#include "kernels/fallback/copy_walk.h"
#include "kernels/types/dtype_switch.h"

namespace kern::fallback {
namespace {

template <size_t ELEMENT_BYTES>
void copy_strided(const uint8_t* src, uint8_t* dst, const CopyAxis& axis) {
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    for (size_t i = 0; i < axis.length; ++i) {
        const auto index = static_cast<ptrdiff_t>(i);
        std::memcpy(dst + index * axis.dst_stride * BYTES, src + index * axis.src_stride * BYTES,
                    ELEMENT_BYTES);
    }
}

template <size_t ELEMENT_BYTES>
void copy(const CopyWalk& walk, const uint8_t* src, uint8_t* dst) {
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    const CopyAxis& inner = walk[0];
    const bool contiguous = inner.src_stride == 1 && inner.dst_stride == 1;
    walk.for_each_from(1, [&](ptrdiff_t src_offset, ptrdiff_t dst_offset) {
        const uint8_t* from = src + src_offset * BYTES;
        uint8_t* to = dst + dst_offset * BYTES;
        if (contiguous)
            std::memcpy(to, from, inner.length * ELEMENT_BYTES);
        else
            copy_strided<ELEMENT_BYTES>(from, to, inner);
    });
}

}  // namespace

void RelayoutImpl::exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) {
    check_exec(src.layout, dst.layout);
    const auto kernel =
        with_element_bytes(dst.layout.dtype, [](auto bytes) { return &copy<bytes()>; });
    if (dst.layout.is_empty())
        return;
    const auto walk = CopyWalk::plan(src.layout, dst.layout);
    if (!walk) {
        naive::RelayoutImpl::exec(src, dst, src_handle);
        return;
    }
    dispatch([kernel, walk = *walk, from = src.ptr<const uint8_t>(), to = dst.ptr<uint8_t>()] {
        kernel(walk, from, to);
    });
}

}  // namespace kern::fallback
