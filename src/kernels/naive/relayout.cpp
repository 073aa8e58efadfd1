#include "kernels/naive/relayout.h"

#include "kernels/check.h"
#include "kernels/naive/tensor_iterator.h"

namespace kern::naive {
namespace {

// Bits are copied, so an element is any type of the right size.
template <typename Element>
void copy(const RawTensor& src, const RawTensor& dst) {
    TensorIterator<const Element> from(src.ptr<const Element>(), src.layout);
    TensorIterator<Element> to(dst.ptr<Element>(), dst.layout);
    for (size_t left = dst.layout.element_count(); left > 0; --left, ++from, ++to)
        *to = *from;
}

// Stops the process on low-bit types: an element is at least a byte.
auto select_kernel(DType dtype) -> void (*)(const RawTensor&, const RawTensor&) {
    switch (dtype.element_bytes()) {
        case 1:
            return &copy<uint8_t>;
        case 2:
            return &copy<uint16_t>;
        case 4:
            return &copy<uint32_t>;
        default:
            KERN_FAIL();
    }
}

}  // namespace

void RelayoutImpl::exec(const RawTensor& src, const RawTensor& dst, KernelHandle*) {
    check_exec(src.layout, dst.layout);
    const auto kernel = select_kernel(dst.layout.dtype);
    if (!dst.layout.is_empty())
        dispatch([kernel, src, dst] { kernel(src, dst); });
}

}  // namespace kern::naive
