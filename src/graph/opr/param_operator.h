// The base of operators whose parameters are one record with listed fields: equality, `param()` and
// copies follow from the list. A class derives with itself as first argument, has a public TYPE,
// and a constructor (inputs, param, config) for its friend, this base.
#pragma once

#include <utility>
#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/operator_copy.h"
#include "graph/core/param_fields.h"
#include "graph/exec/single_node_operator.h"

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
        return Base::insert(std::unique_ptr<GraphOperator>(new Derived(inputs, param, config)));
    }
    static GraphOperator* copy(const GraphOperator& source, ComputeGraph& graph,
                               const std::vector<GraphVar*>& inputs, const OperatorConfig& config) {
        std::unique_ptr<GraphOperator> op(
            new Derived(inputs, static_cast<const Derived&>(source).param(), config));
        return graph.insert_operator(std::move(op));
    }

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
    const Param m_param;
};

}  // namespace orb
