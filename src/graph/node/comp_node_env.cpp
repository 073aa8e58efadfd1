#include "graph/node/comp_node_env.h"

#include "kernels/version.h"

namespace orb {
namespace {

static_assert(kern::VERSION_MAJOR == 8 && kern::VERSION_MINOR >= 14,
              "nodes need the kernel library's interface 8.14 or a later minor version");

// Attached before anything else, so it outlives the operators that other attached data hold.
struct KernelHandleRecord {
    static const char TAG;
    std::unique_ptr<kern::KernelHandle> handle;
};
const char KernelHandleRecord::TAG = 0;

}  // namespace

void CompNodeEnv::set_memory_callback(DeviceMemoryCallback callback) {
    m_memory_callback = std::move(callback);
}

void CompNodeEnv::init(CompNode node, CompNode::DeviceType type, size_t mem_alignment) {
    KERN_CHECK(node.valid() && !m_comp_node.valid());
    m_comp_node = node;
    m_device_type = type;
    m_mem_alignment = mem_alignment;
}

void CompNodeEnv::init_cpu(CompNode node, std::shared_ptr<kern::CpuDispatcher> dispatcher) {
    const std::lock_guard<RecursiveSpinLock> lock(m_user_data_lock);
    m_dispatcher = std::move(dispatcher);
    const auto& record = m_user_data.get_or_make<KernelHandleRecord>([this] {
        constexpr int best_level = 0;
        auto made = std::make_shared<KernelHandleRecord>();
        made->handle = kern::make_handle({kern::Platform::CPU, m_dispatcher}, best_level);
        return made;
    });
    m_kernel_handle = record.handle.get();
    init(node, CompNode::DeviceType::CPU, m_kernel_handle->alignment_requirement());
}

void CompNodeEnv::drop_user_data() {
    const std::lock_guard<RecursiveSpinLock> lock(m_user_data_lock);
    m_user_data.clear();
    m_kernel_handle = nullptr;
    m_dispatcher.reset();
    m_memory_callback = nullptr;
}

}  // namespace orb
