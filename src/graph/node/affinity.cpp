#include "graph/node/affinity.h"

#include <sched.h>

#include <algorithm>
#include <thread>

#include "kernels/check.h"

namespace orb {

std::atomic<bool> enable_affinity{false};

int processor_count() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

void set_affinity(const std::vector<int>& cores) {
    cpu_set_t mask;
    CPU_ZERO(&mask);
    for (const int core : cores) {
        KERN_CHECK(core >= 0 && core < processor_count());
        if (core < CPU_SETSIZE)
            CPU_SET(static_cast<size_t>(core), &mask);
    }
    KERN_CHECK(sched_setaffinity(0, sizeof(mask), &mask) == 0);
}

}  // namespace orb
