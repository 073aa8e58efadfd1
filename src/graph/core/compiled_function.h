// A compiled list of wanted vars: run any number of times, with whatever shapes and memory the
// graph's sources have then. Used by one thread at a time, but for `wait`: one thread may execute
// the function while others wait for its runs.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "graph/node/node_bound_object.h"

namespace orb {

class GraphOperator;
class GraphVar;

class CompiledFunction : public NodeBoundObject {
public:
    // Starts a run, after a running one has ended. On a node without a worker everything has
    // happened on return. What a callback or the memory source throws in this thread passes
    // through, and the function can be run again. A callback or an event handler that executes the
    // function, or waits for it, while this one starts a run stops the process.
    virtual CompiledFunction& execute() = 0;
    // Waits for the end of the run; does nothing when there is none.
    virtual void wait() = 0;
    // Seconds that the last run took on the node that took longest; 0 when timing is off. The run
    // must have been waited for.
    virtual double last_run_time() = 0;
    // Calls the function on each operator in order until it returns false.
    virtual void iterate_operators(const std::function<bool(GraphOperator*)>& function) const = 0;
    virtual const std::vector<GraphVar*>& output_vars() const = 0;
    // Number of the run: 1 before the first one, and one more with each.
    virtual size_t get_run_id() const = 0;
    // Frees the graph's planned memory until the next run.
    virtual void clear_device_memory() = 0;
};

}  // namespace orb
