// What a CompNode handle points to: one class per kind of device. Implementations are never
// destroyed, because handles to them may be used until the very end of the process. Any thread may
// call.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "graph/node/comp_node.h"
#include "graph/node/comp_node_env.h"
#include "graph/node/comp_node_event.h"
#include "graph/node/task_recorder.h"

namespace orb {

class CompNodeImpl {
public:
    using Locator = CompNode::Locator;
    using FreeFunction = void (*)(CompNodeImpl& node, void* ptr);

    // Plain functions: freeing is the most frequent operation and the one that still works after
    // the node was finalized.
    const FreeFunction free_device;
    const FreeFunction free_host;

    CompNodeImpl(const CompNodeImpl&) = delete;
    CompNodeImpl& operator=(const CompNodeImpl&) = delete;

    // The address of a static object, one per implementation class.
    virtual const void* impl_tag() const = 0;
    virtual void* alloc_device(size_t size) = 0;
    virtual void* alloc_host(size_t size) = 0;
    virtual void copy_to_host(void* host_dest, const void* device_source, size_t size) = 0;
    virtual void copy_to_device(void* device_dest, const void* host_source, size_t size) = 0;
    virtual void copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                              size_t size) = 0;
    virtual size_t memory_alignment() const = 0;
    virtual std::unique_ptr<CompNodeEvent> create_event(uint32_t flags) = 0;
    virtual void sync() = 0;
    virtual const void* memory_space() const = 0;
    virtual std::pair<size_t, size_t> memory_status() const = 0;
    virtual Locator locator() const = 0;
    virtual Locator locator_logical() const = 0;
    // None for a node whose tasks cannot be recorded.
    virtual std::unique_ptr<TaskRecorder> make_recorder();
    virtual size_t node_unit() const { return 1; }
    // Runs the task after those given before; a node without a task order stops the process.
    virtual void add_callback(kern::Task&& task);

    CompNodeEnv& env() { return m_env; }
    const CompNodeEnv& env() const { return m_env; }

protected:
    CompNodeImpl(FreeFunction device, FreeFunction host) : free_device(device), free_host(host) {}
    ~CompNodeImpl() = default;

private:
    CompNodeEnv m_env;
};

// Total and available bytes of the machine's memory, as `CompNode::memory_status` reports them.
std::pair<size_t, size_t> system_memory_status();

}  // namespace orb
