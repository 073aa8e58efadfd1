// CPU nodes and the pool that holds them. An inline node runs its tasks at once in the calling
// thread, a numbered one in order on a worker, which nodes of one physical locator share. The pool
// never frees a node, since handles may point to it until the process ends. Any thread.
#pragma once

#include <memory>

#include "graph/node/comp_node_impl.h"
#include "graph/node/queued_dispatcher.h"

namespace orb {

class CpuCompNodeImpl final : public CompNodeImpl {
public:
    // An inline node, when there is no queue.
    CpuCompNodeImpl(const Locator& physical, const Locator& logical,
                    std::shared_ptr<CpuWorkerQueue> queue = nullptr);

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
    // An inline node cannot be recorded: it stops the process.
    std::unique_ptr<TaskRecorder> make_recorder() override;
    void add_callback(kern::Task&& task) override { dispatch(std::move(task)); }

    // Hands the task to the node's dispatcher.
    void dispatch(kern::Task&& task) { env().dispatcher().dispatch(std::move(task)); }
    // The recorder that takes what the calling thread gives to the node, or null.
    CpuTaskRecorder* active_recorder() const {
        return m_queued ? m_queued->active_recorder() : nullptr;
    }

    // The two ends of the finalization: waits for the tasks, whoever records; ends the worker.
    void drain();
    void end_queue();

private:
    static void free_inline(CompNodeImpl& node, void* ptr);
    static void free_queued(CompNodeImpl& node, void* ptr);
    void submit_copy(void* dest, const void* source, size_t size);

    Locator m_physical;
    Locator m_logical;
    std::shared_ptr<CpuWorkerQueue> m_queue;  // null for an inline node, as the dispatcher
    RecorderSlot m_recorder_slot;
    std::shared_ptr<QueuedDispatcher> m_queued;
};

// The pool's node of the logical locator, made for the physical one at first use. An impossible
// locator, and a node too many, stop the process. Any thread.
CompNodeImpl* load_cpu_node(const CompNode::Locator& physical, const CompNode::Locator& logical);

// An inline node apart from the pool; it is never finalized.
CompNodeImpl* default_cpu_node();

// Waits for the pool's nodes and takes their resources; a further call does nothing. From then on
// no node can be made, and memory of these nodes is freed at once.
void finalize_cpu_nodes();

// Memory was freed after the finalization: host memory, or device memory of a numbered node.
bool cpu_late_free_happened();

}  // namespace orb
