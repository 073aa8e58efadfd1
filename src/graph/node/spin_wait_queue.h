// The counters of a queue with one consumer, its thread, and the two waits on the counters: of the
// consumer for work, and of others until the work given so far is done. Both spin for a while
// before they sleep. The queue owns this; each function says who may call it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace orb {

class SpinWaitQueueBase final {
public:
    // Any thread: the position of a task in the queue, which from now on counts as given.
    uint64_t take_position();
    // Any thread, when the task is at its position: starts the consumer's thread at the first task
    // and wakes it if it sleeps.
    void announce(void (*consumer)(void* context), void* context) {
        if (m_state.load(std::memory_order_acquire) != State::STARTED)
            start(consumer, context);
        // See `take_position`.
        if (m_sleeping.load(std::memory_order_seq_cst))
            wake_consumer();
    }

    // The consumer, between two tasks: waits for the next one; false when there is none and will
    // be none.
    bool wait_for_task();
    // The consumer, when a task is done and destroyed.
    void finish_one();

    // Any thread but the consumer: waits until what was given before the call has finished.
    void sync();
    // The owner, after a sync: ends the thread. A task given later stops the process.
    void end();

    bool started() const { return m_state.load(std::memory_order_acquire) == State::STARTED; }
    // No task was given since one that a `sync` has waited for.
    bool synced() const { return m_synced.load() == m_issued.load(); }

private:
    enum class State : uint8_t { NOT_STARTED, STARTED, ENDED };
    static constexpr uint64_t NO_ONE_WAITS = UINT64_MAX;

    void start(void (*consumer)(void* context), void* context);
    void wake_consumer();
    void sleep_until_synced();
    void notify_synced();
    void raise_synced(uint64_t count);

    // Three cache lines: what producers write, what the consumer writes, what rarely changes. All
    // counts have 64 bits: 32 would wrap within hours.
    alignas(64) std::atomic<uint64_t> m_issued{0};
    alignas(64) std::atomic<uint64_t> m_finished{0};
    uint64_t m_seen_issued = 0;  // of the consumer
    alignas(64) std::atomic<State> m_state{State::NOT_STARTED};
    std::atomic<bool> m_sleeping{false};  // written by the consumer, under its mutex
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_notify_at{NO_ONE_WAITS};
    std::atomic<uint64_t> m_synced{0};

    std::mutex m_consumer_mutex;  // also guards the start and the end of the thread
    std::condition_variable m_consumer_wakes;
    std::thread m_thread;

    std::mutex m_sync_mutex;
    std::condition_variable m_sync_wakes;
    std::deque<uint64_t> m_targets;  // of the sleepers, ascending; the first is `m_notify_at`
};

}  // namespace orb
