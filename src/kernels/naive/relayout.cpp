#include "kernels/naive/relayout.h"

#include <cstring>

#include "kernels/naive/tensor_iterator.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

template <size_t ELEMENT_BYTES>
void copy(const RawTensor& src, const RawTensor& dst) {
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    StridedOffset from(src.layout);
    StridedOffset to(dst.layout);
    for (size_t left = dst.layout.element_count(); left > 0; --left) {
        std::memcpy(dst.ptr<uint8_t>() + to.get() * BYTES,
                    src.ptr<const uint8_t>() + from.get() * BYTES, ELEMENT_BYTES);
        from.advance();
        to.advance();
    }
}

}  // namespace

void RelayoutImpl::exec(const RawTensor& src, const RawTensor& dst, KernelHandle*) {
    check_exec(src.layout, dst.layout);
    const auto kernel =
        with_element_bytes(dst.layout.dtype, [](auto bytes) { return &copy<bytes()>; });
    if (!dst.layout.is_empty())
        dispatch([kernel, src, dst] { kernel(src, dst); });
}

}  // namespace kern::naive
