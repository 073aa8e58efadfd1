// Binding threads to processor cores. Any thread; each call is about the calling thread.
#pragma once

#include <atomic>
#include <vector>

namespace orb {

// Whether the worker of device n is bound to core n; read when a worker starts. Nobody sets it by
// itself.
extern std::atomic<bool> enable_affinity;

// Cores of this machine, at least 1.
int processor_count();

// From now on the calling thread runs on these cores only. A core that the machine does not have
// stops the process.
void set_affinity(const std::vector<int>& cores);

}  // namespace orb
