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
    std::unordered_map<Locator, std::weak_ptr<CpuWorkerQueue>, LocatorHash> by_physical;
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
    KERN_CHECK(logical.can_name_cpu());
}

// The worker of a numbered device, shared by all its nodes; none for an inline node.
std::shared_ptr<CpuWorkerQueue> queue_of(const Locator& physical) {
    if (physical.device == Locator::DEVICE_CPU_DEFAULT)
        return nullptr;
    std::weak_ptr<CpuWorkerQueue>& known = pool->by_physical[physical];
    std::shared_ptr<CpuWorkerQueue> queue = known.lock();
    if (!queue)
        known = queue = std::make_shared<CpuWorkerQueue>(physical);
    return queue;
}

size_t node_count() {
    const std::lock_guard<std::mutex> lock(pool_mutex);
    return nr_nodes;
}

// Waits for all nodes, again until none was given a task meanwhile: tasks may give others, and may
// make nodes.
void drain_nodes() {
    const auto nr_given = [] {
        uint64_t sum = 0;
        for (size_t i = 0, count = node_count(); i < count; ++i)
            sum += node_at(i).env().dispatcher().get_nr_dispatched();
        return sum;
    };
    uint64_t given = 0;
    do {
        given = nr_given();
        for (size_t i = 0, count = node_count(); i < count; ++i)
            node_at(i).drain();
    } while (given != nr_given());
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
    node = new (node_storage[nr_nodes]) CpuCompNodeImpl(physical, logical, queue_of(physical));
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
    {
        const std::lock_guard<std::mutex> lock(pool_mutex);
        if (finalized)
            return;
    }
    drain_nodes();
    {
        const std::lock_guard<std::mutex> lock(pool_mutex);
        finalized = true;  // no node is made from here on
        delete pool;
        pool = nullptr;
    }
    // Without the mutex, since what is released may ask for nodes. All nodes are marked before the
    // first drops its data, which may hold memory of another node.
    for (size_t i = 0; i < nr_nodes; ++i)
        node_at(i).env().mark_finalized();
    for (size_t i = 0; i < nr_nodes; ++i)
        node_at(i).env().drop_user_data();
    // Last, because other threads may have given tasks, and attached data too as it went.
    for (size_t i = 0; i < nr_nodes; ++i)
        node_at(i).end_queue();
}

}  // namespace orb
