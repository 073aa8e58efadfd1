// A computation of a graph: reads input vars, makes output vars. Built by the make function of its
// class, then owned by the graph. A graph and its operators are built and run by one thread at a
// time.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "graph/core/graph_object.h"
#include "graph/core/operator_config.h"
#include "graph/core/operator_properties.h"
#include "graph/core/var.h"

namespace orb {

class ComputeGraphImpl;
class OperatorExecEnv;

// The identity of an operator's class.
struct OperatorType {
    const char* name;
};

class GraphOperator : public GraphObject {
public:
    // How `add_input` orders the vars: as given; the added ones by id; all inputs by id (for
    // operators whose inputs may be exchanged, so that equal expressions merge).
    enum class InputOrder { AS_GIVEN, SORT_ADDED, SORT_ALL };

    ~GraphOperator() override;

    virtual const OperatorType* type_record() const = 0;
    const std::string& name() const { return m_name; }
    const OperatorConfig& config() const { return m_config; }
    const std::vector<GraphVar*>& input() const { return m_input; }
    const std::vector<GraphVar*>& output() const { return m_output; }
    GraphVar* input(size_t index) const { return m_input[index]; }
    GraphVar* output(size_t index) const { return m_output[index]; }
    // Those that are not volatile.
    std::vector<GraphVar*> kept_outputs() const;
    // The nodes of the outputs, each once.
    std::vector<CompNode> comp_nodes() const;
    const OperatorProperties& properties() const;
    bool inserted() const { return m_inserted; }
    // Carried for graph files; changes no order.
    int32_t priority() const { return m_priority; }
    void priority(int32_t priority) { m_priority = priority; }

    // Equal inputs, configuration and parameters give equal hashes and merge.
    virtual uint64_t hash() const;
    virtual bool is_same(const GraphOperator& other) const;

    // Appends this operator's tasks for one run.
    void execute(OperatorExecEnv& env);
    // Gives static outputs (dynamic ones when `dynamic`) a layout and a chunk, or forwards an
    // input's.
    virtual void plan_output_memory(bool dynamic);
    // Around `add_run_task`, and when a run that the operator took part in has ended.
    virtual void on_before_execute() {}
    virtual void on_after_execute() {}
    virtual void on_finish() {}
    // The operator's tasks were recorded for good and may outlive it: it gives away what they point
    // at beside the memory of vars, and makes or takes that anew when it is run again.
    virtual void hand_over(std::vector<std::shared_ptr<void>>& /*kept*/) {}
    // What the memory manager calls when the memory of the outputs has changed; empty for most.
    virtual std::function<void()> mem_status_changed_callback() { return {}; }

protected:
    friend class ComputeGraphImpl;    // takes operators into the graph
    friend class NodeOrderOptimizer;  // moves them to other nodes

    GraphOperator(ComputeGraph* graph, OperatorConfig config, const std::string& default_name);

    void add_input(const std::vector<GraphVar*>& vars, InputOrder order = InputOrder::AS_GIVEN);
    GraphVar* add_output();
    // An output with a name of its own: the operator's name, ":" and the suffix.
    GraphVar* add_output(const std::string& suffix);
    GraphVar* add_workspace_output();
    // Parameters take part in equality as words.
    void add_equality_key(uint64_t word);

    // Steps of insertion, in this order.
    virtual void assign_output_dtype();
    virtual void assign_output_nodes() = 0;
    virtual void assign_output_format();
    virtual void register_output_inference() = 0;
    virtual void on_inserted() {}

    // Called by `assign_output_nodes` when the outputs have their nodes, and when they have others.
    virtual void on_output_comp_node_set() {}
    // Starts from a device value dependency on every input.
    virtual OperatorProperties make_properties() const;
    // Says in what layouts the inputs must come.
    virtual void constrain_input_layouts(OperatorProperties& properties) const;
    virtual void add_run_task(OperatorExecEnv& env) = 0;

    // Records that an input must come in a layout that the operator can read; where it does not,
    // the operator's step begins with a contiguous copy.
    static void require_layout(OperatorProperties& properties, size_t input,
                               OperatorProperties::LayoutCheck check);
    static void require_contiguous_layout(OperatorProperties& properties, size_t input);
    static void require_monotone_layout(OperatorProperties& properties, size_t input);

    void release_node_resources() override {}

private:
    OperatorProperties& mutable_properties() const;
    void check_new_input(const GraphVar* var) const;
    kern::DType common_input_dtype() const;

    std::string m_name;
    OperatorConfig m_config;
    std::vector<GraphVar*> m_input;
    std::vector<GraphVar*> m_output;
    std::vector<uint64_t> m_equality_keys;
    int32_t m_priority = 0;
    mutable std::unique_ptr<OperatorProperties> m_properties;
    bool m_inserted = false;
};

}  // namespace orb
