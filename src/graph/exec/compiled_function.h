// A compiled list of wanted vars: run any number of times, with whatever shapes and memory the
// graph's sources have then. Keeps its graph alive. Used by one thread at a time.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/exec/exec_env.h"

namespace orb {

class CompiledFunction final : public NodeBoundObject {
public:
    CompiledFunction(std::shared_ptr<ComputeGraph> graph, std::vector<GraphOperator*> operators,
                     std::vector<GraphVar*> output_vars);
    ~CompiledFunction() override;

    // Starts a run, after a running one has ended. On a node without a worker everything has
    // happened on return. What a callback or the memory source throws passes through, and the
    // function can be run again.
    CompiledFunction& execute();
    // Waits for the end of the run; does nothing when there is none.
    void wait();

    // Seconds that the last run took on the node that took longest; 0 when timing is off. The run
    // must have been waited for.
    double last_run_time() const;
    // Calls the function on each operator in order until it returns false.
    void iterate_operators(const std::function<bool(GraphOperator*)>& function) const;
    const std::vector<GraphVar*>& output_vars() const { return m_output_vars; }
    size_t get_run_id() const { return m_run_count; }
    // Frees the graph's planned memory until the next run.
    void clear_device_memory();

    // For the graph.
    void force_replan() { m_force_replan = true; }
    // Another function of the graph takes this one's place.
    void retire();

protected:
    std::shared_ptr<void> on_node_finalize() override;

private:
    void build_env();

    std::shared_ptr<ComputeGraph> m_graph;
    std::vector<GraphOperator*> m_operators;
    std::vector<GraphVar*> m_output_vars;
    std::vector<CompNode> m_comp_nodes;  // in discovery order
    OperatorExecEnv m_exec_env;
    size_t m_run_count = 0;
    bool m_needs_init = true;
    bool m_force_replan = false;
    bool m_wait_needed = false;
};

}  // namespace orb
