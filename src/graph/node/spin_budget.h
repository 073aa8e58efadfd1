// How long a thread spins before it sleeps: what it waits for is usually a few microseconds away,
// and a sleep costs more than that. Any thread.
#pragma once

#include <cstddef>
#include <thread>

namespace orb {

// Rounds of `spin_for` that take about 5 milliseconds; measured at the first call, which takes that
// long.
size_t spin_budget();

// Tells the processor that this thread waits in a loop.
inline void spin_pause() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

// Asks up to `rounds` times whether the condition holds, and gives the last answer. Now and then it
// offers its processor to others: on a single one, nothing can happen before.
template <typename Condition>
bool spin_for(size_t rounds, Condition&& condition) {
    constexpr size_t ROUNDS_BEFORE_YIELD = 64;
    for (size_t round = 1; round <= rounds; ++round) {
        if (condition())
            return true;
        if (round % ROUNDS_BEFORE_YIELD == 0)
            std::this_thread::yield();
        else
            spin_pause();
    }
    return condition();
}

}  // namespace orb
