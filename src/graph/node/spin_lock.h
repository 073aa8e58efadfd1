// Locks for a few instructions' work, such as linking a list node: a waiter spins, so nothing that
// can block may happen under them. Both are BasicLockable; any thread may use them. Both are
// constant-initialised and need no destruction, so static ones work at any time of the process.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "kernels/check.h"

namespace orb {

// Repeats `try_take` until it succeeds. The owner may have lost its processor, so a waiter gives
// its own away after a short while.
template <typename TryTake>
void spin_until(TryTake&& try_take) {
    constexpr int ROUNDS_BEFORE_YIELD = 64;
    for (int round = 0; !try_take(); ++round) {
        if (round >= ROUNDS_BEFORE_YIELD)
            std::this_thread::yield();
    }
}

class SpinLock {
public:
    void lock() {
        spin_until([this] {
            uint8_t expected = 0;
            return m_taken.load(std::memory_order_relaxed) == 0 &&
                   m_taken.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                                 std::memory_order_relaxed);
        });
    }
    void unlock() { m_taken.store(0, std::memory_order_release); }

private:
    std::atomic<uint8_t> m_taken{0};
};

// A thread that holds the lock may take it again; it is free after as many unlocks. Unlocking by
// another thread stops the process.
class RecursiveSpinLock {
public:
    void lock() {
        const std::thread::id self = std::this_thread::get_id();
        // Only this thread ever stores its own id, so a relaxed read answers "mine" reliably.
        if (m_owner.load(std::memory_order_relaxed) != self) {
            spin_until([this, self] {
                std::thread::id expected;
                return m_owner.compare_exchange_weak(expected, self, std::memory_order_acquire,
                                                     std::memory_order_relaxed);
            });
        }
        ++m_depth;
    }
    void unlock() {
        KERN_CHECK(m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id());
        KERN_CHECK(m_depth > 0);
        if (--m_depth == 0)
            m_owner.store(std::thread::id(), std::memory_order_release);
    }

private:
    std::atomic<std::thread::id> m_owner{};
    size_t m_depth = 0;  // touched by the owner only
};

}  // namespace orb
