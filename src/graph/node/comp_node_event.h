// A point in a node's task order that others can wait for. No node of this build makes events yet:
// inline nodes have nothing to wait for.
#pragma once

#include "graph/node/comp_node.h"

namespace orb {

class CompNodeEvent {
public:
    virtual ~CompNodeEvent() = default;
    // Marks the place after the tasks given to the node so far.
    virtual void record() = 0;
    virtual bool finished() = 0;
    virtual void wait_on_host() = 0;
    // Seconds from this event to `end`, both of one node, finished and with timestamps.
    virtual double elapsed_until(CompNodeEvent& end) = 0;
    // Later tasks of the other node wait for this event.
    virtual void wait_on_node(CompNode other) = 0;
    virtual CompNode comp_node() const = 0;
};

}  // namespace orb
