#include "graph/core/operator.h"

#include <algorithm>

#include "graph/core/compute_graph.h"
#include "graph/core/exec_env.h"
#include "graph/core/hash.h"
#include "kernels/check.h"

namespace orb {
namespace {

constexpr uint64_t HASH_SEED = 0x4b4e74b36b5d11;

bool by_id(const GraphVar* a, const GraphVar* b) {
    return a->id() < b->id();
}

}  // namespace

void OperatorProperties::add_dependency(GraphVar* var, DependencyFlags added) {
    const auto found = std::find_if(dependencies.begin(), dependencies.end(),
                                    [var](const auto& entry) { return entry.first == var; });
    if (found != dependencies.end())
        found->second |= added;
    else
        dependencies.emplace_back(var, added);
}

void OperatorProperties::set_dependency(GraphVar* var, DependencyFlags wanted) {
    const auto found = std::find_if(dependencies.begin(), dependencies.end(),
                                    [var](const auto& entry) { return entry.first == var; });
    if (found == dependencies.end()) {
        if (wanted != 0)
            dependencies.emplace_back(var, wanted);
    } else if (wanted != 0) {
        found->second = wanted;
    } else {
        dependencies.erase(found);
    }
}

GraphOperator::GraphOperator(ComputeGraph* graph, OperatorConfig config,
                             const std::string& default_name)
    : GraphObject(graph), m_config(std::move(config)) {
    m_name = m_config.name ? *m_config.name : default_name + "[" + std::to_string(id()) + "]";
}

GraphOperator::~GraphOperator() {
    for (GraphVar* var : m_output)
        owner_graph().destroy_var(var);
}

void GraphOperator::check_new_input(const GraphVar* var) const {
    KERN_CHECK(var && &var->owner_graph() == &owner_graph());
    KERN_CHECK(!var->has_flag(var_flag::VOLATILE_CONTENT));
}

void GraphOperator::add_input(const std::vector<GraphVar*>& vars, InputOrder order) {
    KERN_CHECK(m_output.empty() && !m_inserted);
    for (const GraphVar* var : vars)
        check_new_input(var);
    const auto added = m_input.insert(m_input.end(), vars.begin(), vars.end());
    if (order == InputOrder::SORT_ADDED)
        std::stable_sort(added, m_input.end(), by_id);
    else if (order == InputOrder::SORT_ALL)
        std::stable_sort(m_input.begin(), m_input.end(), by_id);
}

GraphVar* GraphOperator::add_output() {
    KERN_CHECK(!m_inserted);
    m_output.push_back(owner_graph().make_var(this));
    return m_output.back();
}

GraphVar* GraphOperator::add_output(const std::string& suffix) {
    return &add_output()->name(m_name + ":" + suffix);
}

GraphVar* GraphOperator::add_workspace_output() {
    return &add_output("workspace")
                ->add_flag(var_flag::VOLATILE_CONTENT | var_flag::ALLOW_EMPTY_SHAPE)
                .dtype(kern::DType::Byte());
}

void GraphOperator::add_equality_key(uint64_t word) {
    KERN_CHECK(!m_inserted);
    m_equality_keys.push_back(word);
}

uint64_t GraphOperator::hash() const {
    Hasher hasher(HASH_SEED);
    hasher.update(m_input.data(), m_input.size() * sizeof(GraphVar*));
    hasher.update_word(reinterpret_cast<uintptr_t>(type_record()));
    hasher.update_word(m_config.hash());
    for (CompNode node : m_config.comp_nodes)
        hasher.update_word(reinterpret_cast<uintptr_t>(node.impl()));
    for (uint64_t key : m_equality_keys)
        hasher.update_word(hash_bytes(&key, sizeof(key)));
    const uint64_t digest = hasher.digest();
    return digest == 0 ? 1 : digest;
}

bool GraphOperator::is_same(const GraphOperator& other) const {
    return m_input == other.m_input && m_config.hash() == other.m_config.hash() &&
           m_config.is_same(other.m_config) && m_equality_keys == other.m_equality_keys;
}

std::vector<GraphVar*> GraphOperator::kept_outputs() const {
    std::vector<GraphVar*> vars;
    for (GraphVar* var : m_output) {
        if (!var->has_flag(var_flag::VOLATILE_CONTENT))
            vars.push_back(var);
    }
    return vars;
}

std::vector<CompNode> GraphOperator::comp_nodes() const {
    std::vector<CompNode> nodes;
    for (const GraphVar* var : m_output) {
        if (std::find(nodes.begin(), nodes.end(), var->comp_node()) == nodes.end())
            nodes.push_back(var->comp_node());
    }
    return nodes;
}

const OperatorProperties& GraphOperator::properties() const {
    return mutable_properties();
}

OperatorProperties& GraphOperator::mutable_properties() const {
    if (!m_properties) {
        m_properties = std::make_unique<OperatorProperties>(make_properties());
        constrain_input_layouts(*m_properties);
        for (const auto& entry : m_properties->dependencies) {
            KERN_CHECK(std::find(m_input.begin(), m_input.end(), entry.first) != m_input.end());
            KERN_CHECK(!(entry.second & dependency::HOST_VALUE_DYNAMIC) ||
                       (entry.second & dependency::HOST_VALUE));
        }
    }
    return *m_properties;
}

OperatorProperties GraphOperator::make_properties() const {
    OperatorProperties properties;
    for (GraphVar* var : m_input)
        properties.add_dependency(var, dependency::DEVICE_VALUE);
    return properties;
}

void GraphOperator::constrain_input_layouts(OperatorProperties& properties) const {
    if (m_output.size() == 1 && m_output[0]->has_flag(var_flag::FORCE_STATIC))
        properties.memory_rules |= OperatorProperties::NO_INPUT_MEMORY_RULE;
}

void GraphOperator::require_layout(OperatorProperties& properties, size_t input,
                                   OperatorProperties::LayoutCheck check) {
    properties.layout_checks.emplace_back(input, std::move(check));
}

void GraphOperator::require_contiguous_layout(OperatorProperties& properties, size_t input) {
    require_layout(properties, input,
                   [](const kern::TensorLayout& layout) { return layout.is_dense(); });
}

void GraphOperator::require_monotone_layout(OperatorProperties& properties, size_t input) {
    require_layout(properties, input, [](const kern::TensorLayout& layout) {
        return layout.is_abs_monotonic_allow_broadcast();
    });
}

void GraphOperator::assign_output_dtype() {
    for (GraphVar* var : m_output) {
        if (!var->dtype().valid())
            var->dtype(common_input_dtype());
    }
}

kern::DType GraphOperator::common_input_dtype() const {
    KERN_CHECK(!m_input.empty());
    const kern::DType common = m_input[0]->dtype();
    for (const GraphVar* var : m_input) {
        KERN_CHECK_TEXT(var->dtype() == common,
                        std::string(common.name()) + " " + var->dtype().name());
    }
    KERN_CHECK(common != kern::DType::Byte());
    return common;
}

void GraphOperator::assign_output_format() {
    const kern::TensorFormat* common = kern::default_format();
    for (GraphVar* var : m_input) {
        if (var->format()->is_default())
            continue;
        KERN_CHECK(common->is_default() || common == var->format());
        common = var->format();
    }
    for (GraphVar* var : m_output)
        var->format(var->has_flag(var_flag::VOLATILE_CONTENT) ? kern::default_format() : common);
}

void GraphOperator::plan_output_memory(bool dynamic) {
    for (GraphVar* var : m_output) {
        if (var->is_static_storage() == dynamic || var->has_flag(var_flag::NO_SYSTEM_ALLOC))
            continue;
        const kern::TensorLayout layout = var->contiguous_layout();
        var->mem_plan().use_own_chunk(layout, layout.span().high_byte);
    }
}

void GraphOperator::execute(OperatorExecEnv& env) {
    owner_graph().events().operator_begin.signal({this});
    on_before_execute();
    add_run_task(env);
    on_after_execute();
    owner_graph().events().operator_end.signal({this});
}

}  // namespace orb
