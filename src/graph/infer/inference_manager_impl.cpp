#include "graph/infer/inference_manager_impl.h"

#include "graph/core/compute_graph.h"
#include "graph/node/comp_node_event.h"
#include "kernels/check.h"
#include "kernels/dispatcher.h"

namespace orb {

using Lock = std::lock_guard<std::recursive_mutex>;

ShapeInferTag* InferenceManagerImpl::get_shape_tag(GraphVar* var) {
    auto& tag = m_tags[var].shape;
    if (!tag) {
        tag = std::make_unique<ShapeInferTag>(var);
        m_tags_without_rule.insert(tag.get());
    }
    return tag.get();
}

ValueInferTag* InferenceManagerImpl::get_value_tag(GraphVar* var) {
    auto& tag = m_tags[var].value;
    if (!tag) {
        tag = std::make_unique<ValueInferTag>(var);
        m_tags_without_rule.insert(tag.get());
    }
    return tag.get();
}

std::vector<InferTag*> InferenceManagerImpl::get_dep_tags(const std::vector<InferDep>& deps) {
    std::vector<InferTag*> tags;
    for (const InferDep& dep : deps) {
        KERN_CHECK(&dep.var->owner_graph() == m_graph);
        if (dep.type == InferDepType::SHAPE)
            tags.push_back(get_shape_tag(dep.var));
        else
            tags.push_back(get_value_tag(dep.var));
    }
    return tags;
}

void InferenceManagerImpl::check_may_register(const GraphVar* var) const {
    KERN_CHECK(m_graph->current_operator() == var->owner_operator());
}

void InferenceManagerImpl::add_shape_rule(GraphVar* var, ShapeInferDescriptor descriptor) {
    const Lock lock(m_mutex);
    check_may_register(var);
    ShapeInferTag* tag = get_shape_tag(var);
    tag->classify(descriptor.source, get_dep_tags(descriptor.deps));
    m_tags_without_rule.erase(tag);
    tag->set_rule(std::move(descriptor));
    if (tag->kind() != InferKind::CONSTANT || var->has_flag(var_flag::VOLATILE_CONTENT))
        return;
    KERN_CHECK(tag->update());
    var->shape(tag->shape());
    var->freeze_shape();
}

void InferenceManagerImpl::add_value_rule(GraphVar* var, ValueInferDescriptor descriptor) {
    const Lock lock(m_mutex);
    check_may_register(var);
    ValueInferTag* tag = get_value_tag(var);
    tag->classify(descriptor.source, get_dep_tags(descriptor.deps));
    m_tags_without_rule.erase(tag);
    tag->set_rule(std::move(descriptor));
}

InferKind InferenceManagerImpl::shape_kind(const GraphVar* var) const {
    const Lock lock(m_mutex);
    const auto found = m_tags.find(var);
    return found == m_tags.end() || !found->second.shape ? InferKind::NO_RULE
                                                         : found->second.shape->kind();
}

InferKind InferenceManagerImpl::value_kind(const GraphVar* var) const {
    const Lock lock(m_mutex);
    const auto found = m_tags.find(var);
    return found == m_tags.end() || !found->second.value ? InferKind::NO_RULE
                                                         : found->second.value->kind();
}

std::vector<GraphVar*> InferenceManagerImpl::missing_inputs_of_shape(const GraphVar* var) const {
    const Lock lock(m_mutex);
    const auto found = m_tags.find(var);
    if (found == m_tags.end() || !found->second.shape)
        return {};
    const auto& missing = found->second.shape->missing_inputs();
    return {missing.begin(), missing.end()};
}

std::optional<kern::TensorShape> InferenceManagerImpl::try_shape_of_var(GraphVar* var) {
    ShapeInferTag* tag = nullptr;
    {
        const Lock lock(m_mutex);
        tag = get_shape_tag(var);
    }
    wait_for_computed(tag);
    const Lock lock(m_mutex);
    if (!tag->update(true))
        return std::nullopt;
    return tag->shape();
}

kern::TensorShape InferenceManagerImpl::shape_of_var(GraphVar* var) {
    const auto shape = try_shape_of_var(var);
    KERN_CHECK(shape);
    return *shape;
}

std::optional<HostTensorND> InferenceManagerImpl::try_value_of_var(GraphVar* var) {
    ValueInferTag* tag = nullptr;
    {
        const Lock lock(m_mutex);
        tag = get_value_tag(var);
    }
    wait_for_computed(tag);
    const Lock lock(m_mutex);
    if (!tag->update(true))
        return std::nullopt;
    ShapeInferTag* shape = get_shape_tag(var);
    KERN_CHECK(!shape->update(true) || tag->value().shape().same_shape(shape->shape()));
    return tag->value();
}

HostTensorND InferenceManagerImpl::value_of_var(GraphVar* var) {
    const auto value = try_value_of_var(var);
    KERN_CHECK(value);
    return *value;
}

// Without the lock: a node that has yet to compute a value may need a shape for that.
void InferenceManagerImpl::wait_for_computed(const InferTag* tag) const {
    std::vector<const GraphVar*> vars;
    {
        const Lock lock(m_mutex);
        vars.assign(tag->missing_inputs().begin(), tag->missing_inputs().end());
        if (!tag->has_rule())
            vars.push_back(tag->var());
    }
    for (const GraphVar* var : vars) {
        CompNodeEvent* event = var->computed_event();
        if (event && event->was_recorded())
            event->wait_on_host();
        // A task that waited for a whole node could wait for one that waits for it.
        else if (!kern::DispatcherStep::is_active() && m_graph->has_run_under_way())
            var->comp_node().sync();
    }
}

InferenceManagerImpl::UpdateList InferenceManagerImpl::make_update_list(
    const std::vector<GraphVar*>& static_vars, const std::vector<GraphVar*>& other_vars) {
    const Lock lock(m_mutex);
    UpdateList list;
    std::vector<InferTag*> pending;
    for (GraphVar* var : static_vars) {
        list.shapes.push_back(get_shape_tag(var));
        pending.push_back(list.shapes.back());
    }
    for (GraphVar* var : other_vars) {
        pending.push_back(get_shape_tag(var));
        pending.push_back(get_value_tag(var));
    }
    std::unordered_set<InferTag*> seen;
    while (!pending.empty()) {
        InferTag* tag = pending.back();
        pending.pop_back();
        if (tag->kind() == InferKind::CONSTANT || !seen.insert(tag).second)
            continue;
        if (tag->is_mutable_source())
            list.sources.push_back(tag);
        pending.insert(pending.end(), tag->deps().begin(), tag->deps().end());
    }
    return list;
}

void InferenceManagerImpl::update(UpdateList& list) {
    const Lock lock(m_mutex);
    for (InferTag* tag : m_tags_without_rule)
        tag->invalidate();
    for (InferTag* source : list.sources)
        source->update(true);
    for (ShapeInferTag* tag : list.shapes) {
        KERN_CHECK(tag->update());
        if (tag->shape().same_shape(tag->var()->shape()))
            continue;
        list.changed = true;
        tag->var()->shape(tag->shape());
    }
}

void InferenceManagerImpl::remove_var(GraphVar* var) {
    const Lock lock(m_mutex);
    const auto found = m_tags.find(var);
    if (found == m_tags.end())
        return;
    if (found->second.value)
        found->second.value->detach();
    if (found->second.shape)
        found->second.shape->detach();
    m_tags_without_rule.erase(found->second.value.get());
    m_tags_without_rule.erase(found->second.shape.get());
    m_tags.erase(found);
}

}  // namespace orb
