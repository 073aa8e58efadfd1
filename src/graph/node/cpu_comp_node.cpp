#include "graph/node/cpu_comp_node.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "kernels/check.h"
#include "kernels/dispatcher.h"

namespace orb {
namespace {

std::atomic<bool> late_free{false};

void free_at_once(CompNodeImpl& node, void* ptr) {
    if (node.env().is_finalized())
        late_free.store(true, std::memory_order_relaxed);
    std::free(ptr);
}

void free_in_order(CompNodeImpl& node, void* ptr) {
    if (node.env().is_finalized()) {
        free_at_once(node, ptr);
        return;
    }
    // Tasks that use the memory may be waiting still.
    node.env().dispatcher().dispatch([ptr] { std::free(ptr); });
}

void* alloc_aligned(const CompNodeEnv& env, size_t size) {
    KERN_CHECK(!env.is_finalized());
    void* ptr = nullptr;
    KERN_CHECK(posix_memalign(&ptr, env.mem_alignment(), size) == 0);
    return ptr;
}

}  // namespace

CpuCompNodeImpl::CpuCompNodeImpl(const Locator& physical, const Locator& logical)
    : CompNodeImpl(free_in_order, free_at_once), m_physical(physical), m_logical(logical) {
    env().init_cpu(CompNode(this), std::make_shared<kern::InlineDispatcher>());
}

const void* CpuCompNodeImpl::tag() {
    static const char object = 0;
    return &object;
}

void* CpuCompNodeImpl::alloc_device(size_t size) {
    return alloc_aligned(env(), size);
}

void* CpuCompNodeImpl::alloc_host(size_t size) {
    return alloc_aligned(env(), size);
}

void CpuCompNodeImpl::dispatch_copy(void* dest, const void* source, size_t size) {
    KERN_CHECK(env().device_type() == CompNode::DeviceType::CPU);
    auto copy = [dest, source, size] {
        if (size != 0)
            std::memcpy(dest, source, size);
    };
    // The task runs before `dispatch` returns, so it may refer to this frame, which spares the
    // allocation that a task of three words costs.
    dispatch(std::ref(copy));
}

void CpuCompNodeImpl::copy_to_host(void* host_dest, const void* device_source, size_t size) {
    dispatch_copy(host_dest, device_source, size);
}

void CpuCompNodeImpl::copy_to_device(void* device_dest, const void* host_source, size_t size) {
    dispatch_copy(device_dest, host_source, size);
}

void CpuCompNodeImpl::copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                                   size_t size) {
    KERN_CHECK(dest_node.impl_tag() == tag() || m_physical.device == Locator::DEVICE_CPU_DEFAULT);
    dest_node.copy_to_device(dest, source, size);
}

std::unique_ptr<CompNodeEvent> CpuCompNodeImpl::create_event(uint32_t) {
    KERN_FAIL();
}

void CpuCompNodeImpl::sync() {
    // A finalized node has run everything; objects that die late may still ask.
    if (!env().is_finalized())
        env().dispatcher().sync();
}

std::unique_ptr<TaskRecorder> CpuCompNodeImpl::make_recorder() {
    KERN_FAIL();  // tasks of an inline node are never held back, so there is nothing to record
}

bool cpu_late_free_happened() {
    return late_free.load(std::memory_order_relaxed);
}

}  // namespace orb
