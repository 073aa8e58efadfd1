// Knows the shape, and where it can the value, of each var of a graph before execution. Operators
// register a rule for each output; the manager classifies it, caches results and recomputes only
// what changed. Any thread may ask: an operator may need a shape while it runs elsewhere.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "graph/tensor/tensor.h"

namespace orb {

class GraphVar;

// Ordered: the kind of a combination is the largest of its parts.
enum class InferKind : uint8_t {
    NO_RULE = 1,
    CONSTANT = 2,        // known when the graph is built
    RUNTIME_STATIC = 4,  // known before each run
    MISSING_INPUT = 8,   // known only once execution has produced some var
};

// Whether results of the kind are known before a run.
inline bool is_static(InferKind kind) {
    return kind == InferKind::CONSTANT || kind == InferKind::RUNTIME_STATIC;
}

enum class InferSource { DEPENDENT = 0, CONSTANT = 1, MUTABLE = 2 };
enum class InferDepType { SHAPE = 0, VALUE = 1 };

struct InferDep {
    GraphVar* var;
    InferDepType type;
};

// The result of a dependency, as a rule receives it: the member of the dependency's type is set.
struct InferInput {
    const kern::TensorShape* shape = nullptr;
    const HostTensorND* value = nullptr;
};

// A rule: what it needs, and how the result follows from it. `infer` returns no result by false,
// which only a mutable source may do.
template <typename Result>
struct InferDescriptor {
    InferSource source = InferSource::DEPENDENT;
    std::vector<InferDep> deps;
    std::function<bool(Result&, const std::vector<InferInput>&)> infer;
};

using ShapeInferDescriptor = InferDescriptor<kern::TensorShape>;
using ValueInferDescriptor = InferDescriptor<HostTensorND>;

class InferenceManager {
public:
    virtual ~InferenceManager() = default;

    // Only while the graph inserts the var's operator, and once per var. A constant shape is
    // computed now and stored in the var for good, unless the var's content is volatile.
    virtual void add_shape_rule(GraphVar* var, ShapeInferDescriptor descriptor) = 0;
    virtual void add_value_rule(GraphVar* var, ValueInferDescriptor descriptor) = 0;

    virtual InferKind shape_kind(const GraphVar* var) const = 0;
    virtual InferKind value_kind(const GraphVar* var) const = 0;
    // The vars that a shape of kind MISSING_INPUT waits for.
    virtual std::vector<GraphVar*> missing_inputs_of_shape(const GraphVar* var) const = 0;

    // The kind of the shape in the low byte, that of the value in the next.
    uint32_t inference_kinds(const GraphVar* var) const {
        return static_cast<uint32_t>(shape_kind(var)) | static_cast<uint32_t>(value_kind(var)) << 8;
    }

    // Up to date; no result stops the process, in the `try` forms it gives none. What a run under
    // way computes is waited for: by the event that the compiled order has for it, else until its
    // node has run all that it was given. A task of a node waits for events only; its operator says
    // what it depends on. A value that was handed out stays as it was.
    virtual kern::TensorShape shape_of_var(GraphVar* var) = 0;
    virtual std::optional<kern::TensorShape> try_shape_of_var(GraphVar* var) = 0;
    virtual HostTensorND value_of_var(GraphVar* var) = 0;
    virtual std::optional<HostTensorND> try_value_of_var(GraphVar* var) = 0;
};

}  // namespace orb
