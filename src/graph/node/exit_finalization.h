// Gives the nodes' resources back when the process ends or the library is unloaded.
#pragma once

#include "graph/node/comp_node.h"

namespace orb {

// Has the finalization run at exit; each type's first call counts. Any thread.
void register_exit_finalization(CompNode::DeviceType type);

// Finalizes the objects bound to nodes, then the nodes. A further run finds nothing left to do.
// Afterwards nodes give no memory and run no tasks, but memory and objects of theirs may still be
// released. The default CPU node goes on working.
void finalize_nodes();

}  // namespace orb
