// What belongs to one node: its dispatcher, its kernel handle and the data that others attach to
// it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

#include "graph/node/comp_node.h"
#include "graph/node/spin_lock.h"
#include "graph/node/user_data.h"
#include "kernels/check.h"
#include "kernels/handle.h"

namespace orb {

// Told of every allocation and free of a node; a free carries size 0.
using DeviceMemoryCallback = std::function<void(bool is_device, void* ptr, size_t size)>;

class CompNodeEnv {
public:
    CompNode comp_node() const { return m_comp_node; }
    CompNode::DeviceType device_type() const { return m_device_type; }
    size_t mem_alignment() const { return m_mem_alignment; }
    // Stops the process on a node that has none or is finalized, like `kernel_handle`.
    kern::CpuDispatcher& dispatcher() const {
        KERN_CHECK(m_dispatcher);
        return *m_dispatcher;
    }
    // The one kernel handle that all operators of this node share.
    kern::KernelHandle& kernel_handle() {
        KERN_CHECK(m_kernel_handle);
        return *m_kernel_handle;
    }

    // Attached data; hold the lock for every use of the container.
    RecursiveSpinLock& user_data_lock() { return m_user_data_lock; }
    UserDataContainer& user_data() { return m_user_data; }

    // Set it before other threads use the node; an empty one ends the reports.
    void set_memory_callback(DeviceMemoryCallback callback);
    void notify_memory(bool is_device, void* ptr, size_t size) const {
        if (m_memory_callback)
            m_memory_callback(is_device, ptr, size);
    }

    // Set an environment up, without kernels or as that of a CPU node; once per environment.
    void init(CompNode node, CompNode::DeviceType type, size_t mem_alignment);
    void init_cpu(CompNode node, std::shared_ptr<kern::CpuDispatcher> dispatcher);
    // The two steps of the node's end at process exit: from the first on the node counts as
    // finalized; the second drops everything attached, the newest first and the kernel handle last.
    void mark_finalized() { m_finalized.store(true, std::memory_order_release); }
    void drop_user_data();
    bool is_finalized() const { return m_finalized.load(std::memory_order_acquire); }

private:
    CompNode m_comp_node;
    CompNode::DeviceType m_device_type = CompNode::DeviceType::XPU;
    size_t m_mem_alignment = 1;
    DeviceMemoryCallback m_memory_callback;
    std::shared_ptr<kern::CpuDispatcher> m_dispatcher;
    RecursiveSpinLock m_user_data_lock;
    UserDataContainer m_user_data;
    kern::KernelHandle* m_kernel_handle = nullptr;  // owned by the attached record
    std::atomic<bool> m_finalized{false};
};

}  // namespace orb
