#include "graph/node/cpu_event.h"

#include <thread>

#include "graph/node/cpu_comp_node.h"
#include "graph/node/spin_budget.h"
#include "kernels/check.h"

namespace orb {

std::atomic<HostWaitMode> host_wait_mode{HostWaitMode::SPIN_THEN_SLEEP};

namespace {

// Far shorter than for a queue: an event that is not there soon belongs to long work.
template <typename Condition>
bool spin_briefly(Condition&& condition) {
    return condition() || spin_for(spin_budget() / 20, condition);
}

}  // namespace

CpuEvent::~CpuEvent() {
    // Spinning spares a sleep, as in all waits here; what counts is looked at under the mutex.
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t issued = m_issued;
    lock.unlock();
    spin_briefly([&] { return nr_done() >= issued; });
    lock.lock();
    m_changed.wait(lock, [this] { return m_issued == nr_done() && m_nr_waiters == 0; });
}

void CpuEvent::record() {
    const bool is_recording = m_node.active_recorder() != nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_is_recording = is_recording;
        if (!is_recording)
            ++m_issued;
        m_finished.store(m_issued == nr_done(), std::memory_order_release);
        m_recorded.store(true, std::memory_order_relaxed);
    }
    // Without the mutex, because an inline node runs the task here.
    if (is_recording)
        m_node.add_callback([this] { reach_in_replay(); });
    else
        m_node.add_callback([this] { reach(); });
}

void CpuEvent::reach() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const uint64_t done = nr_done() + 1;
    const bool is_last = done == m_issued;
    if (is_last && (m_flags & TIMESTAMP) != 0)
        m_time = Clock::now();
    m_done.store(done, std::memory_order_relaxed);
    // Release: whoever sees it may use what the node did before without taking the mutex.
    if (is_last)
        m_finished.store(true, std::memory_order_release);
    m_changed.notify_all();
}

void CpuEvent::reach_in_replay() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_issued;
    }
    reach();
}

bool CpuEvent::finished() {
    KERN_CHECK(m_recorded.load(std::memory_order_relaxed));
    return m_finished.load(std::memory_order_acquire);
}

void CpuEvent::wait_on_host() {
    switch (host_wait_mode.load(std::memory_order_relaxed)) {
        case HostWaitMode::SPIN_THEN_SLEEP:
            if (!spin_briefly([this] { return finished(); }))
                sleep_until_finished();
            return;
        case HostWaitMode::YIELD:
            while (!finished())
                std::this_thread::yield();
            return;
        default:
            while (!finished())
                spin_pause();
    }
}

void CpuEvent::sleep_until_finished() {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_nr_waiters;
    m_changed.wait(lock, [this] { return m_issued == nr_done(); });
    if (--m_nr_waiters == 0)
        m_changed.notify_all();  // to the destructor
}

void CpuEvent::wait_on_node(CompNode other) {
    KERN_CHECK(other.env().device_type() == CompNode::DeviceType::CPU);
    if (finished())
        return;
    auto& waiting = static_cast<CpuCompNodeImpl&>(*other.impl());
    uint64_t count = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_is_recording)
            return;
        // A recording cannot hold the wait, which counts on running once.
        KERN_CHECK(!waiting.active_recorder());
        count = m_issued;
        ++m_nr_waiters;
    }
    waiting.add_callback([this, count] { wait_for_count(count); });
}

void CpuEvent::wait_for_count(uint64_t count) {
    const auto reached = [&] { return nr_done() >= count; };
    spin_briefly(reached);
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, reached);
    if (--m_nr_waiters == 0)
        m_changed.notify_all();  // to the destructor
}

double CpuEvent::elapsed_until(CompNodeEvent& end) {
    KERN_CHECK(end.comp_node() == comp_node());
    auto& cpu_end = static_cast<CpuEvent&>(end);  // as all events of a CPU node are
    return std::chrono::duration<double>(cpu_end.time_reached() - time_reached()).count();
}

CpuEvent::Clock::time_point CpuEvent::time_reached() {
    KERN_CHECK((m_flags & TIMESTAMP) != 0 && finished());
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_time;
}

CompNode CpuEvent::comp_node() const {
    return CompNode(&m_node);
}

}  // namespace orb
