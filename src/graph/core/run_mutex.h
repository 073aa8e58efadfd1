// Held while a run of a graph is started and while its end is waited for, by the thread that does
// so.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "kernels/check.h"

namespace orb {

class RunMutex final {
public:
    // A callback or a handler that starts the very function it was called by would wait here for
    // itself: that stops the process.
    void lock() {
        // Relaxed: only this thread ever stores its own id.
        KERN_CHECK(m_owner.load(std::memory_order_relaxed) != std::this_thread::get_id());
        m_mutex.lock();
        m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    void unlock() {
        m_owner.store(std::thread::id(), std::memory_order_relaxed);
        m_mutex.unlock();
    }

private:
    std::mutex m_mutex;
    std::atomic<std::thread::id> m_owner{};
};

}  // namespace orb
