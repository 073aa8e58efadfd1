#include "graph/opr/folding.h"

#include <unordered_map>
#include <utility>

#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"

namespace orb {
namespace {

class Readers {
public:
    Readers(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& outputs) {
        for (GraphOperator* op : order) {
            for (const auto& dependency : op->properties().dependencies)
                m_readers[dependency.first].push_back(op);
        }
        for (const GraphVar* var : outputs)
            m_readers[var].push_back(nullptr);  // somebody outside
    }

    // The elementwise operator that alone reads the var, as the first of two inputs of its node; or
    // null.
    ElementwiseOperator* epilogue(const GraphVar* var) const {
        const auto found = m_readers.find(var);
        if (found == m_readers.end() || found->second.size() != 1)
            return nullptr;
        auto* op = dynamic_cast<ElementwiseOperator*>(found->second[0]);
        if (!op || op->input().size() != 2 || op->input(0) != var || op->input(1) == var)
            return nullptr;
        const auto is_near = [op](const GraphVar* v) { return v->comp_node() == op->comp_node(); };
        return is_near(op->input(0)) && is_near(op->input(1)) ? op : nullptr;
    }

private:
    std::unordered_map<const GraphVar*, std::vector<GraphOperator*>> m_readers;
};

}  // namespace

void fold_into_products(const std::vector<GraphOperator*>& order,
                        const std::vector<GraphVar*>& outputs) {
    const Readers readers(order, outputs);
    for (GraphOperator* op : order) {
        if (auto* elementwise = dynamic_cast<ElementwiseOperator*>(op))
            elementwise->computed_by_product(false);
        auto* product = dynamic_cast<MatrixMultiply*>(op);
        if (!product)
            continue;
        std::vector<ElementwiseOperator*> epilogues;
        while (ElementwiseOperator* next = readers.epilogue(
                   epilogues.empty() ? product->output(0) : epilogues.back()->output(0)))
            epilogues.push_back(next);
        product->epilogues(std::move(epilogues));
    }
}

}  // namespace orb
