// The compiled function of a graph: keeps the graph alive, and the operators' tasks from run to run.
#pragma once

#include <memory>

#include "graph/core/compiled_function.h"
#include "graph/core/compute_graph.h"
#include "graph/exec/step_list.h"

namespace orb {

class GraphFunction final : public CompiledFunction {
public:
    GraphFunction(std::shared_ptr<ComputeGraph> graph, std::vector<GraphOperator*> operators,
                  std::vector<GraphVar*> output_vars);
    ~GraphFunction() override;

    CompiledFunction& execute() override;
    void wait() override;
    double last_run_time() override;
    void iterate_operators(const std::function<bool(GraphOperator*)>& function) const override;
    const std::vector<GraphVar*>& output_vars() const override { return m_output_vars; }
    size_t get_run_id() const override { return m_run_count; }
    void clear_device_memory() override;

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
    StepList m_exec_env;
    size_t m_run_count = 1;
    bool m_needs_init = true;
    bool m_force_replan = false;
    bool m_wait_needed = false;
};

}  // namespace orb
