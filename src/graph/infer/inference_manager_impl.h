// The inference of one graph: a tag for the shape and one for the value of each var that anybody
// asks about. All entry points lock.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "graph/infer/infer_tag.h"

namespace orb {

class ComputeGraph;

class InferenceManagerImpl final : public InferenceManager {
public:
    explicit InferenceManagerImpl(ComputeGraph* graph) : m_graph(graph) {}

    void add_shape_rule(GraphVar* var, ShapeInferDescriptor descriptor) override;
    void add_value_rule(GraphVar* var, ValueInferDescriptor descriptor) override;
    InferKind shape_kind(const GraphVar* var) const override;
    InferKind value_kind(const GraphVar* var) const override;
    std::vector<GraphVar*> missing_inputs_of_shape(const GraphVar* var) const override;
    kern::TensorShape shape_of_var(GraphVar* var) override;
    std::optional<kern::TensorShape> try_shape_of_var(GraphVar* var) override;
    HostTensorND value_of_var(GraphVar* var) override;
    std::optional<HostTensorND> try_value_of_var(GraphVar* var) override;

    // The tags that a run brings up to date first: all mutable sources that the vars need, then the
    // shapes of the static ones.
    struct UpdateList {
        std::vector<InferTag*> sources;
        std::vector<ShapeInferTag*> shapes;
        // A shape has changed since this was last set to false.
        bool changed = false;
    };
    UpdateList make_update_list(const std::vector<GraphVar*>& static_vars,
                                const std::vector<GraphVar*>& other_vars);
    // Stores what changed in the vars, and that it did in the list, also when lack of memory ends
    // the call. Each shape must be known. What was read from computed values is forgotten: the run
    // computes them anew.
    void update(UpdateList& list);

    // Drops the tags of a var that nothing depends on.
    void remove_var(GraphVar* var);

private:
    struct Tags {
        std::unique_ptr<ShapeInferTag> shape;
        std::unique_ptr<ValueInferTag> value;
    };

    ShapeInferTag* get_shape_tag(GraphVar* var);
    ValueInferTag* get_value_tag(GraphVar* var);
    std::vector<InferTag*> get_dep_tags(const std::vector<InferDep>& deps);
    void wait_for_computed(const InferTag* tag) const;
    void check_may_register(const GraphVar* var) const;

    ComputeGraph* m_graph;
    mutable std::recursive_mutex m_mutex;  // rules may ask for further shapes
    std::unordered_map<const GraphVar*, Tags> m_tags;
    // They stand for what execution produces, so no version tells of a change.
    std::unordered_set<InferTag*> m_tags_without_rule;
};

}  // namespace orb
