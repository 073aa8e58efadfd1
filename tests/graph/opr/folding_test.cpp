#include "graph/opr/constant_tensor.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/inplace_add.h"
#include "graph/opr/matrix_multiply.h"
#include "tests/graph/graph_test_util.h"
#if defined(__x86_64__)
#include "kernels/x86/cpu.h"
#endif

namespace orb {
namespace {

using namespace orb_test;
using kern::ElementwiseMode;
using Values = std::vector<float>;

// Whether products of the default handle fold at all.
bool is_folding_level() {
#if defined(__x86_64__)
    return kern::x86::best_instruction_set() != kern::x86::InstructionSet::NONE;
#else
    return false;
#endif
}

// Which operators a product takes over. That the values stay the same is what random graphs show.
class Folding : public testing::Test {
protected:
    GraphVar* input(const kern::TensorShape& shape) {
        tensors.push_back(make_tensor<float>(shape, Values(shape.element_count(), 1)));
        return SharedTensorInput::make(*graph, tensors.back());
    }
    // How many operators are part of the product when `outputs` are computed.
    size_t nr_folded(const std::vector<GraphVar*>& outputs) {
        std::vector<OutputSpec> specs;
        for (GraphVar* var : outputs)
            specs.push_back({var, nullptr});
        function = graph->compile(specs);
        return nr_folded_again();
    }
    size_t nr_folded_again() {
        function->execute().wait();
        return dynamic_cast<MatrixMultiply*>(product->owner_operator())->nr_folded();
    }
    static GraphVar* minus(GraphVar* x, GraphVar* y) { return ElementwiseOperator::subtract(x, y); }

    const size_t ONE = is_folding_level() ? 1 : 0;
    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    std::vector<std::shared_ptr<DeviceTensorND>> tensors;
    GraphVar* a = input({3, 4});
    GraphVar* b = input({21, 4});
    GraphVar* product = MatrixMultiply::make(a, b, {false, true, {}});
    GraphVar* rows = input({3, 1});
    GraphVar* columns = input({1, 21});
    GraphVar* less_rows = minus(product, rows);
    GraphVar* less_both = minus(less_rows, columns);
    std::unique_ptr<CompiledFunction> function;
};

TEST_F(Folding, FollowsTheFormOfTheOperand) {
    EXPECT_EQ(nr_folded({less_both}), 2 * ONE);
    fill<float>(*tensors[2], {1, 1}, {7});  // no longer one per row
    EXPECT_EQ(nr_folded_again(), 0u);
    EXPECT_EQ(values_of<float>(less_both->device_value()), Values(3 * 21, 4 - 7 - 1));
    fill<float>(*tensors[2], {3, 1}, {7, 7, 7});
    EXPECT_EQ(nr_folded_again(), 2 * ONE);
    fill<float>(*tensors[0], {1, 4}, {1, 1, 1, 1});  // a row that becomes three
    EXPECT_EQ(nr_folded_again(), 0u);
    EXPECT_EQ(values_of<float>(less_both->device_value()), Values(3 * 21, 4 - 7 - 1));
}

TEST_F(Folding, StopsBeforeWhatAnotherReads) {
    EXPECT_EQ(nr_folded({less_both}), 2 * ONE);
    EXPECT_EQ(nr_folded({less_both, product}), 0u);
    EXPECT_EQ(nr_folded({less_both, less_rows}), ONE);
    EXPECT_EQ(values_of<float>(less_rows->device_value()), Values(3 * 21, 3));
    EXPECT_EQ(values_of<float>(less_both->device_value()), Values(3 * 21, 2));
}

TEST_F(Folding, TakesWhatTheLevelTakesAndIsThereBefore) {
    EXPECT_EQ(nr_folded({minus(less_both, rows)}), 2 * ONE);
    EXPECT_EQ(nr_folded({minus(minus(product, columns), rows)}), ONE);
    EXPECT_EQ(nr_folded({minus(product, product)}), 0u);
    EXPECT_EQ(nr_folded({minus(columns, product)}), 0u);
    GraphVar* zero = ConstantTensor::make_scalar(*graph, 0.0f, on_node());
    EXPECT_EQ(nr_folded({minus(product, zero)}), 0u);
    // The sum comes after the product in the first order and before it in the second.
    GraphVar* sum = ElementwiseOperator::make({rows, rows}, ElementwiseMode::ADD);
    GraphVar* difference = minus(product, sum);
    EXPECT_EQ(nr_folded({difference}), 0u);
    EXPECT_EQ(nr_folded({sum, difference}), ONE);
    // Lent memory that an operator changes on purpose does not hold the operand from the start.
    difference = minus(product, InplaceAdd::make(rows, rows));
    EXPECT_EQ(nr_folded({difference}), 0u);
    EXPECT_EQ(values_of<float>(difference->device_value()), Values(3 * 21, 2));
}

}  // namespace
}  // namespace orb
