// The one node for data that is handed to a DSP library. Its memory is plain host memory and it
// runs no kernels.
#pragma once

#include "graph/node/comp_node_impl.h"

namespace orb {

class HexagonCompNodeImpl final : public CompNodeImpl {
public:
    HexagonCompNodeImpl();

    const void* impl_tag() const override;
    void* alloc_device(size_t size) override;
    void* alloc_host(size_t size) override { return alloc_device(size); }
    void copy_to_host(void* host_dest, const void* device_source, size_t size) override;
    void copy_to_device(void* device_dest, const void* host_source, size_t size) override;
    // To this node or to a CPU node.
    void copy_to_peer(CompNodeImpl& dest_node, void* dest, const void* source,
                      size_t size) override;
    size_t memory_alignment() const override { return env().mem_alignment(); }
    std::unique_ptr<CompNodeEvent> create_event(uint32_t flags) override;
    void sync() override {}
    const void* memory_space() const override { return impl_tag(); }
    std::pair<size_t, size_t> memory_status() const override { return system_memory_status(); }
    Locator locator() const override;
    Locator locator_logical() const override { return locator(); }
};

// The node; its only device and stream are 0, and any other locator stops the process. Any thread.
CompNodeImpl* load_hexagon_node(const CompNode::Locator& physical,
                                const CompNode::Locator& logical);

// Drops what is attached to the node. Its memory can be released afterwards too.
void finalize_hexagon_node();

}  // namespace orb
