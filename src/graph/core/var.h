// A value of a graph: the output of one operator, read by others. Vars come from their graph's pool
// and live as long as their operator. Used by one thread at a time, as the graph is.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "graph/core/graph_object.h"
#include "graph/core/mem_plan.h"
#include "graph/core/var_flags.h"
#include "graph/tensor/tensor.h"

namespace orb {

class GraphOperator;

class GraphVar final : public GraphObject {
public:
    using ShapeListener = std::function<void(GraphVar*)>;

    GraphVar(ComputeGraph* graph, GraphOperator* owner);

    GraphOperator* owner_operator() const { return m_owner; }
    // The var's own name, or its operator's.
    const std::string& name() const;
    bool has_name() const { return m_has_name; }
    GraphVar& name(std::string own_name);

    VarFlags flags() const { return m_flags; }
    bool has_flag(VarFlags bits) const { return (m_flags & bits) == bits; }
    // Combinations that contradict each other stop the process, and so does a bit that comes too
    // late: none is added once the var is in a compiled order.
    GraphVar& add_flag(VarFlags bits);
    // For the memory planner, which decides anew for each operator sequence.
    void set_planned_dynamic();
    void clear_planned_dynamic() {
        m_flags &= ~var_flag::PLANNED_DYNAMIC;
        m_is_planned = true;
    }
    // Whether memory is planned before a run, as opposed to allocated in it.
    bool is_static_storage() const;

    const kern::TensorShape& shape() const { return m_shape; }
    // Tells the listeners when the shape differs from the current one.
    GraphVar& shape(const kern::TensorShape& shape);
    // The shape is constant from now on.
    void freeze_shape() { m_shape_mutable = false; }
    // No shape is known.
    void clear_shape() { m_shape = kern::TensorShape(); }
    void set_shape_listener(const void* key, ShapeListener listener);

    CompNode comp_node() const { return m_comp_node; }
    // An existing node must share the new one's memory space.
    GraphVar& comp_node(CompNode node);
    kern::DType dtype() const { return m_device_value.dtype(); }
    // Set once.
    GraphVar& dtype(kern::DType dtype);
    const kern::TensorFormat* format() const { return m_format; }
    GraphVar& format(const kern::TensorFormat* format);
    // A layout of this var's shape, dtype and format with contiguous strides.
    kern::TensorLayout contiguous_layout() const;

    // Whether memory with the current shape is in place.
    bool has_device_value() const;
    // The value; asking before it has memory stops the process.
    const DeviceTensorND& device_value() const;

    MemPlan& mem_plan() { return m_mem_plan; }
    const MemPlan& mem_plan() const { return m_mem_plan; }
    // Puts the planned layout on the chunk's memory.
    void bind_device_value(const DeviceTensorStorage& chunk_memory);
    void drop_device_value();

    // Vars that become dynamic when this one does.
    const std::vector<GraphVar*>& dynamic_chain() const { return m_dynamic_chain; }
    // The follower is dynamic whenever this var is. At least one of the two is not in the graph
    // yet: links are made while an operator is inserted.
    void lead_storage_of(GraphVar* follower);
    // The follower is about to go, with its insertion.
    void stop_leading(const GraphVar* follower);

    // Readers of a dynamic var's value that have not run yet in this run; they may run on several
    // nodes.
    std::atomic<size_t> nr_readers_left{0};

    // Recorded in each run once the value is there, for readers on other threads; null where the
    // compiled order has none.
    CompNodeEvent* computed_event() const { return m_computed_event; }
    void computed_event(CompNodeEvent* event) { m_computed_event = event; }

protected:
    void release_node_resources() override;

private:
    GraphOperator* m_owner;
    bool m_has_name = false;
    bool m_shape_mutable = true;
    std::string m_name;
    VarFlags m_flags = 0;
    bool m_is_planned = false;
    kern::TensorShape m_shape;
    CompNode m_comp_node;
    const kern::TensorFormat* m_format = kern::default_format();
    DeviceTensorND m_device_value;
    MemPlan m_mem_plan;
    CompNodeEvent* m_computed_event = nullptr;
    std::unordered_map<const void*, ShapeListener> m_shape_listeners;
    std::vector<GraphVar*> m_dynamic_chain;
};

// One text for a list of vars, for reports and debuggers; entries carry their index when there is
// more than one.
std::string var_description(const std::vector<const GraphVar*>& vars);

}  // namespace orb
