// Knows the shape, and where it can the value, of each var of a graph before execution. Operators
// register a rule for each output; the manager classifies it, caches results and recomputes only
// what changed. All entry points lock, since an operator may need a shape while it runs elsewhere.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "graph/infer/infer_tag.h"

namespace orb {

class ComputeGraph;

class InferenceManager {
public:
    explicit InferenceManager(ComputeGraph* graph) : m_graph(graph) {}

    // Only while the graph inserts the var's operator, and once per var. A constant shape is
    // computed now and stored in the var for good, unless the var's content is volatile.
    void add_shape_rule(GraphVar* var, ShapeInferDescriptor descriptor);
    void add_value_rule(GraphVar* var, ValueInferDescriptor descriptor);

    InferKind shape_kind(const GraphVar* var) const;
    InferKind value_kind(const GraphVar* var) const;
    // The vars that a shape of kind MISSING_INPUT waits for.
    std::vector<const GraphVar*> missing_inputs_of_shape(const GraphVar* var) const;

    // Up to date; no result stops the process, in the `try` forms it gives null.
    const kern::TensorShape& shape_of_var(GraphVar* var);
    const kern::TensorShape* try_shape_of_var(GraphVar* var);
    const HostTensorND& value_of_var(GraphVar* var);
    const HostTensorND* try_value_of_var(GraphVar* var);
    // A shape that only execution could tell: computed again from what has been computed since.
    const kern::TensorShape& runtime_shape_of_var(GraphVar* var);

    // The tags that a run brings up to date first: all mutable sources that the vars need, then the
    // shapes of the static ones.
    struct UpdateList {
        std::vector<InferTag*> sources;
        std::vector<ShapeInferTag*> shapes;
    };
    UpdateList make_update_list(const std::vector<GraphVar*>& static_vars,
                                const std::vector<GraphVar*>& other_vars);
    // Stores what changed in the vars; returns whether any shape did. Each shape must be known.
    // What was read from computed values is forgotten: the run computes them anew.
    bool update(const UpdateList& list);

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
    void check_may_register(const GraphVar* var) const;

    ComputeGraph* m_graph;
    mutable std::recursive_mutex m_mutex;  // rules may ask for further shapes
    std::unordered_map<const GraphVar*, Tags> m_tags;
    // They stand for what execution produces, so no version tells of a change.
    std::unordered_set<InferTag*> m_tags_without_rule;
};

}  // namespace orb
