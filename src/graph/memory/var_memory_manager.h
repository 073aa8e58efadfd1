// Decides where each var's value lives. Static vars get offsets in one block per node, planned
// before a run from their lifetimes in the operator order; dynamic ones get memory inside the run.
// An output may also live in an input's memory (forwarding). Belongs to one graph, used by its
// thread, but for the memory of dynamic vars, which the operators' steps take and give back.
#pragma once

#include <memory>
#include <vector>

#include "graph/infer/inference_manager_impl.h"
#include "graph/memory/chunk_sharing.h"
#include "graph/memory/device_memory.h"
#include "graph/memory/dynamic_memory.h"
#include "graph/memory/var_uses.h"
#include "graph/tensor/tensor.h"

namespace orb {

// What has happened to the memory of a function's vars since its last run.
enum class MemoryChange {
    NONE,
    REBOUND,    // a tensor that was bound has other memory, in the same layout
    REPLANNED,  // everything may have another place
};

class VarMemoryManager {
public:
    explicit VarMemoryManager(InferenceManagerImpl* inference);

    // Takes a compiled order, and the vars that must keep their value after the run.
    void set_operator_sequence(const std::vector<GraphOperator*>& sequence,
                               const std::vector<GraphVar*>& kept_vars);
    VarStepInfo step_info(const GraphVar* var) const { return m_uses.step_info(var); }
    // At the beginning of each run: brings shapes up to date and plans anew if any has changed, if
    // asked, or if the memory is gone.
    MemoryChange allocate_static_memory(bool force);
    // Marks the memory as in use for the time of a run; twice stops the process.
    class BusyMark : public DeviceMemory::BusyMark {
    public:
        explicit BusyMark(VarMemoryManager& manager) : DeviceMemory::BusyMark(manager.m_memory) {}
    };

    const std::shared_ptr<DeviceMemory>& device_memory() const { return m_memory; }

    // Inside a run, around an operator's computation.
    void allocate_dynamic_memory(GraphOperator* op) { m_dynamic.allocate_outputs(op); }
    // Frees dynamic vars that nobody will read any more.
    void release_unread(GraphOperator* op) { m_dynamic.release_unread(op); }

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
    // The same, but for memory that another graph's run still uses.
    void release_at_exit();
    void share_device_memory_with(VarMemoryManager& other) { m_memory = other.m_memory; }
    void static_memory_source(StaticMemorySource source) { m_source = std::move(source); }

private:
    struct LentMemory {
        GraphVar* var;
        const DeviceTensorND* tensor;
        const uint8_t* address;
        std::vector<GraphVar*> views;  // vars with static plans in this chunk
    };
    struct PlannedBlock {
        const void* key;
        const uint8_t* address;
    };
    struct Watch {  // an operator that wants to know when its outputs' memory has changed
        GraphOperator* op;
        std::function<void()> callback;
        std::vector<const uint8_t*> addresses;
    };

    void choose_dynamic_vars();
    void mark_dynamic(GraphVar* var);
    bool memory_is_in_place() const;
    // NONE, REBOUND, or REPLANNED where a plan is due.
    MemoryChange refresh_lent_memory();
    void plan();
    // Returns whether a block had to be replaced.
    bool plan_once();
    bool plan_block(const void* key, CompNode node, const std::vector<GraphVar*>& vars);
    void drop_plans();
    void bind_value(GraphVar* var);
    bool forward_input_forced(GraphVar* input, GraphVar* output);
    void tell_operators();
    const LentMemory* lent_memory_of(const MemChunk* chunk) const;
    // Vars with one key share a block.
    const void* block_key(CompNode node) const;

    InferenceManagerImpl* m_inference;
    std::shared_ptr<DeviceMemory> m_memory = std::make_shared<DeviceMemory>();
    StaticMemorySource m_source;
    std::vector<GraphOperator*> m_sequence;
    bool m_has_several_nodes = false;
    std::vector<GraphVar*> m_static_vars;
    InferenceManagerImpl::UpdateList m_update_list;
    VarUses m_uses;
    ChunkSharing m_sharing{m_uses};
    DynamicMemory m_dynamic;
    std::vector<LentMemory> m_lent;
    std::vector<PlannedBlock> m_planned_blocks;
    std::vector<Watch> m_watches;
    bool m_plan_valid = false;
};

}  // namespace orb
