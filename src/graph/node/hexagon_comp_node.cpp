#include "graph/node/hexagon_comp_node.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "graph/node/cpu_comp_node.h"
#include "graph/node/spin_lock.h"
#include "kernels/check.h"

namespace orb {
namespace {

using DeviceType = CompNode::DeviceType;

SpinLock node_lock;
HexagonCompNodeImpl* node = nullptr;  // made at first use, never destroyed

void free_memory(CompNodeImpl&, void* ptr) {
    std::free(ptr);
}

void copy(void* dest, const void* source, size_t size) {
    if (size != 0)
        std::memcpy(dest, source, size);
}

}  // namespace

HexagonCompNodeImpl::HexagonCompNodeImpl() : CompNodeImpl(free_memory, free_memory) {
    env().init(CompNode(this), DeviceType::HEXAGON, alignof(std::max_align_t));
}

const void* HexagonCompNodeImpl::impl_tag() const {
    static const char object = 0;
    return &object;
}

void* HexagonCompNodeImpl::alloc_device(size_t size) {
    void* ptr = std::malloc(size);
    KERN_CHECK(ptr || size == 0);
    return ptr;
}

void HexagonCompNodeImpl::copy_to_host(void* host_dest, const void* device_source, size_t size) {
    copy(host_dest, device_source, size);
}

void HexagonCompNodeImpl::copy_to_device(void* device_dest, const void* host_source, size_t size) {
    copy(device_dest, host_source, size);
}

void HexagonCompNodeImpl::copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                                       size_t size) {
    // On a CPU node the copy takes its place among that node's tasks.
    KERN_CHECK(&dest_node == this || dest_node.impl_tag() == CpuCompNodeImpl::tag());
    dest_node.copy_to_device(dest, source, size);
}

std::unique_ptr<CompNodeEvent> HexagonCompNodeImpl::create_event(uint32_t) {
    KERN_FAIL();
}

CompNode::Locator HexagonCompNodeImpl::locator() const {
    return {DeviceType::HEXAGON, 0, 0};
}

CompNodeImpl* load_hexagon_node(const CompNode::Locator& physical,
                                const CompNode::Locator& logical) {
    KERN_CHECK(physical.type == DeviceType::HEXAGON && logical.type == DeviceType::HEXAGON);
    KERN_CHECK(physical.device == 0 && physical.stream == 0);
    const std::lock_guard<SpinLock> lock(node_lock);
    if (!node)
        node = new HexagonCompNodeImpl;
    return node;
}

void finalize_hexagon_node() {
    HexagonCompNodeImpl* made = nullptr;
    {
        const std::lock_guard<SpinLock> lock(node_lock);
        made = node;
    }
    if (!made || made->env().is_finalized())
        return;
    made->env().mark_finalized();
    made->env().drop_user_data();
}

}  // namespace orb
