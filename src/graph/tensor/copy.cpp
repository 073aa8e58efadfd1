// Copies between tensors: one plain copy where both sides are one contiguous run, else the relayout
// kernel of the node, and temporaries where the forms differ as well.
#include <algorithm>
#include <string>

#include "graph/node/comp_node_env.h"
#include "graph/tensor/tensor.h"
#include "kernels/check.h"
#include "kernels/operators/relayout.h"

namespace orb {
namespace {

void check_same_dtype(kern::DType dest, kern::DType source) {
    KERN_CHECK_TEXT(dest == source, std::string("dtype mismatch: ") + dest.name_or_invalid() +
                                        " and " + source.name_or_invalid());
}

void check_apart(const uint8_t* dest, const kern::Span& dest_span, const uint8_t* source,
                 const kern::Span& source_span) {
    // As numbers: the pointers may be of different objects.
    const auto to = reinterpret_cast<uintptr_t>(dest);
    const auto from = reinterpret_cast<uintptr_t>(source);
    const uintptr_t to_begin = to + static_cast<uintptr_t>(dest_span.low_byte);
    const uintptr_t from_begin = from + static_cast<uintptr_t>(source_span.low_byte);
    KERN_CHECK(to + dest_span.high_byte <= from_begin || from + source_span.high_byte <= to_begin);
}

// Bytes of one plain copy between two contiguous layouts.
size_t contiguous_bytes(const kern::TensorLayout& dest, const kern::Span& dest_span,
                        const kern::TensorLayout& source, const kern::Span& source_span) {
    KERN_CHECK(dest_span.low_byte == 0 && source_span.low_byte == 0);
    // The last row of an image may be padded.
    if (!dest.format->is_default() || !source.format->is_default())
        return std::min(dest_span.high_byte, source_span.high_byte);
    KERN_CHECK(dest_span.high_byte == source_span.high_byte);
    return source_span.high_byte;
}

void relayout(CompNode node, const kern::RawTensor& dest, CompNode source_node,
              const kern::RawTensor& source) {
    kern::KernelHandle* source_handle =
        source_node == node ? nullptr : &source_node.env().kernel_handle();
    node.env().kernel_handle().relayout_operator()->exec(source, dest, source_handle);
}

void copy_scattered(HostTensorND& dest, const HostTensorND& source) {
    const CompNode node = CompNode::default_cpu();
    relayout(node, dest.as_raw(), node, source.as_raw());
}

void copy_scattered(DeviceTensorND& dest, const DeviceTensorND& source) {
    relayout(dest.comp_node(), dest.as_raw(), source.comp_node(), source.as_raw());
}

void copy_scattered(DeviceTensorND& dest, const HostTensorND& source) {
    if (source.layout().is_dense_raw()) {
        DeviceTensorND on_device(dest.comp_node());
        dest.copy_from_fixlayout(on_device.copy_from(source));
        return;
    }
    HostTensorND dense;
    dest.copy_from_fixlayout(dense.copy_from(source));
    dest.comp_node().sync();  // `dense` must outlive the copy
}

void copy_scattered(HostTensorND& dest, const DeviceTensorND& source) {
    if (source.layout().is_dense_raw()) {
        HostTensorND on_host;
        on_host.copy_from(source);
        source.comp_node().sync();
        dest.copy_from_fixlayout(on_host);
        return;
    }
    DeviceTensorND dense;
    dest.copy_from_fixlayout(dense.copy_from(source));
}

}  // namespace

template <typename Trait>
template <typename SourceTrait>
TensorND<Trait>& TensorND<Trait>::copy_from(const TensorND<SourceTrait>& source) {
    if (!comp_node().valid()) {
        KERN_CHECK(source.comp_node().valid());
        m_storage.comp_node(source.comp_node());
    }
    if (m_layout.dtype.valid())
        check_same_dtype(m_layout.dtype, source.dtype());
    else
        m_layout.dtype = source.dtype();
    m_layout.format = kern::default_format();
    resize(source.shape());
    const size_t bytes = m_storage.size();
    if (bytes == 0)
        return *this;
    if (!source.layout().is_dense_raw())
        return copy_from_fixlayout(source);
    check_apart(raw_ptr(), m_layout.span(), source.raw_ptr(), source.layout().span());
    m_storage.copy_from(source.storage(), bytes);
    return *this;
}

template <typename Trait>
template <typename SourceTrait>
TensorND<Trait>& TensorND<Trait>::copy_from_fixlayout(const TensorND<SourceTrait>& source) {
    check_same_dtype(m_layout.dtype, source.dtype());
    KERN_CHECK(m_layout.same_shape(source.shape()));
    if (source.empty() || m_layout.is_empty())
        return *this;

    // Rows of images may be padded although the image counts as dense.
    const bool both_dense = m_layout.is_dense_raw() && source.layout().is_dense_raw();
    const kern::Span span = m_layout.span();
    const kern::Span source_span = source.layout().span();
    check_apart(raw_ptr(), span, source.raw_ptr(), source_span);
    if (both_dense) {
        const size_t bytes = contiguous_bytes(m_layout, span, source.layout(), source_span);
        m_storage.copy_from(source.storage(), bytes);
    } else {
        // Ends in a relayout, which refuses a destination that overlaps itself.
        copy_scattered(*this, source);
    }
    return *this;
}

#define ORB_COPIES(Dest, Source)                   \
    template Dest& Dest::copy_from(const Source&); \
    template Dest& Dest::copy_from_fixlayout(const Source&)
ORB_COPIES(HostTensorND, HostTensorND);
ORB_COPIES(HostTensorND, DeviceTensorND);
ORB_COPIES(DeviceTensorND, HostTensorND);
ORB_COPIES(DeviceTensorND, DeviceTensorND);
#undef ORB_COPIES

}  // namespace orb
