#include "graph/tensor/tensor.h"

#include <cstring>
#include <functional>

#include "graph/node/comp_node_env.h"
#include "kernels/check.h"

namespace orb {

template <typename Trait>
TensorND<Trait>::TensorND(CompNode node, const kern::TensorShape& shape, kern::DType dtype,
                          const kern::TensorFormat* format)
    : m_storage(node), m_layout(dtype, format) {
    resize(shape);
}

template <typename Trait>
TensorND<Trait>::TensorND(CompNode node, const kern::TensorLayout& layout)
    : TensorND(node, layout, layout.dtype, layout.format) {
    KERN_CHECK(layout.is_dense());
}

template <typename Trait>
kern::RawTensor TensorND<Trait>::as_raw() const {
    return kern::RawTensor(raw_ptr(), m_layout);
}

template <typename Trait>
TensorND<Trait>& TensorND<Trait>::resize(const kern::TensorShape& shape) {
    KERN_CHECK(m_layout.dtype.valid());
    m_storage.ensure_size(m_layout.dtype.byte_size(m_layout.fill_strides(shape)));
    return *this;
}

template <typename Trait>
TensorND<Trait>& TensorND<Trait>::reset(const Storage& storage, const kern::TensorLayout& layout) {
    if (layout.ndim != 0) {
        const kern::Span span = layout.span();
        KERN_CHECK(storage.comp_node().valid());
        KERN_CHECK(static_cast<ptrdiff_t>(storage.offset()) + span.low_byte >= 0);
        KERN_CHECK(span.high_byte <= storage.size());
    }
    m_storage = storage;
    m_layout = layout;
    return *this;
}

template <typename Trait>
TensorND<Trait> TensorND<Trait>::sub(const SubTensorRegion& region) const {
    KERN_CHECK(region.layout().dtype == m_layout.dtype);
    KERN_CHECK(region.layout().format == m_layout.format);
    TensorND part;
    part.reset(m_storage.shifted(region.offset_byte()), region.layout());
    return part;
}

template <typename Trait>
TensorND<Trait> TensorND<Trait>::operator[](std::initializer_list<TensorSlice> slices) const {
    SubTensorRegion region(m_layout, 0);
    int axis = 0;
    for (const TensorSlice& slice : slices)
        region = region + slice.apply(region.layout(), axis++);
    return sub(region);
}

template <typename Trait>
TensorND<Trait>& TensorND<Trait>::dtype(kern::DType dtype) {
    if (dtype != m_layout.dtype) {
        m_layout.dtype = dtype;
        m_layout.ndim = 0;
    }
    return *this;
}

template <typename Trait>
TensorND<Trait>& TensorND<Trait>::comp_node(CompNode node, bool allow_mem_node_change) {
    m_storage.comp_node(node, allow_mem_node_change);
    if (m_storage.size() == 0)
        m_layout.ndim = 0;
    return *this;
}

template <typename Trait>
TensorND<Trait>& TensorND<Trait>::storage(const Storage& storage) {
    const bool same_memory =
        !m_storage.empty() && !storage.empty() && m_storage.ptr() == storage.ptr();
    if (!same_memory) {
        m_storage = storage;
        m_layout.ndim = 0;
    }
    return *this;
}

template <typename Trait>
template <typename T>
std::enable_if_t<std::is_same_v<T, DeviceTensorStorageTrait>> TensorND<Trait>::memset_zero() const {
    CompNodeEnv& env = comp_node().env();
    KERN_CHECK(env.device_type() == CompNode::DeviceType::CPU);
    const kern::Span span = m_layout.span();
    if (span.high_byte == 0)
        return;
    uint8_t* begin = raw_ptr() + span.low_byte;
    const size_t bytes = span.high_byte - static_cast<size_t>(span.low_byte);
    env.dispatcher().submit([begin, bytes] { std::memset(begin, 0, bytes); });
}

template class TensorND<HostTensorStorageTrait>;
template class TensorND<DeviceTensorStorageTrait>;
template void DeviceTensorND::memset_zero<>() const;

}  // namespace orb
