// A reference-counted span of bytes on one node, allocated when it is first touched. The two forms
// differ only in the allocator of the node that they use. One thread at a time per object; storages
// that share memory may live on different threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "graph/node/comp_node.h"

namespace orb {

// How each form gets and returns memory.
struct HostTensorStorageTrait {
    static void* alloc(CompNode node, size_t size) { return node.alloc_host(size); }
    static void free(CompNode node, void* ptr) { node.free_host(ptr); }
};
struct DeviceTensorStorageTrait {
    static void* alloc(CompNode node, size_t size) { return node.alloc_device(size); }
    static void free(CompNode node, void* ptr) { node.free_device(ptr); }
};

template <typename Trait>
class TensorStorage {
public:
    TensorStorage() = default;
    explicit TensorStorage(CompNode node) : m_comp_node(node) {}
    // Assignment shares real memory: a source that is sized but not allocated is allocated first.
    TensorStorage(const TensorStorage& other);
    TensorStorage& operator=(const TensorStorage& other);
    TensorStorage(TensorStorage&& other) noexcept;
    TensorStorage& operator=(TensorStorage&& other) noexcept;

    CompNode comp_node() const { return m_comp_node; }
    // Moving to a node of another memory space needs permission and drops the memory.
    TensorStorage& comp_node(CompNode node, bool allow_mem_node_change = false);
    size_t size() const { return m_size; }
    size_t capacity() const { return m_capacity; }
    // Distance of the first byte from the start of the allocation.
    size_t offset() const { return m_offset; }
    bool empty() const { return m_size == 0 || !m_comp_node.valid(); }
    bool allow_realloc() const { return m_allow_realloc; }

    // Sets the visible size; growing needs an owning storage. Allocates nothing.
    TensorStorage& ensure_size(size_t bytes);
    // The first byte, allocated now if it was not. Contents are lost when the storage has grown.
    uint8_t* ptr() const;
    // The bytes from `offset` on, sharing this memory; such a view never allocates.
    TensorStorage sub(size_t offset) const;
    // The same from a place `distance` bytes ahead of the first byte, or behind it in the same
    // allocation, as parts of a reversed tensor need it.
    TensorStorage shifted(ptrdiff_t distance) const;
    // Adopts foreign memory of `size` bytes, kept alive by `memory`; not on a view.
    void reset(CompNode node, size_t size, std::shared_ptr<uint8_t> memory);

    // `bytes` from the start of `source`, ordered on the node that performs the copy.
    template <typename SourceTrait>
    void copy_from(const TensorStorage<SourceTrait>& source, size_t bytes);

    // Host form only: the same memory as a device storage of the default CPU node, whose memory
    // space this node must share.
    template <typename T = Trait>
    std::enable_if_t<std::is_same_v<T, HostTensorStorageTrait>,
                     TensorStorage<DeviceTensorStorageTrait>>
    proxy_to_default_cpu() const;

    // Owners of the allocation; orders nothing.
    long use_count() const { return m_ref.use_count(); }
    // Whether the allocation has so many owners; if so, whatever former owners did with it on other
    // threads is done and seen here.
    bool has_owners(long count) const;

private:
    template <typename>
    friend class TensorStorage;

    void allocate() const;
    void swap(TensorStorage& other) noexcept;

    // Allocation is lazy, so reading the pointer of a const storage may fill these.
    bool m_allow_realloc = true;
    CompNode m_comp_node;
    mutable size_t m_size = 0;
    mutable size_t m_capacity = 0;  // usable bytes from the offset on
    size_t m_offset = 0;
    mutable uint8_t* m_data = nullptr;
    mutable std::shared_ptr<uint8_t> m_ref;
};

using HostTensorStorage = TensorStorage<HostTensorStorageTrait>;
using DeviceTensorStorage = TensorStorage<DeviceTensorStorageTrait>;

}  // namespace orb
