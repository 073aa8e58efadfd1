// The graph itself: takes operators in, merges equal ones, keeps who reads what, and compiles.
#pragma once

#include <unordered_map>

#include "graph/construct/dedup_table.h"
#include "graph/core/compute_graph.h"
#include "graph/exec/graph_function.h"
#include "graph/infer/inference_manager_impl.h"
#include "graph/memory/var_memory_manager.h"
#include "graph/node/chunk_pool.h"

namespace orb {

class CallbackOperator;

class ComputeGraphImpl final : public ComputeGraph {
public:
    // `parent` is null for a graph of its own.
    explicit ComputeGraphImpl(ComputeGraphImpl* parent);
    ~ComputeGraphImpl() override;

    InferenceManager& inference_manager() override { return m_inference_manager; }
    VarMemoryManager& memory_manager() override { return m_memory_manager; }
    GraphOperator* insert_operator(std::unique_ptr<GraphOperator> op) override;
    void replace_var(GraphVar* var, GraphVar* by) override;
    GraphVar* current_output(const GraphOperator& op) const override {
        return m_dedup_table.current_output(op);
    }
    void add_extra_dependency(DependencyFlags flags, GraphVar* var, GraphOperator* op) override;
    std::unique_ptr<CompiledFunction> compile(const std::vector<OutputSpec>& outputs) override;
    CompiledFunction* current_function() const override { return m_current_function; }
    bool has_run_under_way() const override {
        return m_current_function && m_current_function->is_running_on_workers();
    }
    size_t version() const override { return m_version; }
    VarStepInfo var_step_info(const GraphVar* var) const override;
    std::shared_ptr<ComputeGraph> make_sub_graph() override;
    void wait_for_sub_graphs() override;
    size_t nr_operators() const override { return m_operators.size(); }
    GraphVar* find_var_by_id(size_t id) const override;
    const std::vector<GraphOperator*>* var_receivers(const GraphVar* var) const override;
    void share_device_memory_with(ComputeGraph& other) override;
    void clear_device_memory() override;
    void static_memory_source(StaticMemorySource source) override;
    size_t next_object_id() override { return (*m_next_object_id)++; }
    GraphVar* make_var(GraphOperator* owner) override;
    void destroy_var(GraphVar* var) override;
    GraphOperator* current_operator() const override { return m_current_operator; }
    void function_destroyed(CompiledFunction* function) override;

protected:
    std::shared_ptr<void> on_node_finalize() override;

private:
    GraphOperator* insert_new(std::unique_ptr<GraphOperator> op);
    void complete(GraphOperator* op);
    void undo_insertion(GraphOperator* op);
    void forget_outputs(const GraphOperator& op);
    void publish_outputs(GraphOperator* op, bool add_flag);
    void register_receivers(GraphOperator* op);
    void apply_extra_dependencies();
    std::vector<OutputSpec> prepare_compile(std::vector<OutputSpec> outputs);
    std::vector<GraphVar*> attach_callbacks(const std::vector<OutputSpec>& outputs);

    struct ExtraDependency {
        DependencyFlags flags;
        GraphVar* var;
        GraphOperator* op;
    };

    std::shared_ptr<size_t> m_next_object_id;  // shared by a graph and its sub-graphs
    std::vector<std::weak_ptr<ComputeGraph>> m_sub_graphs;
    ChunkPool m_var_pool;
    std::vector<std::unique_ptr<GraphOperator>> m_operators;
    std::unordered_map<const GraphVar*, std::vector<GraphOperator*>> m_receivers;
    std::unordered_map<size_t, GraphVar*> m_vars_by_id;  // of inserted operators
    std::unordered_map<GraphVar*, CallbackOperator*> m_callback_operators;
    OperatorDedupTable m_dedup_table;
    std::vector<ExtraDependency> m_extra_dependencies;
    InferenceManagerImpl m_inference_manager;
    VarMemoryManager m_memory_manager;
    GraphOperator* m_current_operator = nullptr;
    GraphFunction* m_current_function = nullptr;
    size_t m_version = 0;
    bool m_compiling = false;
};

}  // namespace orb
