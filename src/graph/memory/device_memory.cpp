#include "graph/memory/device_memory.h"

#include "kernels/check.h"

namespace orb {

const DeviceTensorStorage& DeviceMemory::ensure(const void* key, CompNode node, size_t size,
                                                const StaticMemorySource& source) {
    DeviceTensorStorage& block = m_blocks.emplace(key, DeviceTensorStorage(node)).first->second;
    if (block.size() < size) {
        block = DeviceTensorStorage(node);  // the old one goes before the new one is taken
        if (source)
            block = source(node, size);
        else
            block.ensure_size(size);
        KERN_CHECK(block.size() >= size);
    }
    return block;
}

const uint8_t* DeviceMemory::address(const void* key) const {
    const auto found = m_blocks.find(key);
    return found == m_blocks.end() || found->second.size() == 0 ? nullptr : found->second.ptr();
}

DeviceMemory::BusyMark::BusyMark(std::shared_ptr<DeviceMemory> memory)
    : m_memory(std::move(memory)) {
    KERN_CHECK(!m_memory->m_busy.exchange(true, std::memory_order_acquire));
}

}  // namespace orb
