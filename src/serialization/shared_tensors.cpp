#include "serialization/shared_tensors.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "kernels/checked_math.h"

namespace orb {

std::shared_ptr<DeviceTensorND> SharedTensorTable::find(uint64_t index, CompNode node) const {
    if (index >= m_records.size())
        return nullptr;
    for (const auto& [own_node, tensor] : m_records[static_cast<size_t>(index)]) {
        if (own_node == node)
            return tensor;
    }
    return nullptr;
}

void SharedTensorTable::add(uint64_t index, CompNode node, std::shared_ptr<DeviceTensorND> tensor) {
    if (index >= m_records.size())
        m_records.resize(static_cast<size_t>(index) + 1);
    m_records[static_cast<size_t>(index)].emplace_back(node, std::move(tensor));
}

ParameterBlock::ParameterBlock(CompNode node) : m_node(node) {}

void* ParameterBlock::add(std::shared_ptr<DeviceTensorND> tensor,
                          const kern::TensorLayout& layout) {
    const size_t offset = kern::round_up(m_size, m_node.memory_alignment());
    const size_t end = kern::checked_add(offset, layout.span().high_byte);
    if (end > m_capacity)
        grow(end);
    if (offset > m_size)
        std::memset(m_values.get() + m_size, 0, offset - m_size);
    m_parts.push_back({std::move(tensor), layout, offset});
    m_size = end;
    return m_values.get() + offset;
}

// What was read so far may have to move, which the system does with large blocks by their pages.
void ParameterBlock::grow(size_t bytes) {
    constexpr size_t MIN_BYTES = 4096;
    m_capacity = std::max({bytes, m_capacity + m_capacity / 2, MIN_BYTES});
    void* moved = std::realloc(m_values.get(), m_capacity);
    if (!moved)
        throw std::bad_alloc();
    static_cast<void>(m_values.release());
    m_values.reset(static_cast<uint8_t*>(moved));
}

void ParameterBlock::finish() {
    DeviceTensorStorage storage(m_node);
    storage.ensure_size(m_size);
    m_node.copy_to_device(storage.ptr(), m_values.get(), m_size);
    for (const Part& part : m_parts)
        part.tensor->reset(storage.sub(part.offset), part.layout);
    m_node.sync();
}

}  // namespace orb
