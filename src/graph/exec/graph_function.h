// The compiled function of a graph: keeps the graph alive, and the operators' steps from run to
// run.
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "graph/core/compiled_function.h"
#include "graph/core/compute_graph.h"
#include "graph/exec/node_waits.h"
#include "graph/exec/run_timer.h"
#include "graph/exec/step_list.h"
#include "graph/memory/var_memory_manager.h"
#include "graph/node/task_recorder.h"

namespace orb {

class GraphFunction final : public CompiledFunction {
public:
    GraphFunction(std::shared_ptr<ComputeGraph> graph, std::vector<GraphOperator*> operators,
                  std::vector<GraphVar*> output_vars);
    // Waits for the run, without telling anybody of its end.
    ~GraphFunction() override;

    CompiledFunction& execute() override;
    void wait() override;
    double last_run_time() override;
    void iterate_operators(const std::function<bool(GraphOperator*)>& function) const override;
    const std::vector<GraphVar*>& output_vars() const override { return m_output_vars; }
    size_t get_run_id() const override { return m_run_count; }
    void clear_device_memory() override;

    // Tells the hook of every step of later runs, on the thread that ran it; replays run no steps.
    void step_hook(StepHook hook) { m_steps.step_hook(std::move(hook)); }
    // The steps of the last run.
    const StepList& steps() const { return m_steps; }

    // For the graph.
    bool runs_inline() const { return m_runs_inline; }
    bool is_running_on_workers() const { return !m_runs_inline && m_wait_needed; }
    void force_replan() { m_force_replan = true; }
    // Records a run without any and gives what replays it, or null if the function cannot be
    // recorded. Afterwards this function is only destroyed.
    std::unique_ptr<CompiledFunction> record_for_good();
    // Another function of the graph takes this one's place: waits for the run and lets go of the
    // operators.
    void retire();

protected:
    std::shared_ptr<void> on_node_finalize() override;

private:
    void start_run();
    void finish_run();
    void build_steps();
    bool can_be_recorded() const;
    std::unique_ptr<TaskRecorder> record();
    void replay();
    void end_run();
    void drop_steps();

    std::shared_ptr<ComputeGraph> m_graph;
    std::vector<GraphOperator*> m_operators;
    std::vector<GraphVar*> m_output_vars;
    std::vector<CompNode> m_comp_nodes;  // in discovery order
    bool m_runs_inline = true;           // no node has a worker: a run ends within `execute`
    std::optional<NodeWaits> m_waits;
    std::optional<RunTimer> m_timer;
    StepList m_steps;
    std::unique_ptr<TaskRecorder> m_recorder;
    // While a run is under way.
    std::optional<VarMemoryManager::BusyMark> m_busy;
    size_t m_run_count = 1;
    std::optional<double> m_last_run_time;
    bool m_can_be_recorded = false;
    bool m_needs_init = true;
    bool m_force_replan = false;
    std::atomic<bool> m_wait_needed{false};  // changed under the run mutex
};

}  // namespace orb
