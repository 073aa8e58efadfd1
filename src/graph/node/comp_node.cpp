#include "graph/node/comp_node.h"

#include <sys/sysinfo.h>

#include <algorithm>
#include <limits>

#include "graph/node/comp_node_impl.h"
#include "graph/node/cpu_comp_node.h"
#include "graph/node/exit_finalization.h"
#include "graph/node/hexagon_comp_node.h"
#include "kernels/check.h"

namespace orb {
namespace {

CompNodeImpl& checked(CompNodeImpl* impl) {
    KERN_CHECK(impl);
    return *impl;
}

// A 32-bit program may run on a machine with more memory than its words can count.
size_t saturated(uint64_t units, uint64_t unit) {
    uint64_t bytes = 0;
    constexpr uint64_t limit = std::numeric_limits<size_t>::max();
    if (__builtin_mul_overflow(units, unit, &bytes))
        return limit;
    return static_cast<size_t>(std::min(bytes, limit));
}

}  // namespace

CompNode CompNode::load(const Locator& physical, const Locator& logical) {
    default_cpu();
    CompNodeImpl* impl = nullptr;
    switch (physical.type) {
        case DeviceType::CPU:
            impl = load_cpu_node(physical, logical);
            break;
        case DeviceType::HEXAGON:
            impl = load_hexagon_node(physical, logical);
            break;
        default:
            // The unspecified type must have been resolved; for the others there is no device.
            KERN_FAIL();
    }
    register_exit_finalization(physical.type);
    return CompNode(impl);
}

CompNode CompNode::load(const std::string& text) {
    const Locator logical = Locator::parse(text);
    return load(logical.to_physical(), logical);
}

CompNode CompNode::default_cpu() {
    return CompNode(default_cpu_node());
}

void* CompNode::alloc_device(size_t size) const {
    void* ptr = checked(m_impl).alloc_device(size);
    m_impl->env().notify_memory(true, ptr, size);
    return ptr;
}

void CompNode::free_device(void* ptr) const {
    checked(m_impl).env().notify_memory(true, ptr, 0);
    m_impl->free_device(*m_impl, ptr);
}

void* CompNode::alloc_host(size_t size) const {
    void* ptr = checked(m_impl).alloc_host(size);
    m_impl->env().notify_memory(false, ptr, size);
    return ptr;
}

void CompNode::free_host(void* ptr) const {
    checked(m_impl).env().notify_memory(false, ptr, 0);
    m_impl->free_host(*m_impl, ptr);
}

void CompNode::copy_to_host(void* host_dest, const void* device_source, size_t size) const {
    checked(m_impl).copy_to_host(host_dest, device_source, size);
}

void CompNode::copy_to_device(void* device_dest, const void* host_source, size_t size) const {
    checked(m_impl).copy_to_device(device_dest, host_source, size);
}

void CompNode::copy_to_peer(CompNode dest_node, void* dest, const void* source, size_t size) const {
    checked(m_impl).copy_to_peer(checked(dest_node.m_impl), dest, source, size);
}

void CompNode::sync() const {
    checked(m_impl).sync();
}

size_t CompNode::memory_alignment() const {
    return checked(m_impl).memory_alignment();
}

const void* CompNode::memory_space() const {
    return checked(m_impl).memory_space();
}

std::pair<size_t, size_t> CompNode::memory_status() const {
    return checked(m_impl).memory_status();
}

CompNode::Locator CompNode::locator() const {
    return checked(m_impl).locator();
}

CompNode::Locator CompNode::locator_logical() const {
    return checked(m_impl).locator_logical();
}

bool CompNode::is_inline() const {
    return locator().device == Locator::DEVICE_CPU_DEFAULT;
}

CompNode CompNode::with_stream(int32_t stream) const {
    Locator physical = locator();
    Locator logical = locator_logical();
    physical.stream = stream;
    logical.stream = stream;
    return load(physical, logical);
}

std::unique_ptr<CompNodeEvent> CompNode::create_event(uint32_t flags) const {
    return checked(m_impl).create_event(flags);
}

std::unique_ptr<TaskRecorder> CompNode::make_recorder() const {
    return checked(m_impl).make_recorder();
}

void CompNode::add_callback(kern::Task&& task) const {
    checked(m_impl).add_callback(std::move(task));
}

CompNodeEnv& CompNode::env() const {
    return checked(m_impl).env();
}

std::unique_ptr<TaskRecorder> CompNodeImpl::make_recorder() {
    return nullptr;
}

void CompNodeImpl::add_callback(kern::Task&&) {
    KERN_FAIL();
}

std::pair<size_t, size_t> system_memory_status() {
    struct sysinfo info = {};
    KERN_CHECK(sysinfo(&info) == 0);
    const uint64_t unit = info.mem_unit;
    // The second bounds what the node could ever give, with buffers; it is not what is free now.
    return {saturated(info.totalram, unit),
            saturated(uint64_t{info.totalram} + uint64_t{info.bufferram}, unit)};
}

}  // namespace orb
