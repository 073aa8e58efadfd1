#include "graph/construct/compute_graph_impl.h"

#include <algorithm>
#include <new>
#include <utility>

#include "graph/exec/callback_operator.h"
#include "graph/exec/dependency_order.h"
#include "graph/exec/fused_steps.h"
#include "kernels/check.h"

namespace orb {
namespace {

// Another value for the time of a scope.
template <typename T>
class Restore {
public:
    Restore(T& place, T value) : m_place(place), m_old(std::exchange(place, value)) {}
    ~Restore() { m_place = m_old; }
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;

private:
    T& m_place;
    T m_old;
};

}  // namespace

std::shared_ptr<ComputeGraph> ComputeGraph::make() {
    return std::make_shared<ComputeGraphImpl>(nullptr);
}

ComputeGraphImpl::ComputeGraphImpl(ComputeGraphImpl* parent)
    : m_next_object_id(parent ? parent->m_next_object_id : std::make_shared<size_t>(0)),
      m_var_pool(sizeof(GraphVar)),
      m_inference_manager(this),
      m_memory_manager(&m_inference_manager) {}

ComputeGraphImpl::~ComputeGraphImpl() {
    // Readers before what they read.
    while (!m_operators.empty())
        m_operators.pop_back();
}

std::shared_ptr<void> ComputeGraphImpl::on_node_finalize() {
    auto self = weak_from_this().lock();
    m_memory_manager.release_at_exit();
    return self;
}

GraphVar* ComputeGraphImpl::make_var(GraphOperator* owner) {
    return new (m_var_pool.alloc()) GraphVar(this, owner);
}

void ComputeGraphImpl::destroy_var(GraphVar* var) {
    var->~GraphVar();
    m_var_pool.free(var);
}

GraphOperator* ComputeGraphImpl::insert_operator(std::unique_ptr<GraphOperator> op) {
    check_not_finalized();
    // Insertion brings shapes up to date that a worker may be reading.
    if (m_current_function && !m_current_function->runs_inline())
        m_current_function->wait();
    if (GraphOperator* existing = m_dedup_table.find(*op)) {
        KERN_CHECK(existing->output().size() == op->output().size());
        publish_outputs(existing, false);
        forget_outputs(*op);
        op.reset();
        events().operator_inserted.signal({existing, true});
        return existing;
    }
    return insert_new(std::move(op));
}

GraphOperator* ComputeGraphImpl::insert_new(std::unique_ptr<GraphOperator> owned) {
    GraphOperator* op = owned.get();
    KERN_CHECK(!op->m_inserted && !op->output().empty());
    m_operators.push_back(std::move(owned));
    op->m_inserted = true;
    try {
        complete(op);
    } catch (...) {
        undo_insertion(op);
        throw;
    }
    events().operator_inserted.signal({op, false});
    return op;
}

void ComputeGraphImpl::complete(GraphOperator* op) {
    op->assign_output_dtype();
    op->assign_output_nodes();
    op->assign_output_format();
    for (const GraphVar* var : op->output())
        KERN_CHECK(var->comp_node().valid() && var->dtype().valid());

    {
        const Restore<GraphOperator*> current(m_current_operator, op);
        op->register_output_inference();
    }
    op->on_inserted();

    publish_outputs(op, true);
    register_receivers(op);
    m_dedup_table.insert(op);
}

// Wherever `complete` has stopped: nobody reads the outputs yet.
void ComputeGraphImpl::undo_insertion(GraphOperator* op) {
    forget_outputs(*op);
    for (GraphVar* var : op->input()) {
        auto& receivers = m_receivers[var];
        receivers.erase(std::remove(receivers.begin(), receivers.end(), op), receivers.end());
        for (const GraphVar* output : op->output())
            var->stop_leading(output);
    }
    const auto owner = std::find_if(m_operators.rbegin(), m_operators.rend(),
                                    [op](const auto& entry) { return entry.get() == op; });
    m_operators.erase(std::next(owner).base());
}

void ComputeGraphImpl::forget_outputs(const GraphOperator& op) {
    for (GraphVar* var : op.output()) {
        m_inference_manager.remove_var(var);
        m_receivers.erase(var);
        m_vars_by_id.erase(var->id());
    }
}

void ComputeGraphImpl::publish_outputs(GraphOperator* op, bool add_flag) {
    for (GraphVar* var : op->output()) {
        if (add_flag)
            var->add_flag(var_flag::INSERTED);
        if (m_inference_manager.shape_kind(var) == InferKind::CONSTANT &&
            !var->has_flag(var_flag::VOLATILE_CONTENT))
            continue;  // stored for good when its rule was registered
        const bool is_inferable = !var->has_flag(var_flag::VOLATILE_CONTENT) &&
                                  is_static(m_inference_manager.shape_kind(var));
        const auto shape = is_inferable ? m_inference_manager.try_shape_of_var(var) : std::nullopt;
        const kern::TensorShape before = var->shape();
        if (shape)
            var->shape(*shape);
        else
            var->clear_shape();
        // The next run would find the shape in place and take its plan for a good one.
        if (m_current_function && !before.same_shape(var->shape()))
            m_current_function->force_replan();
    }
}

void ComputeGraphImpl::register_receivers(GraphOperator* op) {
    if (!(op->properties().flags & OperatorProperties::CROSS_MEMORY_NODE)) {
        const void* space = op->output(0)->comp_node().memory_space();
        KERN_CHECK(space);
        for (const GraphVar* var : op->input())
            KERN_CHECK(var->comp_node().memory_space() == space);
        for (const GraphVar* var : op->output())
            KERN_CHECK(var->comp_node().memory_space() == space);
    }
    for (const GraphVar* var : op->input()) {
        auto& receivers = m_receivers.at(var);
        if (receivers.empty() || receivers.back() != op)
            receivers.push_back(op);
    }
    for (GraphVar* var : op->output()) {
        KERN_CHECK(m_receivers[var].empty());
        m_vars_by_id[var->id()] = var;
    }
}

// The same outputs, with the vars that the passes leave in the places of those asked for.
std::vector<OutputSpec> ComputeGraphImpl::prepare_compile(std::vector<OutputSpec> outputs) {
    std::vector<GraphVar*> vars;
    for (const OutputSpec& spec : outputs)
        vars.push_back(spec.var);
    for (const GraphPass& pass : options().passes)
        vars = pass(vars);
    KERN_CHECK(vars.size() == outputs.size());
    for (size_t i = 0; i < vars.size(); ++i) {
        KERN_CHECK(vars[i] && &vars[i]->owner_graph() == this);
        outputs[i].var = vars[i];
    }
    return outputs;
}

std::vector<GraphVar*> ComputeGraphImpl::attach_callbacks(const std::vector<OutputSpec>& outputs) {
    for (auto& entry : m_callback_operators)
        entry.second->clear_callbacks();
    std::vector<GraphVar*> targets;
    for (const OutputSpec& spec : outputs) {
        if (!spec.callback) {
            targets.push_back(spec.var);
            continue;
        }
        CallbackOperator*& op = m_callback_operators[spec.var];
        if (!op)
            op = CallbackOperator::make(spec.var);
        op->add_callback(spec.callback);
        targets.push_back(op->output(0));
    }
    return targets;
}

std::unique_ptr<CompiledFunction> ComputeGraphImpl::compile(const std::vector<OutputSpec>& wanted) {
    check_not_finalized();
    KERN_CHECK(!m_compiling && !wanted.empty());
    for (const OutputSpec& spec : wanted)
        KERN_CHECK(spec.var && &spec.var->owner_graph() == this);
    const Restore<bool> compiling(m_compiling, true);
    // The old function's run reads what is changed from here on.
    if (m_current_function)
        std::exchange(m_current_function, nullptr)->retire();
    apply_extra_dependencies();
    node_order_optimizer().reset();
    const std::vector<OutputSpec> outputs = prepare_compile(wanted);
    node_order_optimizer().apply();

    std::vector<GraphVar*> output_vars, kept_vars;
    for (const OutputSpec& spec : outputs) {
        output_vars.push_back(spec.var);
        if (!spec.callback)
            kept_vars.push_back(spec.var);
    }
    auto operators = sort_by_dependency(attach_callbacks(outputs));
    m_memory_manager.set_operator_sequence(operators, kept_vars);
    fuse_steps(operators, output_vars);
    auto function = std::make_unique<GraphFunction>(shared_from_this(), std::move(operators),
                                                    std::move(output_vars));
    m_current_function = function.get();
    ++m_version;
    if (options().record_level >= 2) {
        if (auto replay = function->record_for_good())
            return replay;
    }
    return function;
}

void ComputeGraphImpl::replace_var(GraphVar* var, GraphVar* by) {
    KERN_CHECK(&var->owner_graph() == this && &by->owner_graph() == this);
    m_dedup_table.replace(var, by);
}

void ComputeGraphImpl::add_extra_dependency(DependencyFlags flags, GraphVar* var,
                                            GraphOperator* op) {
    KERN_CHECK(&var->owner_graph() == this && &op->owner_graph() == this && op->inserted());
    KERN_CHECK(!(flags & dependency::HOST_VALUE_DYNAMIC) || (flags & dependency::HOST_VALUE));
    m_extra_dependencies.push_back({flags, var, op});
}

void ComputeGraphImpl::apply_extra_dependencies() {
    for (const ExtraDependency& extra : m_extra_dependencies)
        extra.op->mutable_properties().set_dependency(extra.var, extra.flags);
    m_extra_dependencies.clear();
}

std::shared_ptr<ComputeGraph> ComputeGraphImpl::make_sub_graph() {
    const auto is_gone = [](const auto& sub_graph) { return sub_graph.expired(); };
    m_sub_graphs.erase(std::remove_if(m_sub_graphs.begin(), m_sub_graphs.end(), is_gone),
                       m_sub_graphs.end());
    auto graph = std::make_shared<ComputeGraphImpl>(this);
    m_sub_graphs.push_back(graph);
    return graph;
}

void ComputeGraphImpl::wait_for_sub_graphs() {
    for (const auto& sub_graph : m_sub_graphs) {
        const auto graph = sub_graph.lock();
        if (graph && graph->current_function())
            graph->current_function()->wait();
    }
}

VarStepInfo ComputeGraphImpl::var_step_info(const GraphVar* var) const {
    return m_current_function ? m_memory_manager.step_info(var) : VarStepInfo();
}

void ComputeGraphImpl::function_destroyed(CompiledFunction* function) {
    if (m_current_function == function)
        m_current_function = nullptr;
}

GraphVar* ComputeGraphImpl::find_var_by_id(size_t id) const {
    if (const auto found = m_vars_by_id.find(id); found != m_vars_by_id.end())
        return found->second;
    for (const auto& sub_graph : m_sub_graphs) {
        const auto graph = sub_graph.lock();
        if (GraphVar* var = graph ? graph->find_var_by_id(id) : nullptr)
            return var;
    }
    return nullptr;
}

const std::vector<GraphOperator*>* ComputeGraphImpl::var_receivers(const GraphVar* var) const {
    const auto found = m_receivers.find(var);
    return found == m_receivers.end() ? nullptr : &found->second;
}

void ComputeGraphImpl::share_device_memory_with(ComputeGraph& other) {
    KERN_CHECK(!m_current_function && !other.current_function());
    m_memory_manager.share_device_memory_with(other.memory_manager());
}

void ComputeGraphImpl::clear_device_memory() {
    if (m_current_function)
        m_current_function->wait();
    m_memory_manager.clear_device_memory();
    if (m_current_function)
        m_current_function->force_replan();
}

void ComputeGraphImpl::static_memory_source(StaticMemorySource source) {
    m_memory_manager.static_memory_source(std::move(source));
}

}  // namespace orb
