// The base of operators whose parameters are one record with listed fields: equality, `param()` and
// copies follow from the list. A class derives with itself as first argument, has a public TYPE,
// and a constructor (inputs, param, config) for its friend, this base.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/operator_copy.h"
#include "graph/core/param_fields.h"
#include "graph/exec/single_node_operator.h"
#include "kernels/check.h"

namespace orb {

template <typename Derived, typename ParamRecord, typename Base = SingleNodeOperator>
class ParamOperator : public Base {
public:
    using Param = ParamRecord;

    const OperatorType* type_record() const final { return &Derived::TYPE; }
    const Param& param() const { return m_param; }

    // Exactly this operator, without the rewrites that a `make` may have: for `make` itself, for
    // copies and for readers of graph files. Gives the first output, maybe of an equal operator.
    static GraphVar* create(const std::vector<GraphVar*>& inputs, const Param& param,
                            const OperatorConfig& config) {
        return Base::insert(make_new(inputs, param, config));
    }
    // The same, and gives the operator that stands in the graph then.
    static GraphOperator* insert_new(ComputeGraph& graph, const std::vector<GraphVar*>& inputs,
                                     const Param& param, const OperatorConfig& config) {
        return graph.insert_operator(make_new(inputs, param, config));
    }
    static GraphOperator* copy(const GraphOperator& source, ComputeGraph& graph,
                               const std::vector<GraphVar*>& inputs, const OperatorConfig& config) {
        return insert_new(graph, inputs, static_cast<const Derived&>(source).param(), config);
    }

    // What follows from the parameters alone, so that it can be asked before an operator is made;
    // hidden by classes of which something else is true. Only asked for parameters that are
    // accepted.
    static bool accepts(const Param&) { return true; }
    static size_t nr_inputs(const Param&) { return 1; }
    // For operators that may be given more than one number of inputs.
    static bool takes(const Param& param, size_t count) {
        return count == Derived::nr_inputs(param);
    }
    static size_t nr_outputs(const Param&) { return 1; }  // that are not volatile

protected:
    ParamOperator(ComputeGraph& graph, const std::vector<GraphVar*>& inputs, Param param,
                  const OperatorConfig& config, const std::string& default_name)
        : Base(&graph, config, default_name), m_param(std::move(param)) {
        this->add_input(inputs);
        std::vector<uint64_t> words;
        visit_fields(m_param, [&words](const auto& field) { append_words(words, field); });
        for (uint64_t word : words)
            this->add_equality_key(word);
    }

private:
    static std::unique_ptr<GraphOperator> make_new(const std::vector<GraphVar*>& inputs,
                                                   const Param& param,
                                                   const OperatorConfig& config) {
        KERN_CHECK(Derived::accepts(param) && Derived::takes(param, inputs.size()));
        std::unique_ptr<GraphOperator> op(new Derived(inputs, param, config));
        KERN_CHECK(op->kept_outputs().size() == Derived::nr_outputs(param));
        return op;
    }

    const Param m_param;
};

}  // namespace orb
