#pragma once

#include <thread>
#include <vector>

// Runs body(0) to body(count - 1) at the same time, each on a thread of its own.
template <typename Body>
void run_together(size_t count, const Body& body) {
    std::vector<std::thread> threads;
    for (size_t t = 0; t < count; ++t)
        threads.emplace_back([&body, t] { body(t); });
    for (std::thread& thread : threads)
        thread.join();
}
