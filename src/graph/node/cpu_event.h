// Events of CPU nodes. An event owns its counters; tasks on its node, and tasks of other nodes that
// wait for it, point at it, so its destructor waits until none of them is left. It must outlive a
// recorder that holds marks of it. Any thread may call.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "graph/node/comp_node_event.h"

namespace orb {

class CpuCompNodeImpl;

// How `wait_on_host` waits, process-wide: SPIN_THEN_SLEEP unless someone changes it.
enum class HostWaitMode : uint32_t { SPIN_THEN_SLEEP = 0, YIELD = 1, SPIN = 2 };
extern std::atomic<HostWaitMode> host_wait_mode;

class CpuEvent final : public CompNodeEvent {
public:
    CpuEvent(CpuCompNodeImpl& node, uint32_t flags) : m_node(node), m_flags(flags) {}
    ~CpuEvent() override;

    // While the calling thread has a recorder on the node, the recording gets the mark, and each
    // replay reaches it.
    void record() override;
    bool finished() override;
    bool was_recorded() const override { return m_recorded.load(std::memory_order_acquire); }
    void wait_on_host() override;
    double elapsed_until(CompNodeEvent& end) override;
    // Nothing for an event that was recorded into a recording, and for a finished one.
    void wait_on_node(CompNode other) override;
    CompNode comp_node() const override;

private:
    using Clock = std::chrono::steady_clock;

    // Relaxed: whoever relies on it has the mutex, or takes it next.
    uint64_t nr_done() const { return m_done.load(std::memory_order_relaxed); }
    void reach();
    void reach_in_replay();
    void sleep_until_finished();
    void wait_for_count(uint64_t count);
    Clock::time_point time_reached();

    CpuCompNodeImpl& m_node;
    const uint32_t m_flags;

    // All changes and their announcements happen under the mutex, so that once the destructor has
    // it and finds nothing outstanding, nobody touches the event any more.
    std::mutex m_mutex;
    std::condition_variable m_changed;
    uint64_t m_issued = 0;
    uint32_t m_nr_waiters = 0;
    bool m_is_recording = false;  // the last `record` went into a recording
    Clock::time_point m_time;
    // May be read without the mutex.
    std::atomic<uint64_t> m_done{0};
    std::atomic<bool> m_recorded{false};
    std::atomic<bool> m_finished{false};  // all issued are done
};

}  // namespace orb
