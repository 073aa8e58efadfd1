#include "graph/node/cpu_comp_node.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "graph/node/cpu_event.h"
#include "kernels/check.h"

namespace orb {
namespace {

std::atomic<bool> late_free{false};

void free_host_memory(CompNodeImpl& node, void* ptr) {
    if (node.env().is_finalized())
        late_free.store(true, std::memory_order_relaxed);
    std::free(ptr);
}

void* alloc_aligned(const CompNodeEnv& env, size_t size) {
    KERN_CHECK(!env.is_finalized());
    void* ptr = nullptr;
    KERN_CHECK(posix_memalign(&ptr, env.mem_alignment(), size) == 0);
    return ptr;
}

}  // namespace

CpuCompNodeImpl::CpuCompNodeImpl(const Locator& physical, const Locator& logical,
                                 std::shared_ptr<CpuWorkerQueue> queue)
    : CompNodeImpl(queue ? free_queued : free_inline, free_host_memory),
      m_physical(physical),
      m_logical(logical),
      m_queue(std::move(queue)) {
    std::shared_ptr<kern::CpuDispatcher> dispatcher;
    if (m_queue)
        dispatcher = m_queued = std::make_shared<QueuedDispatcher>(m_queue, m_recorder_slot);
    else
        dispatcher = std::make_shared<kern::InlineDispatcher>();
    env().init_cpu(CompNode(this), std::move(dispatcher));
}

const void* CpuCompNodeImpl::tag() {
    static const char object = 0;
    return &object;
}

void* CpuCompNodeImpl::alloc_device(size_t size) {
    // A replay would not take the memory again.
    const CpuTaskRecorder* recorder = active_recorder();
    KERN_CHECK(!recorder || recorder->in_dry_run());
    return alloc_aligned(env(), size);
}

void* CpuCompNodeImpl::alloc_host(size_t size) {
    return alloc_aligned(env(), size);
}

void CpuCompNodeImpl::free_inline(CompNodeImpl& node, void* ptr) {
    if (node.env().is_finalized())
        std::free(ptr);
    else
        node.env().dispatcher().submit([ptr] { std::free(ptr); });
}

void CpuCompNodeImpl::free_queued(CompNodeImpl& node, void* ptr) {
    if (const CpuTaskRecorder* recorder = static_cast<CpuCompNodeImpl&>(node).active_recorder()) {
        KERN_CHECK(recorder->in_dry_run());
        std::free(ptr);
    } else if (node.env().is_finalized()) {
        late_free.store(true, std::memory_order_relaxed);
        std::free(ptr);
    } else {
        // Not even a step frees at once: tasks that use the memory may be waiting still.
        node.env().dispatcher().dispatch([ptr] { std::free(ptr); });
    }
}

void CpuCompNodeImpl::submit_copy(void* dest, const void* source, size_t size) {
    KERN_CHECK(env().device_type() == CompNode::DeviceType::CPU);
    env().dispatcher().submit([dest, source, size] {
        if (size != 0)
            std::memcpy(dest, source, size);
    });
}

void CpuCompNodeImpl::copy_to_host(void* host_dest, const void* device_source, size_t size) {
    submit_copy(host_dest, device_source, size);
}

void CpuCompNodeImpl::copy_to_device(void* device_dest, const void* host_source, size_t size) {
    submit_copy(device_dest, host_source, size);
}

void CpuCompNodeImpl::copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                                   size_t size) {
    KERN_CHECK(dest_node.impl_tag() == tag() || m_physical.device == Locator::DEVICE_CPU_DEFAULT);
    dest_node.copy_to_device(dest, source, size);
}

std::unique_ptr<CompNodeEvent> CpuCompNodeImpl::create_event(uint32_t flags) {
    return std::make_unique<CpuEvent>(*this, flags);
}

void CpuCompNodeImpl::sync() {
    // A finalized node has run everything; objects that die late may still ask.
    if (!env().is_finalized())
        env().dispatcher().sync();
}

std::unique_ptr<TaskRecorder> CpuCompNodeImpl::make_recorder() {
    KERN_CHECK(m_queued);
    return std::make_unique<CpuTaskRecorder>(m_recorder_slot, m_queued);
}

void CpuCompNodeImpl::drain() {
    if (m_queue)
        m_queue->sync();
}

void CpuCompNodeImpl::end_queue() {
    if (m_queue)
        m_queue->end();
}

bool cpu_late_free_happened() {
    return late_free.load(std::memory_order_relaxed);
}

}  // namespace orb
