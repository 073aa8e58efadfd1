// Decides where each var's value lives. Static vars get offsets in one block per memory node,
// planned before a run from their lifetimes in the operator order; dynamic ones get memory inside
// the run. An output may also live in an input's memory (forwarding). Belongs to one graph, used by
// its thread.
#pragma once

#include <functional>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/infer/inference_manager_impl.h"
#include "graph/tensor/tensor.h"

namespace orb {

class GraphOperator;
struct MemChunk;

// The blocks that planned vars live in, one per memory node; shared by graphs that run one at a
// time.
struct DeviceMemory {
    std::unordered_map<const void*, DeviceTensorStorage> blocks;
    bool busy = false;
};

class VarMemoryManager {
public:
    explicit VarMemoryManager(InferenceManagerImpl* inference);

    // Takes a compiled order, and the vars that must keep their value after the run.
    void set_operator_sequence(const std::vector<GraphOperator*>& sequence,
                               const std::vector<GraphVar*>& kept_vars);
    // At the beginning of each run: brings shapes up to date and plans anew if any has changed, if
    // asked, or if the memory is gone. Returns whether it did.
    bool allocate_static_memory(bool force);
    // Marks the memory as in use for the time of a run; twice stops the process.
    class BusyMark {
    public:
        explicit BusyMark(VarMemoryManager& manager);
        ~BusyMark() { m_memory->busy = false; }
        BusyMark(const BusyMark&) = delete;
        BusyMark& operator=(const BusyMark&) = delete;

    private:
        std::shared_ptr<DeviceMemory> m_memory;
    };

    // Inside a run, around an operator's computation.
    void allocate_dynamic_memory(GraphOperator* op);
    // Frees dynamic vars that nobody will read any more.
    void release_unread(GraphOperator* op);

    // For `plan_output_memory` of operators.
    //
    // The output is a view of a region of the input and is never written. False when that cannot
    // be, as between planned and dynamic memory; then the operator has to copy.
    bool forward_input_readonly(GraphVar* input, GraphVar* output, const SubTensorRegion& region);
    // The output takes over the input's memory, if this operator is its last reader and the layouts
    // agree. `forced`, for operators that change their input on purpose, takes over any memory but
    // a constant's, lent and dynamic memory too, whoever reads it later.
    bool forward_input_writable(GraphVar* input, GraphVar* output, bool forced = false);
    // The var lives in the memory of a tensor that its operator keeps. Before each run the tensor
    // is looked at again: new memory of the same layout is taken over without a new plan.
    void lend(GraphVar* var, const DeviceTensorND* tensor);

    // Whether a planned var that is read after the operator has its value already when the operator
    // runs: its memory is lent, or it is an earlier operator's.
    bool has_value_before(const GraphVar* var, const GraphOperator* op) const;

    // At run time, for vars without system allocation: the value is this tensor, or another var's.
    void adopt_tensor(GraphVar* var, const DeviceTensorND& tensor);
    void adopt_var_memory(GraphVar* var, const GraphVar* source);

    void clear_device_memory();
    void share_device_memory_with(VarMemoryManager& other) { m_memory = other.m_memory; }
    void static_memory_source(StaticMemorySource source) { m_source = std::move(source); }

private:
    struct VarUse {
        size_t writer = 0;       // step
        size_t last_reader = 0;  // step; the writer's own when nobody reads
        size_t nr_readers = 0;
        bool kept = false;
    };
    struct Overwrite {
        MemChunk* src;
        MemChunk* dest;
    };
    struct LentMemory {
        GraphVar* var;
        const DeviceTensorND* tensor;
        const uint8_t* address;
        std::vector<GraphVar*> sharers;  // vars with static plans in this chunk
    };

    void record_uses(const std::vector<GraphVar*>& kept_vars);
    void choose_dynamic_vars();
    void mark_dynamic(GraphVar* var);
    bool memory_is_in_place() const;
    bool refresh_lent_memory();
    void plan();
    void drop_plans();
    void release_if_unread(GraphVar* var);
    void plan_node(CompNode node, const std::vector<GraphVar*>& vars);
    void ensure_block(CompNode node, size_t size);
    void bind_value(GraphVar* var);
    bool forward_input_forced(GraphVar* input, GraphVar* output);
    bool is_last_read(const GraphVar* input, const GraphVar* output) const;
    size_t end_of_life(const MemChunk* chunk) const;

    InferenceManagerImpl* m_inference;
    std::shared_ptr<DeviceMemory> m_memory = std::make_shared<DeviceMemory>();
    StaticMemorySource m_source;
    std::vector<GraphOperator*> m_sequence;
    std::vector<GraphVar*> m_static_vars;
    std::unordered_set<const GraphOperator*>
        m_dynamic_operators;  // with a dynamic var at either end
    InferenceManagerImpl::UpdateList m_update_list;
    std::unordered_map<const GraphVar*, VarUse> m_uses;
    std::unordered_map<const MemChunk*, std::vector<GraphVar*>> m_forwarded;  // views of a chunk
    std::vector<Overwrite> m_overwrites;
    std::vector<LentMemory> m_lent;
    std::vector<std::pair<const void*, const uint8_t*>> m_planned_blocks;  // memory space, address
    bool m_plan_valid = false;
};

}  // namespace orb
