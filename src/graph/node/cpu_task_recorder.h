// Captures what a thread gives to a CPU node with a worker, and runs it again later in the thread
// that asks for it. A recorder belongs to the thread that made it; what other threads give to the
// node meanwhile goes to the worker as ever.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "graph/node/task_recorder.h"
#include "kernels/task.h"

namespace orb {

class CpuTaskRecorder;
class QueuedDispatcher;

// A node's place for the recorder that is active on it. The node owns it.
class RecorderSlot final {
public:
    // The recorder that the calling thread has put here, or null.
    CpuTaskRecorder* mine() const {
        // Relaxed: only this thread ever stores its own id here, and what belongs to it with it.
        const std::thread::id owner = m_owner.load(std::memory_order_relaxed);
        if (owner == std::thread::id() || owner != std::this_thread::get_id())
            return nullptr;
        return m_recorder;
    }
    // Puts a recorder here, which takes the node's recorder mutex; a filled slot stops the process.
    void enter(CpuTaskRecorder& recorder);
    // Only the thread that entered the recorder can take it out again.
    void leave(const CpuTaskRecorder& recorder);

private:
    std::atomic<std::thread::id> m_owner{};
    CpuTaskRecorder* m_recorder = nullptr;  // the owner's
    std::mutex m_mutex;                     // held while the slot is filled
};

class CpuTaskRecorder final : public TaskRecorder {
public:
    CpuTaskRecorder(RecorderSlot& slot, std::shared_ptr<QueuedDispatcher> dispatcher);
    // Gives the node free if the recording has not been stopped.
    ~CpuTaskRecorder() override;

    void begin_dry_run() override;
    void end_dry_run() override;
    void stop() override;
    // Waits for the node and runs the tasks in the calling thread, as a step of the node: what they
    // submit to it runs at once. Only a stopped recorder; one replay at a time.
    void replay() override;

    // For the node, in the recorder's thread. A task after a sync stops the process, since a replay
    // could not wait at that place.
    void record(kern::Task&& task);
    void note_sync() { m_needs_sync = true; }
    bool in_dry_run() const { return m_in_dry_run; }

private:
    bool is_recording() const { return m_slot.mine() == this && !m_stopped; }
    void run_tasks() const noexcept;

    RecorderSlot& m_slot;
    std::shared_ptr<QueuedDispatcher> m_dispatcher;
    std::vector<kern::Task> m_tasks;
    bool m_in_dry_run = false;
    bool m_needs_sync = false;
    bool m_stopped = false;
    bool m_first_replay = true;
};

}  // namespace orb
