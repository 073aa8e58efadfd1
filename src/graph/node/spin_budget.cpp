#include "graph/node/spin_budget.h"

#include <algorithm>
#include <atomic>
#include <chrono>

namespace orb {
namespace {

size_t measure() {
    constexpr double SPIN_MS = 5.0;
    constexpr size_t MOST_ROUNDS = 16777216;
    constexpr size_t LEAST_BUDGET = 100000;
    using Clock = std::chrono::steady_clock;

    // Relaxed: the join orders what the helper wrote, and nothing else hangs on the flags.
    std::atomic<bool> started{false};
    std::atomic<bool> stop{false};
    size_t rounds = 0;
    double elapsed_ms = 0;
    std::thread helper([&] {
        const Clock::time_point begin = Clock::now();
        started.store(true, std::memory_order_relaxed);
        spin_for(MOST_ROUNDS, [&] {
            ++rounds;
            return stop.load(std::memory_order_relaxed);
        });
        elapsed_ms = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    });
    while (!started.load(std::memory_order_relaxed))
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::nanoseconds(5000000));
    stop.store(true, std::memory_order_relaxed);
    helper.join();
    const double budget = SPIN_MS / elapsed_ms * static_cast<double>(rounds);
    return std::max(static_cast<size_t>(budget), LEAST_BUDGET);
}

}  // namespace

size_t spin_budget() {
    static const size_t budget = measure();
    return budget;
}

}  // namespace orb
