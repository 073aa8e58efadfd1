#include "graph/tensor/storage.h"

#include <cstring>
#include <utility>

#include "kernels/check.h"

namespace orb {
namespace {

// The last owner returns memory to the node that it came from, wherever its storages moved.
template <typename Trait>
struct ReturnMemory {
    CompNode node;
    void operator()(uint8_t* ptr) const { Trait::free(node, ptr); }
};

}  // namespace

template <typename Trait>
TensorStorage<Trait>::TensorStorage(const TensorStorage& other) {
    *this = other;
}

template <typename Trait>
TensorStorage<Trait>& TensorStorage<Trait>::operator=(const TensorStorage& other) {
    if (other.m_size > other.m_capacity)
        other.allocate();
    m_allow_realloc = other.m_allow_realloc;
    m_comp_node = other.m_comp_node;
    m_size = other.m_size;
    m_capacity = other.m_capacity;
    m_offset = other.m_offset;
    m_data = other.m_data;
    m_ref = other.m_ref;
    return *this;
}

template <typename Trait>
TensorStorage<Trait>::TensorStorage(TensorStorage&& other) noexcept {
    swap(other);
}

template <typename Trait>
TensorStorage<Trait>& TensorStorage<Trait>::operator=(TensorStorage&& other) noexcept {
    TensorStorage taken(std::move(other));
    swap(taken);
    return *this;
}

template <typename Trait>
void TensorStorage<Trait>::swap(TensorStorage& other) noexcept {
    std::swap(m_allow_realloc, other.m_allow_realloc);
    std::swap(m_comp_node, other.m_comp_node);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
    std::swap(m_offset, other.m_offset);
    std::swap(m_data, other.m_data);
    m_ref.swap(other.m_ref);
}

template <typename Trait>
TensorStorage<Trait>& TensorStorage<Trait>::comp_node(CompNode node, bool allow_mem_node_change) {
    KERN_CHECK(node.valid());
    if (m_comp_node.valid() && node.memory_space() != m_comp_node.memory_space()) {
        KERN_CHECK(allow_mem_node_change);
        *this = TensorStorage();
    }
    m_comp_node = node;
    return *this;
}

template <typename Trait>
TensorStorage<Trait>& TensorStorage<Trait>::ensure_size(size_t bytes) {
    if (bytes > m_size)
        KERN_CHECK(m_allow_realloc && m_offset == 0 && m_comp_node.valid());
    m_size = bytes;
    return *this;
}

template <typename Trait>
uint8_t* TensorStorage<Trait>::ptr() const {
    KERN_CHECK(m_comp_node.valid());
    if (m_size > m_capacity)
        allocate();
    return m_data + m_offset;
}

template <typename Trait>
void TensorStorage<Trait>::allocate() const {
    KERN_CHECK(m_allow_realloc && m_offset == 0 && m_comp_node.valid());
    // The old memory goes first, so that both never exist together.
    m_capacity = 0;
    m_data = nullptr;
    m_ref.reset();
    auto* data = static_cast<uint8_t*>(Trait::alloc(m_comp_node, m_size));
    KERN_CHECK(data);
    m_ref = std::shared_ptr<uint8_t>(data, ReturnMemory<Trait>{m_comp_node});
    m_data = data;
    m_capacity = m_size;
}

template <typename Trait>
TensorStorage<Trait> TensorStorage<Trait>::sub(size_t offset) const {
    KERN_CHECK(offset <= static_cast<size_t>(PTRDIFF_MAX));
    return shifted(static_cast<ptrdiff_t>(offset));
}

template <typename Trait>
TensorStorage<Trait> TensorStorage<Trait>::shifted(ptrdiff_t distance) const {
    ptr();
    TensorStorage view(m_comp_node);
    view.m_allow_realloc = false;
    // Unsigned sums wrap, which makes going back a plain addition.
    const auto step = static_cast<size_t>(distance);
    if (step == m_size)
        return view;
    if (distance < 0)
        KERN_CHECK(size_t{0} - step <= m_offset);
    else
        KERN_CHECK(step < m_size);
    view.m_size = m_size - step;
    view.m_capacity = m_capacity - step;
    view.m_offset = m_offset + step;
    view.m_data = m_data;
    view.m_ref = m_ref;
    return view;
}

template <typename Trait>
bool TensorStorage<Trait>::has_owners(long count) const {
    std::shared_ptr<uint8_t> probe = m_ref;
    if (probe.use_count() != count + 1)
        return false;
    // The count alone is read relaxed, which orders nothing. Giving up an owner changes the same
    // counter, and acquires what those who have left it released.
    probe.reset();
    return true;
}

template <typename Trait>
void TensorStorage<Trait>::reset(CompNode node, size_t size, std::shared_ptr<uint8_t> memory) {
    KERN_CHECK(m_allow_realloc && node.valid());
    m_comp_node = node;
    m_size = size;
    m_capacity = size;
    m_offset = 0;
    m_data = memory.get();
    m_ref = std::move(memory);
}

template <typename Trait>
template <typename T>
std::enable_if_t<std::is_same_v<T, HostTensorStorageTrait>, DeviceTensorStorage>
TensorStorage<Trait>::proxy_to_default_cpu() const {
    const CompNode default_node = CompNode::default_cpu();
    KERN_CHECK(m_comp_node.valid() && m_comp_node.memory_space() == default_node.memory_space());
    ptr();
    DeviceTensorStorage proxy(default_node);
    proxy.m_size = m_size;
    proxy.m_capacity = m_capacity;
    proxy.m_offset = m_offset;
    proxy.m_data = m_data;
    proxy.m_ref = m_ref;
    return proxy;
}

template <typename Trait>
template <typename SourceTrait>
void TensorStorage<Trait>::copy_from(const TensorStorage<SourceTrait>& source, size_t bytes) {
    constexpr bool to_host = std::is_same_v<Trait, HostTensorStorageTrait>;
    constexpr bool from_host = std::is_same_v<SourceTrait, HostTensorStorageTrait>;
    KERN_CHECK(bytes <= m_size && bytes <= source.size());
    if (bytes == 0)
        return;
    uint8_t* to = ptr();
    const uint8_t* from = source.ptr();
    const CompNode source_node = source.comp_node();
    if constexpr (to_host && from_host) {
        std::memcpy(to, from, bytes);
    } else if constexpr (from_host) {
        m_comp_node.copy_to_device(to, from, bytes);
    } else if constexpr (to_host) {
        const bool foreign = m_comp_node != source_node && source_node != CompNode::default_cpu();
        // Nothing on this node waits for the other one, so the copy must be complete on return.
        KERN_CHECK(!foreign || m_comp_node == CompNode::default_cpu());
        source_node.copy_to_host(to, from, bytes);
        if (foreign)
            source_node.sync();
    } else {
        source_node.copy_to_peer(m_comp_node, to, from, bytes);
    }
}

template class TensorStorage<HostTensorStorageTrait>;
template class TensorStorage<DeviceTensorStorageTrait>;

template DeviceTensorStorage HostTensorStorage::proxy_to_default_cpu<>() const;
template void HostTensorStorage::copy_from(const HostTensorStorage&, size_t);
template void HostTensorStorage::copy_from(const DeviceTensorStorage&, size_t);
template void DeviceTensorStorage::copy_from(const HostTensorStorage&, size_t);
template void DeviceTensorStorage::copy_from(const DeviceTensorStorage&, size_t);

}  // namespace orb
