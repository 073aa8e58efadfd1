#include "graph/node/cpu_worker_queue.h"

#include "graph/node/affinity.h"
#include "kernels/check.h"

namespace orb {
namespace {

// The queue whose worker this thread is.
thread_local const CpuWorkerQueue* own_queue = nullptr;

}  // namespace

CpuWorkerQueue::~CpuWorkerQueue() {
    if (!m_waits.started())
        return;
    KERN_CHECK(m_waits.synced());
    m_waits.end();
}

void CpuWorkerQueue::add(kern::Task&& task) {
    TaskBlockList::Slot& slot = m_tasks.slot_to_fill(m_waits.take_position());
    slot.task = std::move(task);
    slot.ready.store(1, std::memory_order_release);
    m_waits.announce([](void* queue) { static_cast<CpuWorkerQueue*>(queue)->work(); }, this);
}

void CpuWorkerQueue::sync() {
    KERN_CHECK(own_queue != this);
    m_waits.sync();
}

void CpuWorkerQueue::end() {
    sync();
    m_waits.end();
}

void CpuWorkerQueue::work() {
    own_queue = this;
    prepare_thread();
    while (m_waits.wait_for_task()) {
        TaskBlockList::Slot& slot = m_tasks.next_slot();
        // The producer has its position and may not have come to filling it.
        spin_until([&] { return slot.ready.load(std::memory_order_acquire) == 1; });
        // Relaxed: whoever fills the slot again learns of it by the block's new number.
        slot.ready.store(0, std::memory_order_relaxed);
        slot.task();
        slot.task = kern::Task();
        m_waits.finish_one();
    }
}

void CpuWorkerQueue::prepare_thread() const {
    KERN_CHECK(m_physical.device >= 0);
    if (enable_affinity.load(std::memory_order_relaxed))
        set_affinity({m_physical.device});
}

}  // namespace orb
