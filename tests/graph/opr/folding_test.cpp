#include <algorithm>

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

// What a search computes: whole numbers, so that every order of additions gives the same.
class Folding : public testing::Test {
protected:
    void set_rows(size_t nr_a, size_t nr_b) {
        Values of_a, of_b, of_rows, of_columns;
        for (size_t i = 0; i < nr_a * DEPTH; ++i)
            of_a.push_back(static_cast<float>(i % 7));
        for (size_t i = 0; i < nr_b * DEPTH; ++i)
            of_b.push_back(static_cast<float>(i % 5) - 2);
        for (size_t i = 0; i < nr_a; ++i)
            of_rows.push_back(static_cast<float>(100 * i));
        for (size_t i = 0; i < nr_b; ++i)
            of_columns.push_back(static_cast<float>(1000 * i));
        fill<float>(*a, {nr_a, DEPTH}, of_a);
        fill<float>(*b, {nr_b, DEPTH}, of_b);
        fill<float>(*rows, {nr_a, 1}, of_rows);
        fill<float>(*columns, {1, nr_b}, of_columns);
    }
    Values wanted(float per_row, float per_column) const {
        const Values x = values_of<float>(*a), y = values_of<float>(*b);
        Values scores;
        for (size_t i = 0; i < a->shape(0); ++i) {
            for (size_t j = 0; j < b->shape(0); ++j) {
                float sum = 0;
                for (size_t k = 0; k < DEPTH; ++k)
                    sum += x[i * DEPTH + k] * y[j * DEPTH + k];
                scores.push_back(sum - per_row * static_cast<float>(100 * i) -
                                 per_column * static_cast<float>(1000 * j));
            }
        }
        return scores;
    }
    void SetUp() override { set_rows(3, 21); }

    GraphVar* input(std::shared_ptr<DeviceTensorND> tensor) {
        return SharedTensorInput::make(*graph, std::move(tensor));
    }
    GraphVar* product_of(GraphVar* x, GraphVar* y) {
        MatrixMultiply::Param param;
        param.transpose_b = true;
        return MatrixMultiply::make(x, y, param);
    }
    size_t nr_folded() const {
        return dynamic_cast<MatrixMultiply*>(product->owner_operator())->nr_folded();
    }
    static GraphVar* minus(GraphVar* x, GraphVar* y) { return ElementwiseOperator::subtract(x, y); }

    static constexpr size_t DEPTH = 4;
    const size_t ONE = is_folding_level() ? 1 : 0;
    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    using Tensor = std::shared_ptr<DeviceTensorND>;
    const Tensor a = make_tensor<float>({1, DEPTH}, Values(DEPTH));
    const Tensor b = make_tensor<float>({1, DEPTH}, Values(DEPTH));
    const Tensor rows = make_tensor<float>({1, 1}, {0});
    const Tensor columns = make_tensor<float>({1, 1}, {0});
    GraphVar* product = product_of(input(a), input(b));
    GraphVar* less_rows = minus(product, input(rows));
    GraphVar* less_both = minus(less_rows, input(columns));
    Values result, other;
};

TEST_F(Folding, FollowsShapesAndMemory) {
    const auto function = graph->compile({{less_both, take(result)}});
    for (size_t nr_b : std::vector<size_t>{21, 21, 1, 40, 0, 3}) {
        set_rows(nr_b % 2 + 2, nr_b);
        function->execute().wait();
        EXPECT_EQ(result, wanted(1, 1)) << nr_b;
        if (nr_b > 0) {
            EXPECT_EQ(nr_folded(), 2 * ONE);
        }
    }
    // Another form of operand: what was folded in the run before no longer is.
    fill<float>(*rows, {1, 1}, {7});
    function->execute().wait();
    Values less = wanted(0, 1);
    for (float& value : less)
        value -= 7;
    EXPECT_EQ(result, less);
    EXPECT_EQ(nr_folded(), 0u);
}

TEST_F(Folding, StopsBeforeWhatAnotherReads) {
    auto function = graph->compile({{less_both, take(result)}});
    function->execute().wait();
    EXPECT_EQ(nr_folded(), 2 * ONE);
    // The operators that were computed by the product then are not now.
    function = graph->compile({{less_both, take(result)}, {product, take(other)}});
    function->execute().wait();
    EXPECT_EQ(result, wanted(1, 1));
    EXPECT_EQ(other, wanted(0, 0));
    EXPECT_EQ(nr_folded(), 0u);
    function = graph->compile({{less_both, take(result)}, {less_rows, nullptr}});
    function->execute().wait();
    EXPECT_EQ(result, wanted(1, 1));
    EXPECT_EQ(values_of<float>(less_rows->device_value()), wanted(1, 0));
    EXPECT_EQ(nr_folded(), ONE);
}

TEST_F(Folding, StopsWhereTheLevelDoes) {
    GraphVar* again = minus(less_both, input(rows));
    EXPECT_EQ(run<float>(again), wanted(2, 1));
    EXPECT_EQ(nr_folded(), 2 * ONE);
    GraphVar* columns_first = minus(minus(product, input(columns)), input(rows));
    EXPECT_EQ(run<float>(columns_first), wanted(1, 1));
    EXPECT_EQ(nr_folded(), ONE);
    GraphVar* zero = ConstantTensor::make_scalar(*graph, 0.0f, on_node());
    EXPECT_EQ(run<float>(minus(product, zero)), wanted(0, 0));
    EXPECT_EQ(nr_folded(), 0u);
}

TEST_F(Folding, TakesOnlyOperandsThatAreThereBefore) {
    // The sum comes after the product in the first order and before it in the second.
    GraphVar* sum = ElementwiseOperator::make({input(rows), input(rows)}, ElementwiseMode::ADD);
    GraphVar* difference = minus(product, sum);
    const auto late = graph->compile({{difference, take(result)}});
    late->execute().wait();
    EXPECT_EQ(result, wanted(2, 0));
    EXPECT_EQ(nr_folded(), 0u);
    const auto early = graph->compile({{sum, take(other)}, {difference, take(result)}});
    early->execute().wait();
    EXPECT_EQ(result, wanted(2, 0));
    EXPECT_EQ(nr_folded(), ONE);
}

TEST_F(Folding, NeedsTheProductOnTheLeftAndItsShape) {
    EXPECT_EQ(run<float>(minus(product, product)), Values(3 * 21, 0));
    Values negated = wanted(0, 0);
    for (float& value : negated)
        value = -value;
    const auto zeros = make_tensor<float>({1, 21}, Values(21, 0));
    EXPECT_EQ(run<float>(minus(input(zeros), product)), negated);
    set_rows(1, 21);  // a row that becomes three
    const auto three = make_tensor<float>({3, 1}, {0, 0, 0});
    const Values row = wanted(0, 0);
    Values wide = run<float>(minus(product, input(three)));
    ASSERT_EQ(wide.size(), 3 * row.size());
    EXPECT_TRUE(std::equal(row.begin(), row.end(), wide.begin() + 21));
    EXPECT_EQ(nr_folded(), 0u);
}

// Lent memory that an operator changes on purpose does not hold the operand from the start.
TEST_F(Folding, WaitsForAnOperandThatIsChangedInPlace) {
    GraphVar* changed = InplaceAdd::make(input(rows), input(rows));
    EXPECT_EQ(run<float>(minus(product, changed)), wanted(2, 0));
    EXPECT_EQ(nr_folded(), 0u);
}

}  // namespace
}  // namespace orb
