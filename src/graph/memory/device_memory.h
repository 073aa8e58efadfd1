// The blocks that planned vars live in. Graphs that run one at a time may share them: the larger
// need wins.
#pragma once

#include <atomic>
#include <memory>
#include <unordered_map>

#include "graph/core/compute_graph.h"

namespace orb {

class DeviceMemory final {
public:
    // Makes sure that the key's block, on the node, has at least so many bytes. It is replaced only
    // if it is too small. The source is asked for memory where there is one; else the node is.
    const DeviceTensorStorage& ensure(const void* key, CompNode node, size_t size,
                                      const StaticMemorySource& source);
    const DeviceTensorStorage& block(const void* key) const { return m_blocks.at(key); }
    // The block's first byte, null when there is none.
    const uint8_t* address(const void* key) const;
    void clear() { m_blocks.clear(); }
    bool is_busy() const { return m_busy.load(std::memory_order_acquire); }

    // Marks the memory as in use for the time of a run; twice stops the process.
    class BusyMark {
    public:
        explicit BusyMark(std::shared_ptr<DeviceMemory> memory);
        ~BusyMark() { m_memory->m_busy.store(false, std::memory_order_release); }
        BusyMark(const BusyMark&) = delete;
        BusyMark& operator=(const BusyMark&) = delete;

    private:
        std::shared_ptr<DeviceMemory> m_memory;
    };

private:
    std::unordered_map<const void*, DeviceTensorStorage> m_blocks;
    std::atomic<bool> m_busy{false};
};

}  // namespace orb
