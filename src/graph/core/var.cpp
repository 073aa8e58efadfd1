#include "graph/core/var.h"

#include <algorithm>

#include "graph/core/compute_graph.h"
#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {
namespace {

void check_flag_combination(VarFlags flags) {
    using namespace var_flag;
    const auto has = [flags](VarFlags bits) { return (flags & bits) == bits; };
    KERN_CHECK(!has(NO_SYSTEM_ALLOC | PLANNED_DYNAMIC));
    KERN_CHECK(!has(NO_SYSTEM_ALLOC | LOOP_STATE));
    KERN_CHECK(!has(PERSISTENT_STATIC) || has(PERSISTENT));
}

}  // namespace

GraphVar::GraphVar(ComputeGraph* graph, GraphOperator* owner) : GraphObject(graph), m_owner(owner) {
    m_mem_plan.own_chunk.owner = this;
}

const std::string& GraphVar::name() const {
    return m_has_name ? m_name : m_owner->name();
}

GraphVar& GraphVar::name(std::string own_name) {
    m_name = std::move(own_name);
    m_has_name = true;
    return *this;
}

GraphVar& GraphVar::add_flag(VarFlags bits) {
    const VarFlags added = bits & ~m_flags;
    if (has_flag(var_flag::INSERTED) && added != 0) {
        KERN_CHECK((added & ~var_flag::ADDABLE_AFTER_INSERTION) == 0);
        KERN_CHECK(!m_is_planned);
    }
    check_flag_combination(m_flags | bits);
    m_flags |= bits;
    return *this;
}

void GraphVar::set_planned_dynamic() {
    check_flag_combination(m_flags | var_flag::PLANNED_DYNAMIC);
    m_flags |= var_flag::PLANNED_DYNAMIC;
}

void GraphVar::lead_storage_of(GraphVar* follower) {
    KERN_CHECK(!has_flag(var_flag::INSERTED) || !follower->has_flag(var_flag::INSERTED));
    if (m_flags & (var_flag::NO_SYSTEM_ALLOC | var_flag::DYNAMIC_STORAGE))
        follower->add_flag(var_flag::DYNAMIC_STORAGE);
    m_dynamic_chain.push_back(follower);
}

void GraphVar::stop_leading(const GraphVar* follower) {
    m_dynamic_chain.erase(std::remove(m_dynamic_chain.begin(), m_dynamic_chain.end(), follower),
                          m_dynamic_chain.end());
}

bool GraphVar::is_static_storage() const {
    if (has_flag(var_flag::FORCE_STATIC))
        return true;
    if (m_flags & var_flag::DYNAMIC_BITS)
        return false;
    return is_static(owner_graph().inference_manager().shape_kind(this));
}

GraphVar& GraphVar::shape(const kern::TensorShape& shape) {
    if (m_shape.same_shape(shape))
        return *this;
    KERN_CHECK(m_shape_mutable);
    m_shape = shape;
    for (auto& listener : m_shape_listeners)
        listener.second(this);
    return *this;
}

void GraphVar::set_shape_listener(const void* key, ShapeListener listener) {
    m_shape_listeners[key] = std::move(listener);
}

GraphVar& GraphVar::comp_node(CompNode node) {
    KERN_CHECK(node.valid());
    KERN_CHECK(!m_comp_node.valid() || m_comp_node.memory_space() == node.memory_space());
    m_comp_node = node;
    return *this;
}

GraphVar& GraphVar::dtype(kern::DType dtype) {
    KERN_CHECK(dtype.valid() && !m_device_value.dtype().valid());
    m_device_value.dtype(dtype);
    return *this;
}

GraphVar& GraphVar::format(const kern::TensorFormat* format) {
    KERN_CHECK(m_format == format || m_format->is_default());
    m_format = format;
    return *this;
}

kern::TensorLayout GraphVar::contiguous_layout() const {
    return kern::TensorLayout(m_shape, dtype(), m_format);
}

bool GraphVar::has_device_value() const {
    return m_device_value.shape_valid() && m_device_value.comp_node() == m_comp_node &&
           m_mem_plan.layout.same_shape(m_shape) &&
           m_mem_plan.layout.same_layout(m_device_value.layout());
}

const DeviceTensorND& GraphVar::device_value() const {
    KERN_CHECK(has_device_value());
    return m_device_value;
}

void GraphVar::bind_device_value(const DeviceTensorStorage& chunk_memory) {
    KERN_CHECK(m_mem_plan.offset_byte >= 0);
    DeviceTensorStorage memory = chunk_memory.sub(static_cast<size_t>(m_mem_plan.offset_byte));
    // Blocks and views may come from another node of the same memory.
    memory.comp_node(m_comp_node);
    m_device_value.reset(memory, m_mem_plan.layout);
}

void GraphVar::drop_device_value() {
    m_device_value = DeviceTensorND(CompNode(), m_device_value.dtype());
}

void GraphVar::release_node_resources() {
    drop_device_value();
    m_mem_plan.own_chunk.storage = DeviceTensorStorage();
}

}  // namespace orb
