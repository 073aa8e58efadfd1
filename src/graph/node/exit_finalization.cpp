#include "graph/node/exit_finalization.h"

#include <cstdlib>
#include <mutex>

#include "graph/node/cpu_comp_node.h"
#include "graph/node/hexagon_comp_node.h"
#include "graph/node/node_bound_object.h"
#include "kernels/check.h"

namespace orb {
namespace {

constexpr size_t NR_DEVICE_TYPES = 6;
std::once_flag registered[NR_DEVICE_TYPES];

}  // namespace

void register_exit_finalization(CompNode::DeviceType type) {
    const auto index = static_cast<size_t>(type);
    KERN_CHECK(index < NR_DEVICE_TYPES);
    // Within a shared object `atexit` is bound to that object, so it covers unloading as well.
    std::call_once(registered[index], [] { KERN_CHECK(std::atexit(finalize_nodes) == 0); });
}

void finalize_nodes() {
    NodeBoundObject::finalize_all();
    finalize_cpu_nodes();
    finalize_hexagon_node();
}

}  // namespace orb
