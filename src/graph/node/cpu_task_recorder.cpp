#include "graph/node/cpu_task_recorder.h"

#include "graph/node/queued_dispatcher.h"
#include "kernels/check.h"

namespace orb {

void RecorderSlot::enter(CpuTaskRecorder& recorder) {
    // Looked at before the mutex, which its holder could not take again.
    KERN_CHECK(m_owner.load(std::memory_order_relaxed) == std::thread::id());
    m_mutex.lock();
    m_recorder = &recorder;
    m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

void RecorderSlot::leave(const CpuTaskRecorder& recorder) {
    KERN_CHECK(mine() == &recorder);
    m_recorder = nullptr;
    m_owner.store(std::thread::id(), std::memory_order_relaxed);
    m_mutex.unlock();
}

CpuTaskRecorder::CpuTaskRecorder(RecorderSlot& slot, std::shared_ptr<QueuedDispatcher> dispatcher)
    : m_slot(slot), m_dispatcher(std::move(dispatcher)) {
    m_slot.enter(*this);
}

CpuTaskRecorder::~CpuTaskRecorder() {
    if (!m_stopped)
        m_slot.leave(*this);
}

void CpuTaskRecorder::begin_dry_run() {
    KERN_CHECK(is_recording() && !m_in_dry_run);
    m_in_dry_run = true;
}

void CpuTaskRecorder::end_dry_run() {
    KERN_CHECK(is_recording() && m_in_dry_run && m_tasks.empty());
    m_in_dry_run = false;
    m_needs_sync = false;
}

void CpuTaskRecorder::record(kern::Task&& task) {
    KERN_CHECK(!m_needs_sync && !m_stopped);
    if (!m_in_dry_run)
        m_tasks.push_back(std::move(task));
}

void CpuTaskRecorder::stop() {
    KERN_CHECK(is_recording() && !m_in_dry_run);
    m_slot.leave(*this);
    m_stopped = true;
}

void CpuTaskRecorder::replay() {
    KERN_CHECK(m_stopped);
    m_dispatcher->sync_queue();
    if (!m_first_replay) {
        run_tasks();
        return;
    }
    m_slot.enter(*this);
    run_tasks();
    m_slot.leave(*this);
    m_first_replay = false;
}

// As on a worker, an exception ends the process.
void CpuTaskRecorder::run_tasks() const noexcept {
    const kern::DispatcherStep step(*m_dispatcher);
    for (const kern::Task& task : m_tasks)
        task();
}

}  // namespace orb
