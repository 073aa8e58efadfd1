#include "graph/node/spin_wait_queue.h"

#include "graph/node/spin_budget.h"
#include "kernels/check.h"

namespace orb {

uint64_t SpinWaitQueueBase::take_position() {
    // A producer counts and then reads the sleeping flag; the consumer sets the flag and then reads
    // the count. In the one order of sequentially consistent operations, one of them sees the
    // other's step, so the consumer never sleeps on a task.
    return m_issued.fetch_add(1, std::memory_order_seq_cst);
}

bool SpinWaitQueueBase::wait_for_task() {
    const uint64_t position = m_finished.load(std::memory_order_relaxed);
    // The count that producers fight for is read again only after the tasks known are done.
    if (m_seen_issued != position)
        return true;
    const auto see_issued = [&](std::memory_order order) {
        m_seen_issued = m_issued.load(order);
        return m_seen_issued != position;
    };
    // Relaxed: a task's own ready flag orders what is read of it.
    const bool ended_spinning = spin_for(spin_budget(), [&] {
        return see_issued(std::memory_order_relaxed) || m_stop.load(std::memory_order_relaxed);
    });
    if (ended_spinning && m_seen_issued != position)
        return true;

    std::unique_lock<std::mutex> lock(m_consumer_mutex);
    m_sleeping.store(true, std::memory_order_seq_cst);
    m_consumer_wakes.wait(lock, [&] {
        return see_issued(std::memory_order_seq_cst) || m_stop.load(std::memory_order_relaxed);
    });
    m_sleeping.store(false, std::memory_order_relaxed);
    return m_seen_issued != position;
}

void SpinWaitQueueBase::wake_consumer() {
    // After the mutex was free the consumer is asleep, or will see the count. Notified without it,
    // the consumer need not wait for it again.
    { const std::lock_guard<std::mutex> lock(m_consumer_mutex); }
    m_consumer_wakes.notify_one();
}

void SpinWaitQueueBase::finish_one() {
    const uint64_t finished = m_finished.load(std::memory_order_relaxed) + 1;
    // The same crossing as in `take_position`: this stores and then reads the threshold, a sleeper
    // sets the threshold and then reads this. The store also publishes what the task wrote.
    m_finished.store(finished, std::memory_order_seq_cst);
    if (finished >= m_notify_at.load(std::memory_order_seq_cst))
        notify_synced();
}

void SpinWaitQueueBase::notify_synced() {
    {
        const std::lock_guard<std::mutex> lock(m_sync_mutex);
        const uint64_t finished = m_finished.load(std::memory_order_relaxed);
        while (!m_targets.empty() && m_targets.front() <= finished)
            m_targets.pop_front();
        m_notify_at.store(m_targets.empty() ? NO_ONE_WAITS : m_targets.front(),
                          std::memory_order_relaxed);
    }
    m_sync_wakes.notify_all();
}

void SpinWaitQueueBase::sync() {
    // Relaxed: a thread sees its own counts, and those that happened before its call.
    const uint64_t target = m_issued.load(std::memory_order_relaxed);
    const auto reached = [&] { return m_finished.load(std::memory_order_acquire) >= target; };
    if (!reached() && !spin_for(spin_budget(), reached))
        sleep_until_synced();
    raise_synced(target);
}

void SpinWaitQueueBase::sleep_until_synced() {
    std::unique_lock<std::mutex> lock(m_sync_mutex);
    // Read under the mutex, the targets of the sleepers ascend.
    const uint64_t target = m_issued.load(std::memory_order_relaxed);
    if (m_targets.empty())
        m_notify_at.store(target, std::memory_order_seq_cst);
    if (m_targets.empty() || m_targets.back() != target) {
        KERN_CHECK(m_targets.empty() || m_targets.back() < target);
        m_targets.push_back(target);
    }
    m_sync_wakes.wait(lock, [&] { return m_finished.load(std::memory_order_seq_cst) >= target; });
}

void SpinWaitQueueBase::raise_synced(uint64_t count) {
    uint64_t synced = m_synced.load(std::memory_order_relaxed);
    while (synced < count &&
           !m_synced.compare_exchange_weak(synced, count, std::memory_order_relaxed)) {
    }
}

void SpinWaitQueueBase::start(void (*consumer)(void* context), void* context) {
    const std::lock_guard<std::mutex> lock(m_consumer_mutex);
    const State state = m_state.load(std::memory_order_relaxed);
    KERN_CHECK(state != State::ENDED);
    if (state == State::STARTED)
        return;
    m_thread = std::thread(consumer, context);
    m_state.store(State::STARTED, std::memory_order_release);
}

void SpinWaitQueueBase::end() {
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(m_consumer_mutex);
        m_state.store(State::ENDED, std::memory_order_release);
        m_stop.store(true, std::memory_order_relaxed);
        m_consumer_wakes.notify_one();
        thread = std::move(m_thread);
    }
    if (thread.joinable())
        thread.join();
}

}  // namespace orb
