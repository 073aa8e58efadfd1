// A graph of vars and operators: owns its operators, infers shapes, plans memory, and compiles
// wanted vars into a function that is run again and again. Built and used by one thread at a time;
// different graphs are independent.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "graph/core/dedup_table.h"
#include "graph/core/events.h"
#include "graph/core/operator.h"
#include "graph/infer/inference_manager.h"
#include "graph/memory/var_memory_manager.h"
#include "graph/node/chunk_pool.h"
#include "graph/node/node_bound_object.h"

namespace orb {

class CallbackOperator;
class CompiledFunction;

using OutputCallback = std::function<void(const DeviceTensorND&)>;

// A wanted var, and optionally who gets its value in each run. A var without a callback is computed
// all the same.
struct OutputSpec {
    GraphVar* var = nullptr;
    OutputCallback callback;
};

class ComputeGraph final : public NodeBoundObject,
                           public std::enable_shared_from_this<ComputeGraph> {
public:
    // Options of later runs; the defaults are what the search runs with. Timing and recording need
    // events and recorders, which no node of this build has: asking for them stops the process.
    struct Options {
        bool timing = false;
        uint32_t record_level = 0;
    };

    static std::shared_ptr<ComputeGraph> make();
    ~ComputeGraph() override;

    Options& options() { return m_options; }
    GraphEvents& events() { return m_events; }
    InferenceManager& inference_manager() { return m_inference_manager; }
    VarMemoryManager& memory_manager() { return m_memory_manager; }

    // Takes the operator into the graph, or drops it in favour of an equal one that is there
    // already. Returns the one that is in the graph.
    GraphOperator* insert_operator(std::unique_ptr<GraphOperator> op);

    // A function that computes the vars, in place of the current one: only one function of a graph
    // can run, an older one must only be destroyed. An empty list stops the process.
    std::unique_ptr<CompiledFunction> compile(const std::vector<OutputSpec>& outputs);
    CompiledFunction* current_function() const { return m_current_function; }

    size_t nr_operators() const { return m_operators.size(); }
    GraphVar* find_var_by_id(size_t id) const;
    // The operators that read the var, in the order of their insertion; null for a foreign var.
    const std::vector<GraphOperator*>* var_receivers(const GraphVar* var) const;

    // Both graphs plan into one memory, for graphs that run one at a time; refused once compiled.
    void share_device_memory_with(ComputeGraph& other);
    // Frees planned memory; the next run allocates again.
    void clear_device_memory();
    // Where planned memory comes from; see `StaticMemorySource`.
    void static_memory_source(StaticMemorySource source);

    // For objects of the graph.
    size_t next_object_id() { return m_next_object_id++; }
    GraphVar* make_var(GraphOperator* owner);
    void destroy_var(GraphVar* var);
    GraphOperator* current_operator() const { return m_current_operator; }
    std::mutex& run_mutex() { return m_run_mutex; }
    void function_destroyed(CompiledFunction* function);

protected:
    std::shared_ptr<void> on_node_finalize() override;

private:
    ComputeGraph();

    GraphOperator* insert_new(std::unique_ptr<GraphOperator> op);
    void drop_duplicate(std::unique_ptr<GraphOperator> op);
    void publish_outputs(GraphOperator* op, bool add_flag);
    void register_receivers(GraphOperator* op);
    std::vector<GraphVar*> attach_callbacks(const std::vector<OutputSpec>& outputs);

    Options m_options;
    GraphEvents m_events;
    size_t m_next_object_id = 0;
    ChunkPool m_var_pool;
    std::vector<std::unique_ptr<GraphOperator>> m_operators;
    std::unordered_map<const GraphVar*, std::vector<GraphOperator*>> m_receivers;
    std::unordered_map<GraphVar*, CallbackOperator*> m_callback_operators;
    OperatorDedupTable m_dedup_table;
    InferenceManager m_inference_manager;
    VarMemoryManager m_memory_manager;
    GraphOperator* m_current_operator = nullptr;
    CompiledFunction* m_current_function = nullptr;
    bool m_compiling = false;
    std::mutex m_run_mutex;
};

}  // namespace orb
