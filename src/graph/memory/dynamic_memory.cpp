#include "graph/memory/dynamic_memory.h"

#include <algorithm>

#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {
namespace {

bool is_allocated_here(const GraphVar* var) {
    return !var->is_static_storage() && !var->has_flag(var_flag::NO_SYSTEM_ALLOC);
}

}  // namespace

void DynamicMemory::set_order(const std::vector<GraphOperator*>& order) {
    m_operators.clear();
    for (const GraphOperator* op : order) {
        const auto& inputs = op->properties().dependencies;
        const bool is_dynamic =
            std::any_of(op->output().begin(), op->output().end(),
                        [](const GraphVar* var) { return !var->is_static_storage(); }) ||
            std::any_of(inputs.begin(), inputs.end(),
                        [](const auto& entry) { return !entry.first->is_static_storage(); });
        if (is_dynamic)
            m_operators.insert(op);
    }
}

void DynamicMemory::allocate_outputs(GraphOperator* op) {
    if (!concerns(op))
        return;
    for (GraphVar* var : op->output()) {
        var->nr_readers_left.store(m_uses.of(var).nr_readers, std::memory_order_relaxed);
        if (is_allocated_here(var)) {
            var->mem_plan().reset();
            var->shape(m_inference.shape_of_var(var));
        }
    }
    op->plan_output_memory(true);
    for (GraphVar* var : op->output()) {
        if (!is_allocated_here(var))
            continue;
        MemPlan& plan = var->mem_plan();
        KERN_CHECK(plan.chunk);
        if (plan.chunk->status == MemChunk::Status::NONE) {
            KERN_CHECK(plan.chunk == &plan.own_chunk);
            plan.own_chunk.storage = DeviceTensorStorage(var->comp_node());
            plan.own_chunk.storage.ensure_size(plan.own_chunk.size);
            plan.own_chunk.status = MemChunk::Status::STORAGE;
        }
        m_bind(var);
    }
}

bool DynamicMemory::take_over(GraphVar* input, GraphVar* output) const {
    const MemPlan& from = input->mem_plan();
    MemPlan& to = output->mem_plan();
    // Ours are the chunk and the input's value; whoever else holds the memory may still read it.
    constexpr long OWN_HOLDERS = 2;
    const bool is_only_reader =
        input->nr_readers_left.load(std::memory_order_acquire) == 1 && !m_uses.of(input).kept;
    if (!is_only_reader || from.chunk != &from.own_chunk || from.chunk->nr_plans != 1 ||
        to.chunk != &to.own_chunk || from.chunk->status != MemChunk::Status::STORAGE ||
        !from.chunk->storage.has_owners(OWN_HOLDERS))
        return false;
    to.own_chunk.storage = from.chunk->storage;
    to.own_chunk.status = MemChunk::Status::STORAGE;
    return true;
}

void DynamicMemory::release_unread(GraphOperator* op) {
    if (!concerns(op))
        return;
    for (const auto& [var, flags] : op->properties().dependencies) {
        // Whoever counts to zero is the last, on whatever node; what the others did is done.
        if ((flags & dependency::READS_VALUE) && !var->is_static_storage() &&
            var->nr_readers_left.fetch_sub(1, std::memory_order_acq_rel) == 1)
            release(var);
    }
    for (GraphVar* var : op->output()) {
        if (!var->is_static_storage() && m_uses.of(var).nr_readers == 0)
            release(var);
    }
}

void DynamicMemory::release(GraphVar* var) const {
    if (m_uses.of(var).kept)
        return;
    var->drop_device_value();
    var->mem_plan().reset();
}

}  // namespace orb
