// The pool of CPU nodes, and the default CPU node.
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

#include "graph/node/cpu_comp_node.h"
#include "kernels/check.h"

namespace orb {
namespace {

using Locator = CompNode::Locator;

constexpr size_t MAX_NODES = 1024;

// The nodes' place is static and they are never destroyed: handles and memory of theirs may be
// around until the last static destructor. Untouched places cost no memory.
alignas(CpuCompNodeImpl) unsigned char node_storage[MAX_NODES][sizeof(CpuCompNodeImpl)];

struct LocatorHash {
    size_t operator()(const Locator& locator) const {
        const auto device = static_cast<uint32_t>(locator.device);
        const auto stream = static_cast<uint32_t>(locator.stream);
        const uint64_t key = uint64_t{device} << 32 | stream;
        return std::hash<uint64_t>{}(key) ^ static_cast<size_t>(locator.type);
    }
};

// What is only needed until the finalization.
struct NodePool {
    std::unordered_map<Locator, CpuCompNodeImpl*, LocatorHash> by_logical;
};

// All constant-initialised and trivially destroyed, so that they can be used at any time.
std::mutex pool_mutex;  // guards the rest
NodePool* pool = nullptr;
size_t nr_nodes = 0;
bool finalized = false;

CpuCompNodeImpl& node_at(size_t index) {
    void* place = node_storage[index];
    return *std::launder(static_cast<CpuCompNodeImpl*>(place));
}

void check_locators(const Locator& physical, const Locator& logical) {
    KERN_CHECK(physical.device >= 0 ||
               (physical.device == Locator::DEVICE_CPU_DEFAULT && physical.stream == 0));
    KERN_CHECK(logical.device >= Locator::DEVICE_ANY ||
               logical.device == Locator::DEVICE_CPU_DEFAULT);
    constexpr int32_t unspecified_device_limit = INT32_MAX - 1023;
    if (logical.type == CompNode::DeviceType::XPU)
        KERN_CHECK(logical.device < unspecified_device_limit);
    else
        KERN_CHECK(logical.type == CompNode::DeviceType::CPU);
}

}  // namespace

CompNodeImpl* load_cpu_node(const Locator& physical, const Locator& logical) {
    const std::lock_guard<std::mutex> lock(pool_mutex);
    KERN_CHECK(!finalized);
    if (!pool)
        pool = new NodePool;
    check_locators(physical, logical);
    CpuCompNodeImpl*& node = pool->by_logical[logical];
    if (node)
        return node;
    KERN_CHECK(nr_nodes < MAX_NODES);
    // Numbered devices need a worker thread, which does not exist yet.
    KERN_CHECK(physical.device == Locator::DEVICE_CPU_DEFAULT);
    node = new (node_storage[nr_nodes]) CpuCompNodeImpl(physical, logical);
    ++nr_nodes;
    return node;
}

CompNodeImpl* default_cpu_node() {
    constexpr Locator locator = {CompNode::DeviceType::CPU, Locator::DEVICE_CPU_DEFAULT, -1};
    // Never destroyed: static objects may hold operators of its kernel handle.
    static auto* node = new CpuCompNodeImpl(locator, locator);
    return node;
}

void finalize_cpu_nodes() {
    std::unique_ptr<NodePool> dropped;
    {
        const std::lock_guard<std::mutex> lock(pool_mutex);
        if (finalized)
            return;
        finalized = true;
        dropped.reset(pool);
        pool = nullptr;
    }
    // No node is made from here on. Without the mutex, since what is released may ask for nodes.
    for (size_t i = 0; i < nr_nodes; ++i)
        node_at(i).sync();
    for (size_t i = 0; i < nr_nodes; ++i)
        node_at(i).env().finalize();
}

}  // namespace orb
