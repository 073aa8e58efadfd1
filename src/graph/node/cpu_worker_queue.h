// The worker of a numbered CPU device: one thread that runs tasks in the order in which they were
// given. It starts with the first task. Several nodes may share a worker; they own it together.
#pragma once

#include "graph/node/comp_node.h"
#include "graph/node/spin_wait_queue.h"
#include "graph/node/task_block_list.h"

namespace orb {

class CpuWorkerQueue final {
public:
    explicit CpuWorkerQueue(const CompNode::Locator& physical) : m_physical(physical) {}
    // Ends the thread. One that has run tasks since the last `sync` stops the process.
    ~CpuWorkerQueue();
    CpuWorkerQueue(const CpuWorkerQueue&) = delete;
    CpuWorkerQueue& operator=(const CpuWorkerQueue&) = delete;

    // Any thread. No lock and no allocation in the common case.
    void add(kern::Task&& task);
    // Waits until all tasks given so far have run and are destroyed. Any thread but the worker,
    // whose wait for itself stops the process.
    void sync();
    // Waits and ends the thread, if it runs. Adding a task afterwards stops the process.
    void end();

private:
    void work();
    void prepare_thread() const;

    TaskBlockList m_tasks;
    SpinWaitQueueBase m_waits;
    CompNode::Locator m_physical;
};

}  // namespace orb
