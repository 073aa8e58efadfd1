// A layout on a storage. HostTensorND and DeviceTensorND differ in the memory they use; copies
// between them are ordered on the device node. One thread at a time per object.
#pragma once

#include <initializer_list>
#include <type_traits>

#include "graph/tensor/slice.h"
#include "graph/tensor/storage.h"
#include "kernels/types/format.h"
#include "kernels/types/layout.h"

namespace orb {

template <typename Trait>
class TensorND {
public:
    using Storage = TensorStorage<Trait>;

    TensorND() = default;
    explicit TensorND(CompNode node) : m_storage(node) {}
    TensorND(CompNode node, kern::DType dtype) : m_storage(node), m_layout(dtype) {}
    TensorND(CompNode node, const kern::TensorShape& shape, kern::DType dtype,
             const kern::TensorFormat* format = kern::default_format());
    // The layout must be contiguous.
    TensorND(CompNode node, const kern::TensorLayout& layout);

    const kern::TensorLayout& layout() const { return m_layout; }
    const kern::TensorShape& shape() const { return m_layout; }
    size_t shape(size_t axis) const { return m_layout.shape[axis]; }
    kern::DType dtype() const { return m_layout.dtype; }
    const kern::TensorFormat* format() const { return m_layout.format; }
    CompNode comp_node() const { return m_storage.comp_node(); }
    const Storage& storage() const { return m_storage; }
    // No memory, or no shape.
    bool empty() const { return m_storage.empty(); }
    bool shape_valid() const { return m_layout.ndim != 0; }

    uint8_t* raw_ptr() const { return m_storage.ptr(); }
    template <typename T>
    T* ptr() const {
        return static_cast<T*>(static_cast<void*>(raw_ptr()));
    }
    kern::RawTensor as_raw() const;

    // Contiguous strides for the shape; memory follows at first touch. The dtype must be set.
    TensorND& resize(const kern::TensorShape& shape);
    // Adopts storage and layout; the layout's span must lie inside the storage.
    TensorND& reset(const Storage& storage, const kern::TensorLayout& layout);
    TensorND sub(const SubTensorRegion& region) const;
    // The i-th slice applies to axis i.
    TensorND operator[](std::initializer_list<TensorSlice> slices) const;

    // Another dtype clears the shape.
    TensorND& dtype(kern::DType dtype);
    TensorND& comp_node(CompNode node, bool allow_mem_node_change = false);
    // Other memory clears the shape.
    TensorND& storage(const Storage& storage);

    // Takes the source's shape, contiguous, and its contents. An unset node or dtype is taken from
    // the source; a different dtype stops the process with both names.
    template <typename SourceTrait>
    TensorND& copy_from(const TensorND<SourceTrait>& source);
    // Copies into the layout as it is: shapes must be equal, and memory must not overlap.
    template <typename SourceTrait>
    TensorND& copy_from_fixlayout(const TensorND<SourceTrait>& source);

    // Device form only: zeroes the span of the layout, ordered on the node, which must be a CPU
    // node.
    template <typename T = Trait>
    std::enable_if_t<std::is_same_v<T, DeviceTensorStorageTrait>> memset_zero() const;

private:
    Storage m_storage;
    kern::TensorLayout m_layout;
};

using HostTensorND = TensorND<HostTensorStorageTrait>;
using DeviceTensorND = TensorND<DeviceTensorStorageTrait>;

}  // namespace orb
