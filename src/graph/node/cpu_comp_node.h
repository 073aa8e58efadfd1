// CPU nodes and the pool that holds them. An inline node runs its tasks at once in the calling
// thread. The pool never frees a node, since handles may point to it until the process ends.
#pragma once

#include <memory>

#include "graph/node/comp_node_impl.h"

namespace orb {

class CpuCompNodeImpl final : public CompNodeImpl {
public:
    // An inline node.
    CpuCompNodeImpl(const Locator& physical, const Locator& logical);

    static const void* tag();
    const void* impl_tag() const override { return tag(); }
    void* alloc_device(size_t size) override;
    void* alloc_host(size_t size) override;
    void copy_to_host(void* host_dest, const void* device_source, size_t size) override;
    void copy_to_device(void* device_dest, const void* host_source, size_t size) override;
    void copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                      size_t size) override;
    size_t memory_alignment() const override { return env().mem_alignment(); }
    std::unique_ptr<CompNodeEvent> create_event(uint32_t flags) override;
    void sync() override;
    const void* memory_space() const override { return tag(); }
    std::pair<size_t, size_t> memory_status() const override { return system_memory_status(); }
    Locator locator() const override { return m_physical; }
    Locator locator_logical() const override { return m_logical; }
    std::unique_ptr<TaskRecorder> make_recorder() override;

    // Hands the task to the node's dispatcher.
    void dispatch(kern::Task&& task) { env().dispatcher().dispatch(std::move(task)); }

private:
    void dispatch_copy(void* dest, const void* source, size_t size);

    Locator m_physical;
    Locator m_logical;
};

// The pool's node of the logical locator, made for the physical one at first use. An impossible
// locator, and a node too many, stop the process. Any thread.
CompNodeImpl* load_cpu_node(const CompNode::Locator& physical, const CompNode::Locator& logical);

// An inline node apart from the pool; it is never finalized.
CompNodeImpl* default_cpu_node();

// Waits for the pool's nodes and takes their resources; a further call does nothing. From then on
// no node can be made, and memory of these nodes is freed at once.
void finalize_cpu_nodes();

// Memory of a CPU node was freed after the node's finalization.
bool cpu_late_free_happened();

}  // namespace orb
