#include "graph/node/queued_dispatcher.h"

namespace orb {

QueuedDispatcher::QueuedDispatcher(std::shared_ptr<CpuWorkerQueue> queue, const RecorderSlot& slot)
    : m_queue(std::move(queue)), m_slot(slot) {}

void QueuedDispatcher::dispatch(kern::Task&& task) {
    if (CpuTaskRecorder* recorder = active_recorder()) {
        recorder->record(std::move(task));
        return;
    }
    count();
    m_queue->add(std::move(task));
}

void QueuedDispatcher::sync() {
    if (CpuTaskRecorder* recorder = active_recorder())
        recorder->note_sync();
    else
        sync_queue();
}

void QueuedDispatcher::sync_queue() {
    if (!in_step())
        m_queue->sync();
}

}  // namespace orb
