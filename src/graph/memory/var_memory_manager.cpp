#include "graph/memory/var_memory_manager.h"

#include <algorithm>
#include <unordered_set>

#include "graph/core/operator.h"
#include "graph/memory/static_plan.h"
#include "kernels/check.h"

namespace orb {
namespace {

// Relations of two byte ranges of one chunk.
enum class Overlap { DISJOINT = 0, IDENTICAL = 1, PARTLY = 2 };

Overlap compare_spans(const MemPlan& a, const MemPlan& b) {
    const auto range = [](const MemPlan& plan) {
        const kern::Span span = plan.layout.span();
        return std::make_pair(plan.offset_byte + span.low_byte,
                              plan.offset_byte + static_cast<ptrdiff_t>(span.high_byte));
    };
    const auto first = range(a);
    const auto second = range(b);
    if (first.second <= second.first || second.second <= first.first)
        return Overlap::DISJOINT;
    return first == second ? Overlap::IDENTICAL : Overlap::PARTLY;
}

}  // namespace

VarMemoryManager::VarMemoryManager(InferenceManagerImpl* inference)
    : m_inference(inference),
      m_dynamic(m_uses, *inference, [this](GraphVar* var) { bind_value(var); }) {}

void VarMemoryManager::set_operator_sequence(const std::vector<GraphOperator*>& sequence,
                                             const std::vector<GraphVar*>& kept_vars) {
    drop_plans();
    m_sequence = sequence;
    m_uses = VarUses(sequence, kept_vars);
    choose_dynamic_vars();
    m_static_vars.clear();
    m_watches.clear();
    std::unordered_set<const void*> nodes;
    std::vector<GraphVar*> late_vars;  // dynamic, or looked at by value
    for (GraphOperator* op : m_sequence) {
        if (auto callback = op->mem_status_changed_callback())
            m_watches.push_back({op, std::move(callback), {}});
        for (CompNode node : op->comp_nodes())
            nodes.insert(node.impl());
        for (GraphVar* var : op->output()) {
            (var->is_static_storage() ? m_static_vars : late_vars).push_back(var);
        }
        for (const auto& [var, flags] : op->properties().dependencies) {
            if (flags & dependency::HOST_VALUE)
                late_vars.push_back(var);
        }
    }
    m_has_several_nodes = nodes.size() > 1;
    m_dynamic.set_order(m_sequence);
    m_update_list = m_inference->make_update_list(m_static_vars, late_vars);
}

void VarMemoryManager::choose_dynamic_vars() {
    for (GraphOperator* op : m_sequence) {
        for (GraphVar* var : op->output())
            var->clear_planned_dynamic();
    }
    for (GraphOperator* op : m_sequence) {
        const auto& deps = op->properties().dependencies;
        const bool is_dynamic = std::any_of(deps.begin(), deps.end(), [&](const auto& dep) {
            return (dep.second & dependency::HOST_VALUE_DYNAMIC) &&
                   m_inference->value_kind(dep.first) != InferKind::CONSTANT;
        });
        for (GraphVar* var : op->output()) {
            const bool known_before_run =
                var->has_flag(var_flag::FORCE_STATIC) || is_static(m_inference->shape_kind(var));
            if ((is_dynamic || !known_before_run) && !(var->flags() & var_flag::DYNAMIC_BITS))
                mark_dynamic(var);
        }
    }
}

// What is told to depend on a dynamic var's storage becomes dynamic with it.
void VarMemoryManager::mark_dynamic(GraphVar* var) {
    std::vector<GraphVar*> pending{var};
    std::unordered_set<GraphVar*> seen;  // chains may be circles
    while (!pending.empty()) {
        GraphVar* current = pending.back();
        pending.pop_back();
        if (current->flags() & (var_flag::PLANNED_DYNAMIC | var_flag::PERSISTENT_STATIC) ||
            !seen.insert(current).second)
            continue;
        if (!current->has_flag(var_flag::NO_SYSTEM_ALLOC))
            current->set_planned_dynamic();
        pending.insert(pending.end(), current->dynamic_chain().begin(),
                       current->dynamic_chain().end());
    }
}

MemoryChange VarMemoryManager::allocate_static_memory(bool force) {
    m_inference->update(m_update_list);
    // Changed shapes stay noted until there is a plan for them, whatever stands in its way.
    MemoryChange change = MemoryChange::REPLANNED;
    if (!m_update_list.changed && !force && m_plan_valid && memory_is_in_place())
        change = refresh_lent_memory();
    if (change == MemoryChange::REPLANNED)
        plan();
    if (change != MemoryChange::NONE)
        tell_operators();
    return change;
}

void VarMemoryManager::drop_plans() {
    m_plan_valid = false;
    for (GraphOperator* op : m_sequence) {
        for (GraphVar* var : op->output()) {
            var->drop_device_value();
            var->mem_plan().reset();
        }
    }
}

bool VarMemoryManager::memory_is_in_place() const {
    return std::all_of(m_planned_blocks.begin(), m_planned_blocks.end(), [&](const auto& planned) {
        return m_memory->address(planned.key) == planned.address;
    });
}

MemoryChange VarMemoryManager::refresh_lent_memory() {
    MemoryChange change = MemoryChange::NONE;
    for (LentMemory& lent : m_lent) {
        MemPlan& plan = lent.var->mem_plan();
        if (!lent.tensor->layout().same_layout(plan.layout))
            return MemoryChange::REPLANNED;
        const uint8_t* address = lent.tensor->raw_ptr();
        if (address == lent.address)
            continue;
        plan.own_chunk.storage = lent.tensor->storage();
        lent.address = address;
        bind_value(lent.var);
        for (GraphVar* view : lent.views)
            bind_value(view);
        change = MemoryChange::REBOUND;
    }
    return change;
}

// An operator may plan its outputs by where its inputs lie, so a block that moves asks for a second
// plan. That one finds the block large enough.
void VarMemoryManager::plan() {
    if (plan_once())
        plan_once();
    m_update_list.changed = false;
    m_plan_valid = true;
}

bool VarMemoryManager::plan_once() {
    m_sharing.clear();
    m_lent.clear();
    m_planned_blocks.clear();
    // Values go first: they would keep a block alive that is about to be replaced.
    drop_plans();
    for (GraphOperator* op : m_sequence)
        op->plan_output_memory(false);

    std::vector<std::pair<CompNode, std::vector<GraphVar*>>> by_block;
    for (GraphVar* var : m_static_vars) {
        const MemPlan& plan = var->mem_plan();
        if (plan.chunk != &plan.own_chunk || plan.own_chunk.status != MemChunk::Status::NONE)
            continue;
        const void* key = block_key(var->comp_node());
        auto found = std::find_if(by_block.begin(), by_block.end(),
                                  [&](const auto& entry) { return block_key(entry.first) == key; });
        if (found == by_block.end())
            found = by_block.insert(found, {var->comp_node(), {}});
        found->second.push_back(var);
    }
    bool has_moved = false;
    for (const auto& [node, vars] : by_block)
        has_moved |= plan_block(block_key(node), node, vars);
    for (GraphVar* var : m_static_vars) {
        if (var->mem_plan().chunk)
            bind_value(var);
    }
    for (LentMemory& lent : m_lent)
        lent.views = m_sharing.views(&lent.var->mem_plan().own_chunk);
    return has_moved;
}

bool VarMemoryManager::plan_block(const void* key, CompNode node,
                                  const std::vector<GraphVar*>& vars) {
    std::vector<ChunkLife> lives;
    for (GraphVar* var : vars) {
        MemChunk& chunk = var->mem_plan().own_chunk;
        lives.push_back({&chunk, m_uses.of(var).writer, m_sharing.end_of_life(&chunk)});
    }
    const StaticPlan plan = plan_chunks(lives, m_sharing.overwrites(), node.memory_alignment());
    const uint8_t* before = m_memory->address(key);
    const DeviceTensorStorage& block = m_memory->ensure(key, node, plan.size, m_source);
    for (size_t i = 0; i < lives.size(); ++i) {
        lives[i].chunk->static_offset = plan.offsets[i];
        lives[i].chunk->status = MemChunk::Status::STATIC;
    }
    if (plan.size == 0)
        return false;
    m_planned_blocks.push_back({key, block.ptr()});
    return block.ptr() != before;
}

const void* VarMemoryManager::block_key(CompNode node) const {
    // Tasks of several nodes have no common order, so that memory of one cannot be planned with
    // another's. A function of one node shares its block with whoever shares the memory space.
    return m_has_several_nodes ? node.impl() : node.memory_space();
}

void VarMemoryManager::bind_value(GraphVar* var) {
    const MemChunk& chunk = *var->mem_plan().chunk;
    if (chunk.status == MemChunk::Status::STATIC) {
        const DeviceTensorStorage& block = m_memory->block(block_key(chunk.owner->comp_node()));
        var->bind_device_value(block.sub(chunk.static_offset));
    } else {
        var->bind_device_value(chunk.storage);
    }
}

void VarMemoryManager::tell_operators() {
    for (Watch& watch : m_watches) {
        std::vector<const uint8_t*> addresses;
        for (const GraphVar* var : watch.op->output())
            addresses.push_back(var->has_device_value() ? var->device_value().raw_ptr() : nullptr);
        if (addresses == watch.addresses)
            continue;
        watch.addresses = std::move(addresses);
        watch.callback();
    }
}

bool VarMemoryManager::forward_input_readonly(GraphVar* input, GraphVar* output,
                                              const SubTensorRegion& region) {
    if (input->has_flag(var_flag::VOLATILE_CONTENT) || !input->mem_plan().chunk)
        return false;
    // Planned memory would not know of a view that is made in the run, nor can a plan view what
    // only the run allocates.
    if (input->is_static_storage() != output->is_static_storage())
        return false;
    MemPlan& plan = output->mem_plan();
    plan.share_chunk(input->mem_plan(), region.layout(), region.offset_byte());
    if (output->is_static_storage())
        m_sharing.add_view(plan.chunk, output);
    return true;
}

bool VarMemoryManager::forward_input_forced(GraphVar* input, GraphVar* output) {
    const MemPlan& from = input->mem_plan();
    // The memory of a constant is shared by graphs. And nothing orders this operator behind a
    // reader on another node.
    if (!from.chunk || m_uses.of(input).read_elsewhere ||
        (lent_memory_of(from.chunk) &&
         m_inference->value_kind(from.chunk->owner) == InferKind::CONSTANT))
        return false;
    m_sharing.mark_written(from.chunk);
    return forward_input_readonly(input, output, SubTensorRegion(from.layout, 0));
}

bool VarMemoryManager::forward_input_writable(GraphVar* input, GraphVar* output, bool forced) {
    if (forced)
        return forward_input_forced(input, output);
    MemPlan& from = input->mem_plan();
    MemPlan& to = output->mem_plan();
    if (!from.chunk || !to.chunk || input->comp_node() != output->comp_node() ||
        input->is_static_storage() != output->is_static_storage())
        return false;
    if (input->dtype() != output->dtype() || !from.layout.same_layout(to.layout))
        return false;
    if (!output->is_static_storage())
        return from.offset_byte == 0 && m_dynamic.take_over(input, output);
    // Memory that outlives the run belongs to somebody else.
    if (from.chunk->status != MemChunk::Status::NONE || input->has_flag(var_flag::PERSISTENT))
        return false;
    if (!m_sharing.is_last_read(input, output))
        return false;
    if (from.offset_byte != 0 || from.chunk->size != to.own_chunk.size)
        return false;
    KERN_CHECK(compare_spans(from, to) != Overlap::PARTLY);
    return m_sharing.add_overwrite(to.chunk, from.chunk);
}

void VarMemoryManager::lend(GraphVar* var, const DeviceTensorND* tensor) {
    KERN_CHECK(tensor->dtype() == var->dtype());
    MemPlan& plan = var->mem_plan();
    plan.use_own_chunk(tensor->layout(), tensor->layout().span().high_byte);
    plan.own_chunk.storage = tensor->storage();
    plan.own_chunk.status = MemChunk::Status::STORAGE;
    m_lent.push_back({var, tensor, tensor->raw_ptr(), {}});
}

const VarMemoryManager::LentMemory* VarMemoryManager::lent_memory_of(const MemChunk* chunk) const {
    const auto found = std::find_if(m_lent.begin(), m_lent.end(), [chunk](const LentMemory& lent) {
        return lent.var == chunk->owner;
    });
    return found == m_lent.end() ? nullptr : &*found;
}

bool VarMemoryManager::has_value_before(const GraphVar* var, const GraphOperator* op) const {
    const MemChunk* chunk = var->mem_plan().chunk;
    if (!var->is_static_storage() || !chunk)
        return false;
    // Lent memory holds its value from the start, unless an operator changes it on purpose.
    return (lent_memory_of(chunk) && !m_sharing.is_written(chunk)) ||
           m_uses.of(var).writer < m_uses.of(op->output(0)).writer;
}

void VarMemoryManager::adopt_tensor(GraphVar* var, const DeviceTensorND& tensor) {
    KERN_CHECK(var->has_flag(var_flag::NO_SYSTEM_ALLOC));
    KERN_CHECK(tensor.comp_node().memory_space() == var->comp_node().memory_space());
    KERN_CHECK(tensor.dtype() == var->dtype() && tensor.format() == var->format());
    KERN_CHECK(!tensor.format()->is_default() || tensor.layout().is_dense() ||
               tensor.shape().has_zero_axis());
    MemPlan& plan = var->mem_plan();
    if (var->has_device_value() && plan.own_chunk.storage.ptr() == tensor.raw_ptr() &&
        plan.layout.same_layout(tensor.layout()))
        return;
    var->shape(tensor.shape());
    plan.reset();
    plan.use_own_chunk(tensor.layout(), tensor.layout().span().high_byte);
    plan.own_chunk.storage = tensor.storage();
    plan.own_chunk.status = MemChunk::Status::STORAGE;
    bind_value(var);
}

void VarMemoryManager::adopt_var_memory(GraphVar* var, const GraphVar* source) {
    adopt_tensor(var, source->device_value());
}

void VarMemoryManager::clear_device_memory() {
    // A graph that shares the memory must not be running.
    const BusyMark busy(*this);
    drop_plans();
    m_memory->clear();
}

void VarMemoryManager::release_at_exit() {
    if (!m_memory->is_busy())
        clear_device_memory();
}

}  // namespace orb
