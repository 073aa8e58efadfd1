// The steps of a run, made once and walked by every run on the thread that starts it. They stand in
// the order of the operators, whatever their nodes, so a step waits only for steps before it and no
// circle of nodes that wait for each other can arise. Each node's own steps can be listed by name.
#pragma once

#include <string>
#include <vector>

#include "graph/core/exec_env.h"
#include "graph/node/comp_node_event.h"

namespace orb {

class GraphOperator;

struct Step {
    CompNode node;      // invalid for a step of the thread that walks
    bool is_inline;     // the node has no worker
    GraphOperator* op;  // null for a step of the function itself
    StepTask task;
};

// What a hook is told of a step that has run, on the thread that ran it. Seconds of one clock.
struct StepTime {
    const GraphOperator* op;
    CompNode node;
    double begin, end;
};
using StepHook = std::function<void(const StepTime&)>;

class StepList final : public OperatorExecEnv {
public:
    // The steps of one node, as indices into the list.
    struct NodeSteps {
        std::string name;
        CompNode node;
        std::vector<size_t> steps;
    };

    // Before the first task of the node. The name is for people.
    void add_node(CompNode node);
    // The operator to which further tasks belong.
    void begin_operator(GraphOperator* op) { m_current_operator = op; }
    void add_node_task(CompNode node, StepTask task) override;
    void add_host_task(StepTask task) override;
    // The walk marks the event, which must outlive the list's content.
    void add_record(CompNodeEvent& event) {
        add_host_task([&event] { event.record(); });
    }
    void pause() override { m_is_paused = true; }
    void resume() override { m_is_paused = false; }
    void clear();

    const std::vector<Step>& steps() const { return m_steps; }
    const std::vector<NodeSteps>& nodes() const { return m_nodes; }

    // Gives each node's steps to the node, as one task each; the kernels of the step run inside it.
    void run() const;
    // Runs all steps in this thread: of what they do, a recorder gets the kernels alone.
    void run_here() const;
    // Called after each node step of later runs; an empty one costs nothing.
    void step_hook(StepHook hook) { m_hook = std::move(hook); }

private:
    void run_on_worker(const Step& step) const;
    void run_step(const Step& step) const;

    std::vector<Step> m_steps;
    std::vector<NodeSteps> m_nodes;
    GraphOperator* m_current_operator = nullptr;
    bool m_is_paused = false;
    StepHook m_hook;
};

}  // namespace orb
