// The dispatcher of a node with a worker: it hands tasks to the worker's queue, or to the recorder
// that the calling thread has on the node. The node owns it, and its kernel handle shares it. Any
// thread.
#pragma once

#include <memory>

#include "graph/node/cpu_task_recorder.h"
#include "graph/node/cpu_worker_queue.h"
#include "kernels/dispatcher.h"

namespace orb {

class QueuedDispatcher final : public kern::CpuDispatcher {
public:
    QueuedDispatcher(std::shared_ptr<CpuWorkerQueue> queue, const RecorderSlot& slot);

    void dispatch(kern::Task&& task) override;
    // Returns at once inside a step of this dispatcher. A recorder only notes it.
    void sync() override;

    // The calling thread's recorder of this node, or null. Inside a step it is not asked: what a
    // replayed task gives to the node is no part of the recording.
    CpuTaskRecorder* active_recorder() const { return in_step() ? nullptr : m_slot.mine(); }
    // Waits for the tasks given so far also while there is a recorder.
    void sync_queue();

private:
    std::shared_ptr<CpuWorkerQueue> m_queue;
    const RecorderSlot& m_slot;
};

}  // namespace orb
