// A point in a node's task order that others can wait for. Whoever created an event owns it; any
// thread may use it, and the waits may outlast the call, but not the event: its destructor waits.
#pragma once

#include "graph/node/comp_node.h"

namespace orb {

class CompNodeEvent {
public:
    // Flag of `CompNode::create_event`: the event stores the time at which it is reached.
    static constexpr uint32_t TIMESTAMP = 1;

    virtual ~CompNodeEvent() = default;
    // Marks the place after the tasks given to the node so far.
    virtual void record() = 0;
    // The node has come to the place that was marked last. An event that was never recorded stops
    // the process, here and in the waits.
    virtual bool finished() = 0;
    virtual bool was_recorded() const = 0;
    virtual void wait_on_host() = 0;
    // Seconds from this event to `end`, both of one node, finished and with timestamps.
    virtual double elapsed_until(CompNodeEvent& end) = 0;
    // Later tasks of the other node, a CPU node, wait for this event.
    virtual void wait_on_node(CompNode other) = 0;
    virtual CompNode comp_node() const = 0;
};

}  // namespace orb
