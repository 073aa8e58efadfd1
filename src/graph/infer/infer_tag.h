// What is known of one var before execution: its shape, or its value on the host. A tag caches its
// result with a version and recomputes it only when a tag that it depends on has changed. Owned by
// the inference manager and guarded by its mutex.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <unordered_set>
#include <vector>

#include "graph/core/inference_manager.h"

namespace orb {

class InferTag {
public:
    explicit InferTag(GraphVar* var) : m_var(var) {}
    virtual ~InferTag() = default;
    InferTag(const InferTag&) = delete;
    InferTag& operator=(const InferTag&) = delete;

    GraphVar* var() const { return m_var; }
    InferKind kind() const { return m_kind; }
    uint32_t version() const { return m_version; }
    bool has_rule() const { return m_has_rule; }
    bool is_mutable_source() const { return m_kind == InferKind::RUNTIME_STATIC && m_deps.empty(); }
    const std::vector<InferTag*>& deps() const { return m_deps; }
    bool has_dependents() const { return !m_dependents.empty(); }
    const std::set<GraphVar*>& missing_inputs() const;

    // Brings the result up to date; false when there is none. `recompute` asks a mutable source
    // again.
    bool update(bool recompute = false);
    // The result of the last update, in the form that rules receive.
    virtual InferInput result() const = 0;

    // Takes a rule's source type and dependencies and classifies the tag; once.
    void classify(InferSource source, const std::vector<InferTag*>& deps);
    // Forgets the cached result, as when execution has produced a new value.
    void invalidate();
    // Takes this tag out of its dependencies' lists, before it is destroyed.
    void detach();

protected:
    enum class InferOutcome { UNCHANGED, CHANGED, NO_RESULT };
    virtual InferOutcome do_infer(const std::vector<InferInput>& inputs) = 0;
    // Whether the var's own state stands in for a rule of this tag.
    virtual bool known_without_rule() const = 0;

private:
    void merge_missing_inputs(const InferTag& dep);
    void update_from_deps();
    void invalidate_dependents();

    GraphVar* m_var;
    InferKind m_kind = InferKind::NO_RULE;
    bool m_has_rule = false;
    bool m_cached = false;
    bool m_has_result = false;
    uint32_t m_version = 0;
    uint32_t m_last_dep_version_sum = 0;
    std::vector<InferTag*> m_deps;
    std::unordered_set<InferTag*> m_dependents;
    InferTag* m_next_to_visit = nullptr;  // during an invalidation
    // Shared with the dependency it came from until a second one is merged in.
    std::shared_ptr<std::set<GraphVar*>> m_missing_inputs;
};

class ShapeInferTag final : public InferTag {
public:
    using InferTag::InferTag;
    void set_rule(ShapeInferDescriptor descriptor) { m_infer = std::move(descriptor.infer); }
    InferInput result() const override;
    const kern::TensorShape& shape() const { return m_shape; }

protected:
    InferOutcome do_infer(const std::vector<InferInput>& inputs) override;
    bool known_without_rule() const override;

private:
    std::function<bool(kern::TensorShape&, const std::vector<InferInput>&)> m_infer;
    kern::TensorShape m_shape;
};

class ValueInferTag final : public InferTag {
public:
    explicit ValueInferTag(GraphVar* var);
    void set_rule(ValueInferDescriptor descriptor) { m_infer = std::move(descriptor.infer); }
    InferInput result() const override;
    const HostTensorND& value() const { return m_value; }

protected:
    InferOutcome do_infer(const std::vector<InferInput>& inputs) override;
    bool known_without_rule() const override { return false; }

private:
    bool read_from_var(HostTensorND& value) const;

    std::function<bool(HostTensorND&, const std::vector<InferInput>&)> m_infer;
    HostTensorND m_value;
};

}  // namespace orb
