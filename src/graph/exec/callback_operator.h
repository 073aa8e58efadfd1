// Hands a var's value to the callbacks of a compiled function. One per var, made by `compile`.
#pragma once

#include "graph/core/compute_graph.h"
#include "graph/exec/single_node_operator.h"

namespace orb {

class CallbackOperator final : public SingleNodeOperator {
public:
    static const OperatorType TYPE;

    static CallbackOperator* make(GraphVar* var);

    const OperatorType* type_record() const override { return &TYPE; }
    void clear_callbacks() { m_callbacks = std::make_shared<Callbacks>(); }
    void add_callback(OutputCallback callback) { m_callbacks->push_back(std::move(callback)); }

protected:
    void register_output_inference() override;
    OperatorProperties make_properties() const override;
    void run_on_node() override;

private:
    using Callbacks = std::vector<OutputCallback>;

    explicit CallbackOperator(GraphVar* var);

    std::shared_ptr<Callbacks> m_callbacks = std::make_shared<Callbacks>();
};

}  // namespace orb
