#include "graph/memory/var_memory_manager.h"

#include <algorithm>

#include "graph/core/operator.h"
#include "graph/memory/static_allocator.h"
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

constexpr DependencyFlags READS_VALUE = dependency::DEVICE_VALUE | dependency::HOST_VALUE;

}  // namespace

VarMemoryManager::VarMemoryManager(InferenceManagerImpl* inference) : m_inference(inference) {}

VarMemoryManager::BusyMark::BusyMark(VarMemoryManager& manager) : m_memory(manager.m_memory) {
    KERN_CHECK(!m_memory->busy);
    m_memory->busy = true;
}

void VarMemoryManager::set_operator_sequence(const std::vector<GraphOperator*>& sequence,
                                             const std::vector<GraphVar*>& kept_vars) {
    drop_plans();
    m_sequence = sequence;
    record_uses(kept_vars);
    choose_dynamic_vars();
    m_static_vars.clear();
    m_dynamic_operators.clear();
    std::vector<GraphVar*> late_vars;  // dynamic, or looked at by value
    for (GraphOperator* op : m_sequence) {
        for (GraphVar* var : op->output()) {
            if (var->is_static_storage()) {
                m_static_vars.push_back(var);
            } else {
                m_dynamic_operators.insert(op);
                late_vars.push_back(var);
            }
        }
        for (const auto& [var, flags] : op->properties().dependencies) {
            if (!var->is_static_storage())
                m_dynamic_operators.insert(op);
            if (flags & dependency::HOST_VALUE)
                late_vars.push_back(var);
        }
    }
    m_update_list = m_inference->make_update_list(m_static_vars, late_vars);
}

void VarMemoryManager::record_uses(const std::vector<GraphVar*>& kept_vars) {
    m_uses.clear();
    for (size_t step = 0; step < m_sequence.size(); ++step) {
        const GraphOperator* op = m_sequence[step];
        for (GraphVar* var : op->output())
            m_uses[var] = {step, step, 0, false};
        for (const auto& [var, flags] : op->properties().dependencies) {
            if (!(flags & READS_VALUE))
                continue;
            VarUse& use = m_uses.at(var);
            use.last_reader = step;
            ++use.nr_readers;
        }
    }
    for (GraphVar* var : kept_vars)
        m_uses.at(var).kept = true;
}

void VarMemoryManager::choose_dynamic_vars() {
    const InferenceManager& inference = *m_inference;
    for (GraphOperator* op : m_sequence) {
        for (GraphVar* var : op->output())
            var->clear_planned_dynamic();
    }
    for (GraphOperator* op : m_sequence) {
        const auto& deps = op->properties().dependencies;
        const bool is_dynamic = std::any_of(deps.begin(), deps.end(), [&](const auto& dep) {
            return (dep.second & dependency::HOST_VALUE_DYNAMIC) &&
                   inference.value_kind(dep.first) != InferKind::CONSTANT;
        });
        for (GraphVar* var : op->output()) {
            const bool known_before_run =
                var->has_flag(var_flag::FORCE_STATIC) || is_static(inference.shape_kind(var));
            if ((is_dynamic || !known_before_run) && !(var->flags() & var_flag::DYNAMIC_BITS))
                mark_dynamic(var);
        }
    }
}

// What is told to depend on a dynamic var's storage becomes dynamic with it.
void VarMemoryManager::mark_dynamic(GraphVar* var) {
    std::vector<GraphVar*> pending{var};
    while (!pending.empty()) {
        GraphVar* current = pending.back();
        pending.pop_back();
        if (current->flags() & (var_flag::PLANNED_DYNAMIC | var_flag::PERSISTENT_STATIC))
            continue;
        if (!current->has_flag(var_flag::NO_SYSTEM_ALLOC))
            current->set_planned_dynamic();
        pending.insert(pending.end(), current->dynamic_chain().begin(),
                       current->dynamic_chain().end());
    }
}

bool VarMemoryManager::allocate_static_memory(bool force) {
    const bool shapes_changed = m_inference->update(m_update_list);
    if (!shapes_changed && !force && m_plan_valid && memory_is_in_place() && !refresh_lent_memory())
        return false;
    plan();
    m_plan_valid = true;
    return true;
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
        const auto found = m_memory->blocks.find(planned.first);
        return found != m_memory->blocks.end() && found->second.ptr() == planned.second;
    });
}

bool VarMemoryManager::refresh_lent_memory() {
    for (LentMemory& lent : m_lent) {
        MemPlan& plan = lent.var->mem_plan();
        if (!lent.tensor->layout().same_layout(plan.layout))
            return true;
        const uint8_t* address = lent.tensor->raw_ptr();
        if (address == lent.address)
            continue;
        plan.own_chunk.storage = lent.tensor->storage();
        lent.address = address;
        bind_value(lent.var);
        for (GraphVar* sharer : lent.sharers)
            bind_value(sharer);
    }
    return false;
}

void VarMemoryManager::plan() {
    m_overwrites.clear();
    m_forwarded.clear();
    m_lent.clear();
    m_planned_blocks.clear();
    // Values go first: they would keep a block alive that is about to be replaced.
    drop_plans();
    for (GraphOperator* op : m_sequence)
        op->plan_output_memory(false);

    std::vector<std::pair<CompNode, std::vector<GraphVar*>>> by_memory;
    for (GraphVar* var : m_static_vars) {
        const MemPlan& plan = var->mem_plan();
        if (plan.chunk != &plan.own_chunk || plan.own_chunk.status != MemChunk::Status::NONE)
            continue;
        auto found = std::find_if(by_memory.begin(), by_memory.end(), [var](const auto& entry) {
            return entry.first.memory_space() == var->comp_node().memory_space();
        });
        if (found == by_memory.end())
            found = by_memory.insert(found, {var->comp_node(), {}});
        found->second.push_back(var);
    }
    for (const auto& [node, vars] : by_memory)
        plan_node(node, vars);
    for (GraphVar* var : m_static_vars) {
        if (var->mem_plan().chunk)
            bind_value(var);
    }
    for (LentMemory& lent : m_lent)
        lent.sharers = m_forwarded[&lent.var->mem_plan().own_chunk];
}

void VarMemoryManager::plan_node(CompNode node, const std::vector<GraphVar*>& vars) {
    StaticMemoryAllocator allocator(node.memory_alignment());
    std::unordered_map<const MemChunk*, size_t> ids;
    for (GraphVar* var : vars) {
        const MemChunk& chunk = var->mem_plan().own_chunk;
        ids[&chunk] = allocator.add(m_uses.at(var).writer, end_of_life(&chunk), chunk.size);
    }
    for (const Overwrite& overwrite : m_overwrites) {
        if (ids.count(overwrite.src))
            allocator.add_overwrite_spec(ids.at(overwrite.src), ids.at(overwrite.dest), 0);
    }
    allocator.solve();
    ensure_block(node, allocator.peak());
    for (GraphVar* var : vars) {
        MemChunk& chunk = var->mem_plan().own_chunk;
        chunk.static_offset = allocator.get_interval_addr(ids.at(&chunk));
        chunk.status = MemChunk::Status::STATIC;
    }
}

void VarMemoryManager::ensure_block(CompNode node, size_t size) {
    const void* space = node.memory_space();
    if (m_memory->blocks.find(space) == m_memory->blocks.end())
        m_memory->blocks.emplace(space, DeviceTensorStorage(node));
    DeviceTensorStorage& block = m_memory->blocks.at(space);
    if (block.size() < size) {
        block = DeviceTensorStorage(node);
        if (m_source)
            block = m_source(node, size);
        else
            block.ensure_size(size);
        KERN_CHECK(block.size() >= size);
    }
    if (size > 0)
        m_planned_blocks.emplace_back(space, block.ptr());
}

void VarMemoryManager::bind_value(GraphVar* var) {
    const MemChunk& chunk = *var->mem_plan().chunk;
    if (chunk.status == MemChunk::Status::STATIC) {
        const DeviceTensorStorage& block = m_memory->blocks.at(var->comp_node().memory_space());
        var->bind_device_value(block.sub(chunk.static_offset));
    } else {
        var->bind_device_value(chunk.storage);
    }
}

size_t VarMemoryManager::end_of_life(const MemChunk* chunk) const {
    const auto end_of = [this](const GraphVar* var) {
        const VarUse& use = m_uses.at(var);
        return (use.kept ? m_sequence.size() : use.last_reader) + 1;
    };
    size_t end = end_of(chunk->owner);
    const auto found = m_forwarded.find(chunk);
    if (found != m_forwarded.end()) {
        for (const GraphVar* sharer : found->second)
            end = std::max(end, end_of(sharer));
    }
    return end;
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
        m_forwarded[plan.chunk].push_back(output);
    return true;
}

// Other views of the chunk must not be read later, nor by this operator itself: it may overwrite
// elements that it has yet to read through the other view.
bool VarMemoryManager::is_last_read(const GraphVar* input, const GraphVar* output) const {
    const MemChunk* chunk = input->mem_plan().chunk;
    const size_t step = m_uses.at(output).writer;
    const auto is_done = [&](const GraphVar* sharer) {
        const VarUse& use = m_uses.at(sharer);
        return !use.kept && (sharer == input ? use.last_reader <= step : use.last_reader < step);
    };
    if (!is_done(chunk->owner) || !is_done(input))
        return false;
    const auto found = m_forwarded.find(chunk);
    return found == m_forwarded.end() ||
           std::all_of(found->second.begin(), found->second.end(), is_done);
}

bool VarMemoryManager::forward_input_forced(GraphVar* input, GraphVar* output) {
    const MemPlan& from = input->mem_plan();
    // The memory of a constant is shared by graphs.
    if (!from.chunk ||
        m_graph->inference_manager().value_kind(from.chunk->owner) == InferKind::CONSTANT)
        return false;
    return forward_input_readonly(input, output, SubTensorRegion(from.layout, 0));
}

bool VarMemoryManager::forward_input_writable(GraphVar* input, GraphVar* output, bool forced) {
    if (forced)
        return forward_input_forced(input, output);
    MemPlan& from = input->mem_plan();
    MemPlan& to = output->mem_plan();
    if (!from.chunk || !to.chunk || !input->is_static_storage() || !output->is_static_storage())
        return false;
    // Memory that outlives the run belongs to somebody else.
    if (from.chunk->status != MemChunk::Status::NONE || input->has_flag(var_flag::PERSISTENT))
        return false;
    if (input->dtype() != output->dtype() || !from.layout.same_layout(to.layout))
        return false;
    if (!is_last_read(input, output))
        return false;
    if (from.offset_byte != 0 || from.chunk->size != to.own_chunk.size)
        return false;
    KERN_CHECK(compare_spans(from, to) != Overlap::PARTLY);
    for (const Overwrite& overwrite : m_overwrites) {
        if (overwrite.dest == from.chunk || overwrite.src == to.chunk)
            return false;
    }
    m_overwrites.push_back({to.chunk, from.chunk});
    return true;
}

void VarMemoryManager::lend(GraphVar* var, const DeviceTensorND* tensor) {
    MemPlan& plan = var->mem_plan();
    plan.use_own_chunk(tensor->layout(), tensor->layout().span().high_byte);
    plan.own_chunk.storage = tensor->storage();
    plan.own_chunk.status = MemChunk::Status::STORAGE;
    m_lent.push_back({var, tensor, tensor->raw_ptr(), {}});
}

bool VarMemoryManager::has_value_before(const GraphVar* var, const GraphOperator* op) const {
    const MemChunk* chunk = var->mem_plan().chunk;
    if (!var->is_static_storage() || !chunk)
        return false;
    const auto is_lent = [chunk](const LentMemory& lent) { return lent.var == chunk->owner; };
    return std::any_of(m_lent.begin(), m_lent.end(), is_lent) ||
           m_uses.at(var).writer < m_uses.at(op->output(0)).writer;
}

void VarMemoryManager::allocate_dynamic_memory(GraphOperator* op) {
    if (m_dynamic_operators.find(op) == m_dynamic_operators.end())
        return;
    const auto is_ours = [](const GraphVar* var) {
        return !var->is_static_storage() && !var->has_flag(var_flag::NO_SYSTEM_ALLOC);
    };
    for (GraphVar* var : op->output()) {
        var->nr_readers_left = m_uses.at(var).nr_readers;
        if (is_ours(var)) {
            var->mem_plan().reset();
            m_inference->runtime_shape_of_var(var);
        }
    }
    op->plan_output_memory(true);
    for (GraphVar* var : op->output()) {
        if (!is_ours(var))
            continue;
        MemPlan& plan = var->mem_plan();
        KERN_CHECK(plan.chunk);
        if (plan.chunk == &plan.own_chunk) {
            plan.own_chunk.storage = DeviceTensorStorage(var->comp_node());
            plan.own_chunk.storage.ensure_size(plan.own_chunk.size);
            plan.own_chunk.status = MemChunk::Status::STORAGE;
        }
        bind_value(var);
    }
}

void VarMemoryManager::release_unread(GraphOperator* op) {
    if (m_dynamic_operators.find(op) == m_dynamic_operators.end())
        return;
    for (const auto& [var, flags] : op->properties().dependencies) {
        if ((flags & READS_VALUE) && !var->is_static_storage()) {
            --var->nr_readers_left;
            release_if_unread(var);
        }
    }
    for (GraphVar* var : op->output()) {
        if (!var->is_static_storage())
            release_if_unread(var);
    }
}

void VarMemoryManager::release_if_unread(GraphVar* var) {
    if (var->nr_readers_left != 0 || m_uses.at(var).kept)
        return;
    var->drop_device_value();
    var->mem_plan().reset();
}

void VarMemoryManager::adopt_tensor(GraphVar* var, const DeviceTensorND& tensor) {
    KERN_CHECK(var->has_flag(var_flag::NO_SYSTEM_ALLOC));
    KERN_CHECK(tensor.comp_node().memory_space() == var->comp_node().memory_space());
    KERN_CHECK(tensor.layout().is_dense() || tensor.shape().has_zero_axis());
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
    drop_plans();
    m_memory->blocks.clear();
}

}  // namespace orb
