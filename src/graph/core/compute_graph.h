// A graph of vars and operators: owns its operators, infers shapes, plans memory, and compiles
// wanted vars into a function that is run again and again. Built and used by one thread at a time;
// different graphs are independent.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "graph/core/events.h"
#include "graph/core/inference_manager.h"
#include "graph/core/node_order_optimizer.h"
#include "graph/core/operator.h"
#include "graph/core/run_mutex.h"
#include "graph/node/node_bound_object.h"
#include "graph/tensor/tensor.h"

namespace orb {

class CompiledFunction;
class VarMemoryManager;

using OutputCallback = std::function<void(const DeviceTensorND&)>;

// A wanted var, and optionally who gets its value in each run. A var without a callback is computed
// all the same.
struct OutputSpec {
    GraphVar* var = nullptr;
    OutputCallback callback;
};

// Rewrites what computes the wanted vars: gives the vars that stand in their places, in the same
// order. Runs while the graph compiles and inserts what it needs.
using GraphPass = std::function<std::vector<GraphVar*>(const std::vector<GraphVar*>&)>;

// Makes storage of at least the given size on the node. May throw: then the run that asked ends
// with the exception, and the next run plans again.
using StaticMemorySource = std::function<DeviceTensorStorage(CompNode, size_t)>;

// Positions of operators in a compiled order.
struct VarStepInfo {
    size_t writer = 0;
    size_t last_reader = 0;  // the writer's own when nobody reads
    size_t nr_readers = 0;
};

class ComputeGraph : public NodeBoundObject, public std::enable_shared_from_this<ComputeGraph> {
public:
    // Options of functions that are compiled later; the defaults are what the search runs with.
    struct Options {
        bool timing = false;  // see `CompiledFunction::last_run_time`
        // 1: a function whose operators are on one node with a worker, with static storage all,
        // is recorded in its first run; later runs replay its kernels while memory and shapes stay.
        // 2: `compile` records it at once, with the memory and shapes that the sources have then,
        // and returns a function that only replays and outlives the graph (ReplayFunction); the
        // graph has no current function then. A function that cannot be recorded is a plain one.
        uint32_t record_level = 0;
        bool never_record = false;
        bool events = true;  // whether `before_run` and `run_finished` are given
        // What `compile` does to the wanted vars first, in this order. A function's output vars are
        // those that came out.
        std::vector<GraphPass> passes;
    };

    static std::shared_ptr<ComputeGraph> make();

    Options& options() { return m_options; }
    GraphEvents& events() { return m_events; }
    NodeOrderOptimizer& node_order_optimizer() { return m_node_order_optimizer; }
    virtual InferenceManager& inference_manager() = 0;
    virtual VarMemoryManager& memory_manager() = 0;

    // Takes the operator into the graph, or drops it in favour of an equal one that is there
    // already. Returns the one that is in the graph. An exception of the operator (of a rule, say)
    // leaves the graph without it.
    virtual GraphOperator* insert_operator(std::unique_ptr<GraphOperator> op) = 0;

    // A pass has put `by` in the place of `var`, which has its shape and dtype: equal expressions
    // that are made later give `by`. Refused for vars of different graphs and for circles.
    virtual void replace_var(GraphVar* var, GraphVar* by) = 0;
    // What a make function gives for an operator of the graph: its first output, or what has
    // replaced that.
    virtual GraphVar* current_output(const GraphOperator& op) const = 0;
    // The next compilation sets what the operator needs of the var, which need not be an input; 0
    // takes an entry out.
    virtual void add_extra_dependency(DependencyFlags flags, GraphVar* var, GraphOperator* op) = 0;

    // A function that computes the vars, in place of the current one: only one function of a graph
    // can run, an older one must only be destroyed. An empty list stops the process.
    virtual std::unique_ptr<CompiledFunction> compile(const std::vector<OutputSpec>& outputs) = 0;
    virtual CompiledFunction* current_function() const = 0;
    // A run has been started on workers, and nobody has waited for it yet.
    virtual bool has_run_under_way() const = 0;
    // Counts the functions that were compiled.
    virtual size_t version() const = 0;
    // When the current function writes and reads the var; all zero for a var that it does not use.
    virtual VarStepInfo var_step_info(const GraphVar* var) const = 0;

    // A graph of its own whose objects count their ids together with this one's. `find_var_by_id`
    // searches it too, and a run of this graph has ended once the sub-graphs' runs have. Owned by
    // whoever holds the pointer.
    virtual std::shared_ptr<ComputeGraph> make_sub_graph() = 0;
    virtual void wait_for_sub_graphs() = 0;

    // A shared pointer to the graph. Calls the clean-up hook, if there is one.
    std::shared_ptr<ComputeGraph> shared_self();
    void clean_up_hook(std::function<void()> hook) { m_clean_up_hook = std::move(hook); }

    virtual size_t nr_operators() const = 0;
    // Of this graph and its sub-graphs, depth first; null when there is none.
    virtual GraphVar* find_var_by_id(size_t id) const = 0;
    // The operators that read the var, in the order of their insertion; null for a foreign var.
    virtual const std::vector<GraphOperator*>* var_receivers(const GraphVar* var) const = 0;

    // Both graphs plan into one memory, for graphs that run one at a time; refused once compiled.
    virtual void share_device_memory_with(ComputeGraph& other) = 0;
    // Frees planned memory; the next run allocates again.
    virtual void clear_device_memory() = 0;
    // Where planned memory comes from; see `StaticMemorySource`.
    virtual void static_memory_source(StaticMemorySource source) = 0;

    // For objects of the graph.
    virtual size_t next_object_id() = 0;
    virtual GraphVar* make_var(GraphOperator* owner) = 0;
    virtual void destroy_var(GraphVar* var) = 0;
    // The operator that is being inserted.
    virtual GraphOperator* current_operator() const = 0;
    RunMutex& run_mutex() { return m_run_mutex; }
    virtual void function_destroyed(CompiledFunction* function) = 0;

protected:
    ComputeGraph() = default;

private:
    Options m_options;
    GraphEvents m_events;
    NodeOrderOptimizer m_node_order_optimizer;
    std::function<void()> m_clean_up_hook;
    RunMutex m_run_mutex;
};

}  // namespace orb
