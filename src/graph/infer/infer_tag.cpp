#include "graph/infer/infer_tag.h"

#include <algorithm>
#include <cstring>

#include "graph/core/var.h"
#include "kernels/check.h"

namespace orb {

const std::set<GraphVar*>& InferTag::missing_inputs() const {
    static const auto* none = new std::set<GraphVar*>();
    return m_missing_inputs ? *m_missing_inputs : *none;
}

void InferTag::classify(InferSource source, const std::vector<InferTag*>& deps) {
    KERN_CHECK(!m_has_rule);
    m_has_rule = true;
    m_cached = false;  // somebody may have asked before there was a rule
    if (source != InferSource::DEPENDENT) {
        KERN_CHECK(deps.empty());
        m_kind = source == InferSource::CONSTANT ? InferKind::CONSTANT : InferKind::RUNTIME_STATIC;
        return;
    }
    KERN_CHECK(!deps.empty());
    m_kind = InferKind::CONSTANT;
    for (InferTag* dep : deps) {
        m_deps.push_back(dep);
        dep->m_dependents.insert(this);
        InferKind dep_kind = dep->m_kind;
        if (dep_kind == InferKind::NO_RULE)
            dep_kind = dep->known_without_rule() ? InferKind::CONSTANT : InferKind::MISSING_INPUT;
        m_kind = std::max(m_kind, dep_kind);
        if (dep_kind == InferKind::MISSING_INPUT)
            merge_missing_inputs(*dep);
    }
}

void InferTag::merge_missing_inputs(const InferTag& dep) {
    if (dep.m_missing_inputs && !m_missing_inputs) {
        m_missing_inputs = dep.m_missing_inputs;
        return;
    }
    auto merged = std::make_shared<std::set<GraphVar*>>(missing_inputs());
    if (dep.m_missing_inputs)
        merged->insert(dep.m_missing_inputs->begin(), dep.m_missing_inputs->end());
    else
        merged->insert(dep.m_var);
    m_missing_inputs = std::move(merged);
}

// Walks with a stack of its own: graphs may be chains of any length.
bool InferTag::update(bool recompute) {
    if (recompute && is_mutable_source())
        m_cached = false;
    if (m_cached)
        return m_has_result;
    const auto is_cached = [](const InferTag* dep) { return dep->m_cached; };
    if (std::all_of(m_deps.begin(), m_deps.end(), is_cached)) {
        update_from_deps();  // as in most runs, which takes no memory
        return m_has_result;
    }
    std::vector<InferTag*> pending{this};
    while (!pending.empty()) {
        InferTag* tag = pending.back();
        const size_t nr_before = pending.size();
        if (!tag->m_cached) {
            for (InferTag* dep : tag->m_deps) {
                if (!dep->m_cached)
                    pending.push_back(dep);
            }
        }
        if (pending.size() > nr_before)
            continue;
        pending.pop_back();
        if (!tag->m_cached)
            tag->update_from_deps();
    }
    return m_has_result;
}

void InferTag::update_from_deps() {
    uint32_t version_sum = 0;
    std::vector<InferInput> inputs;
    inputs.reserve(m_deps.size());
    for (const InferTag* dep : m_deps) {
        if (!dep->m_has_result) {
            m_has_result = false;
            m_cached = true;
            return;
        }
        version_sum += dep->m_version;
        inputs.push_back(dep->result());
    }
    const bool deps_unchanged =
        !m_deps.empty() && m_has_result && version_sum == m_last_dep_version_sum;
    if (!deps_unchanged) {
        const bool had_result = m_has_result;
        const InferOutcome outcome = do_infer(inputs);
        m_has_result = outcome != InferOutcome::NO_RESULT;
        if (m_has_result)
            m_last_dep_version_sum = version_sum;
        if (outcome != InferOutcome::UNCHANGED || !had_result) {
            ++m_version;
            invalidate_dependents();
        }
    }
    m_cached = true;
}

void InferTag::invalidate() {
    if (!m_cached)
        return;
    m_cached = false;
    invalidate_dependents();
}

// What depends on an uncached tag is uncached already. The list of tags to visit runs through the
// tags, because this must not fail: a changed result and its dependents' caches go together.
void InferTag::invalidate_dependents() {
    InferTag* to_visit = nullptr;
    for (InferTag* tag = this; tag;) {
        for (InferTag* dependent : tag->m_dependents) {
            if (!dependent->m_cached)
                continue;
            dependent->m_cached = false;
            dependent->m_next_to_visit = to_visit;
            to_visit = dependent;
        }
        tag = to_visit;
        if (tag)
            to_visit = tag->m_next_to_visit;
    }
}

void InferTag::detach() {
    KERN_CHECK(m_dependents.empty());
    for (InferTag* dep : m_deps)
        dep->m_dependents.erase(this);
    m_deps.clear();
}

InferInput ShapeInferTag::result() const {
    InferInput input;
    input.shape = &m_shape;
    return input;
}

bool ShapeInferTag::known_without_rule() const {
    // An adopted shape is that of one run.
    return var()->shape().ndim != 0 && !var()->has_flag(var_flag::NO_SYSTEM_ALLOC);
}

InferTag::InferOutcome ShapeInferTag::do_infer(const std::vector<InferInput>& inputs) {
    kern::TensorShape shape;
    if (!has_rule()) {
        shape = var()->shape();
        if (shape.ndim == 0)
            return InferOutcome::NO_RESULT;
    } else {
        if (!m_infer(shape, inputs)) {
            KERN_CHECK(is_mutable_source());
            return InferOutcome::NO_RESULT;
        }
        KERN_CHECK(shape.ndim != 0 || var()->has_flag(var_flag::ALLOW_EMPTY_SHAPE));
    }
    if (shape.same_shape(m_shape) && version() != 0)
        return InferOutcome::UNCHANGED;
    m_shape = shape;
    return InferOutcome::CHANGED;
}

ValueInferTag::ValueInferTag(GraphVar* var)
    : InferTag(var), m_value(CompNode::default_cpu(), var->dtype()) {}

InferInput ValueInferTag::result() const {
    InferInput input;
    input.value = &m_value;
    return input;
}

// A plain copy on this thread. Through its node the value would come only after tasks that may wait
// for this thread.
bool ValueInferTag::read_from_var(HostTensorND& value) const {
    if (!var()->has_device_value())
        return false;
    const DeviceTensorND& source = var()->device_value();
    const kern::Span span = source.layout().span();
    const auto before = static_cast<size_t>(-span.low_byte);
    const std::shared_ptr<uint8_t> bytes(source.raw_ptr() - before, [](uint8_t*) {});
    HostTensorStorage memory(CompNode::default_cpu());
    memory.reset(CompNode::default_cpu(), before + span.high_byte, bytes);
    HostTensorND view;
    view.reset(memory.sub(before), source.layout());
    value.copy_from(view);
    return true;
}

InferTag::InferOutcome ValueInferTag::do_infer(const std::vector<InferInput>& inputs) {
    HostTensorND value(CompNode::default_cpu(), var()->dtype());
    if (!(has_rule() ? m_infer(value, inputs) : read_from_var(value))) {
        KERN_CHECK(!has_rule() || is_mutable_source());
        return InferOutcome::NO_RESULT;
    }
    KERN_CHECK(value.dtype() == var()->dtype());
    // A copy of the tag's own: a rule may hand out a tensor that it changes later.
    HostTensorND dense(CompNode::default_cpu(), value.dtype());
    dense.copy_from(value);
    const size_t bytes = dense.layout().span().high_byte;
    const bool unchanged =
        version() != 0 && dense.shape().same_shape(m_value.shape()) &&
        (bytes == 0 || std::memcmp(dense.raw_ptr(), m_value.raw_ptr(), bytes) == 0);
    if (unchanged)
        return InferOutcome::UNCHANGED;
    m_value = dense;
    return InferOutcome::CHANGED;
}

}  // namespace orb
