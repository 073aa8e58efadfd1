// Operators that forward to one kernel, each against a plain formula: shapes that change between
// runs, inputs in planned memory and in memory of the run, and copies in another graph.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "graph/core/operator_copy.h"
#include "graph/opr/arg_max.h"
#include "graph/opr/arg_min.h"
#include "graph/opr/argsort.h"
#include "graph/opr/batched_matrix_multiply.h"
#include "graph/opr/cond_take.h"
#include "graph/opr/constant_tensor.h"
#include "graph/opr/cumsum.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/inplace_add.h"
#include "graph/opr/top_k.h"
#include "tests/graph/graph_test_util.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::TensorShape;
using Values = std::vector<float>;
using Vars = std::vector<GraphVar*>;

struct Matrix {
    TensorShape shape;
    Values values;
    float at(size_t row, size_t column) const { return values[row * shape[1] + column]; }
    size_t rows() const { return shape[0]; }
    size_t length() const { return shape[1]; }
};

struct Case {
    const char* name;
    size_t nr_inputs;
    std::function<GraphVar*(const Vars&)> make;
    // Values of all outputs with content, as floats.
    std::function<std::vector<Values>(const std::vector<Matrix>&)> wanted;
};

// Positions of a row's elements in ascending order.
std::vector<size_t> order_of(const Matrix& m, size_t row) {
    std::vector<size_t> order(m.length());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return m.at(row, a) < m.at(row, b); });
    return order;
}

std::vector<Values> first_of_rows(const Matrix& m, size_t count, bool from_largest) {
    std::vector<Values> result(2);
    for (size_t row = 0; row < m.rows(); ++row) {
        auto order = order_of(m, row);
        if (from_largest)
            std::reverse(order.begin(), order.end());
        for (size_t i = 0; i < std::min(count, order.size()); ++i) {
            result[0].push_back(m.at(row, order[i]));
            result[1].push_back(static_cast<float>(order[i]));
        }
    }
    return result;
}

std::vector<Values> cumsum_of(const Matrix& m) {  // exclusive, from the end
    Values sums = m.values;
    for (size_t row = 0; row < m.rows(); ++row) {
        float sum = 0;
        for (size_t i = m.length(); i-- > 0; sum += m.at(row, i))
            sums[row * m.length() + i] = sum;
    }
    return {sums};
}

std::vector<Values> taken_above(const Matrix& data, const Matrix& mask, float limit) {
    std::vector<Values> result(2);
    for (size_t i = 0; i < data.values.size(); ++i) {
        if (mask.values[i] > limit) {
            result[0].push_back(data.values[i]);
            result[1].push_back(static_cast<float>(i));
        }
    }
    return result;
}

// One batch per row: the row as a column times the other's row.
std::vector<Values> outer_products(const Matrix& a, const Matrix& b) {
    Values result;
    for (size_t n = 0; n < a.rows(); ++n) {
        for (size_t i = 0; i < a.length(); ++i) {
            for (size_t j = 0; j < b.length(); ++j)
                result.push_back(a.at(n, i) * b.at(n, j));
        }
    }
    return {result};
}

const Case CASES[] = {
    {"argmax", 1, [](const Vars& v) { return ArgMax::make(v[0], {1}); },
     [](const auto& m) { return std::vector<Values>{first_of_rows(m[0], 1, true)[1]}; }},
    {"argmin", 1, [](const Vars& v) { return ArgMin::make(v[0], {1}); },
     [](const auto& m) { return std::vector<Values>{first_of_rows(m[0], 1, false)[1]}; }},
    {"argsort", 1,
     [](const Vars& v) { return Argsort::make(v[0], {kern::Argsort::Order::DESCENDING}); },
     [](const auto& m) { return first_of_rows(m[0], m[0].length(), true); }},
    {"cumsum", 1,
     [](const Vars& v) {
         return Cumsum::make(v[0], {-1, true, true});
     },
     [](const auto& m) { return cumsum_of(m[0]); }},
    {"top_k", 1,
     [](const Vars& v) {
         return TopK::make(v[0], {kern::TopK::Mode::ORDERED, -2});
     },
     [](const auto& m) { return first_of_rows(m[0], 2, true); }},
    {"top_k", 1,
     [](const Vars& v) {
         return TopK::make(v[0], {kern::TopK::Mode::KTH_VALUE, 1});
     },
     [](const auto& m) { return std::vector<Values>{first_of_rows(m[0], 1, false)[0]}; }},
    {"cond_take", 2,
     [](const Vars& v) {
         return CondTake::make(v[0], v[1], {kern::CondTakeMode::GREATER, 1, 1e-6f});
     },
     [](const auto& m) { return taken_above(m[0], m[1], 1); }},
    {"batched_matrix_mul", 2,
     [](const Vars& v) {
         return BatchedMatrixMultiply::make(DimensionShuffle::make(v[0], {0, -1, 1}),
                                            DimensionShuffle::make(v[1], {0, -1, 1}),
                                            {true, false, {}});
     },
     [](const auto& m) { return outer_products(m[0], m[1]); }},
};

Matrix matrix(const TensorShape& shape, uint32_t seed) {
    Matrix m{shape, {}};
    std::vector<uint32_t> order(shape.element_count());
    std::iota(order.begin(), order.end(), 0u);
    // A permutation, so that no order depends on how ties are broken.
    for (size_t i = order.size(); i > 1; --i) {
        seed = seed * 1664525 + 1013904223;
        std::swap(order[i - 1], order[(seed >> 8) % i]);
    }
    for (uint32_t value : order)
        m.values.push_back(static_cast<float>(value) - 3);
    return m;
}

Values as_floats(const DeviceTensorND& tensor) {
    if (tensor.dtype() == kern::DType::Float32())
        return values_of<float>(tensor);
    Values result;
    for (int32_t value : values_of<int32_t>(tensor))
        result.push_back(static_cast<float>(value));
    return result;
}

class KernelOperators : public testing::Test {
protected:
    // The var itself, or a copy of it in memory that the run allocates.
    GraphVar* placed(GraphVar* var, bool late) {
        if (!late)
            return var;
        GraphVar* zero = ConstantTensor::make_scalar(*graph, 0.0f, on_node());
        return &ElementwiseOperator::make({var, zero}, kern::ElementwiseMode::ADD)
                    ->add_flag(var_flag::DYNAMIC_STORAGE);
    }
    void check(const Case& test, bool late) {
        std::vector<std::shared_ptr<DeviceTensorND>> tensors;
        Vars inputs;
        for (size_t i = 0; i < test.nr_inputs; ++i) {
            tensors.push_back(make_tensor<float>({1, 2}, {0, 0}));
            inputs.push_back(placed(SharedTensorInput::make(*graph, tensors.back()), late));
        }
        GraphVar* first = test.make(inputs);
        const std::string prefix = test.name + std::string("[");
        EXPECT_EQ(first->owner_operator()->name().rfind(prefix, 0), 0u);
        EXPECT_EQ(test.make(inputs), first);
        std::vector<Values> results(first->owner_operator()->output().size());
        std::vector<OutputSpec> specs;
        for (GraphVar* var : first->owner_operator()->output()) {
            if (var->has_flag(var_flag::VOLATILE_CONTENT))
                continue;
            Values& result = results[specs.size()];
            specs.push_back({var, [&result](const auto& value) { result = as_floats(value); }});
        }
        results.resize(specs.size());
        if (specs.size() > 1) {
            EXPECT_EQ(specs[1].var->name(), first->owner_operator()->name() + ":o1");
        }
        const auto function = graph->compile(specs);
        uint32_t seed = 1;
        for (const TensorShape& shape : {TensorShape{3, 4}, {3, 4}, {1, 2}, {5, 9}, {2, 4}}) {
            std::vector<Matrix> sources;
            for (auto& tensor : tensors) {
                sources.push_back(matrix(shape, seed++));
                fill(*tensor, shape, sources.back().values);
            }
            function->execute().wait();
            EXPECT_EQ(results, test.wanted(sources)) << test.name << late << shape.to_string();
        }
    }

    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
};

TEST_F(KernelOperators, FollowTheirFormulas) {
    for (const Case& test : CASES) {
        check(test, false);
        check(test, true);
    }
}

TEST_F(KernelOperators, CopiesAreEqualElsewhere) {
    const auto other = ComputeGraph::make();
    const auto tensor = make_tensor<float>({2, 4}, matrix({2, 4}, 7).values);
    GraphVar* here = SharedTensorInput::make(*graph, tensor);
    GraphVar* there = SharedTensorInput::make(*other, tensor);
    for (const Case& test : CASES) {
        const GraphOperator* op = test.make(Vars(test.nr_inputs, here))->owner_operator();
        GraphOperator* wanted = test.make(Vars(test.nr_inputs, there))->owner_operator();
        // Equal to what was made there, down to merging; other parameters are another operator.
        const auto copy = OperatorCopy::find(op->type_record());
        ASSERT_TRUE(copy) << test.name;
        EXPECT_EQ(copy(*op, *other, wanted->input(), {}), wanted) << test.name;
        OperatorConfig config;
        config.instance_id = 1;
        EXPECT_NE(copy(*op, *other, wanted->input(), config), wanted) << test.name;
    }
    EXPECT_EQ(OperatorCopy::find(here->owner_operator()->type_record())(*here->owner_operator(),
                                                                        *other, {}, {}),
              there->owner_operator());
    EXPECT_NE(ArgMax::make(here, {0}), ArgMax::make(here, {1}));
}

TEST_F(KernelOperators, AnAdditionInPlaceChangesItsTensor) {
    const auto tensor = make_tensor<float>({2, 2}, {1, 2, 3, 4});
    const auto delta = make_tensor<float>({1, 2}, {10, 20});
    GraphVar* kept = SharedTensorInput::make(*graph, tensor);
    GraphVar* added = SharedTensorInput::make(*graph, delta);
    GraphVar* sum = InplaceAdd::make(kept, added);
    const auto function = graph->compile({{sum, nullptr}});
    function->execute().wait();
    EXPECT_EQ(values_of<float>(*tensor), (Values{11, 22, 13, 24}));
    function->execute().wait();
    EXPECT_EQ(values_of<float>(*tensor), (Values{21, 42, 23, 44}));
    // Other memory, then another shape.
    *tensor = *make_tensor<float>({2, 2}, {0, 0, 0, 0});
    function->execute().wait();
    EXPECT_EQ(values_of<float>(*tensor), (Values{10, 20, 10, 20}));
    *tensor = *make_tensor<float>({1, 2}, {1, 1});
    function->execute().wait();
    EXPECT_EQ(values_of<float>(*tensor), (Values{11, 21}));
    EXPECT_EQ(sum->device_value().raw_ptr(), tensor->raw_ptr());

    // Into planned memory and into memory of the run.
    for (bool late : {false, true}) {
        GraphVar* doubled = placed(ElementwiseOperator::make({kept, added},  //
                                                             kern::ElementwiseMode::ADD),
                                   late);
        EXPECT_EQ(run<float>(InplaceAdd::make(doubled, added)), (Values{31, 61}));
        EXPECT_EQ(values_of<float>(*tensor), (Values{11, 21}));
    }

    GraphVar* constant = ConstantTensor::make_scalar(*graph, 1.0f, on_node());
    EXPECT_DEATH(run<float>(InplaceAdd::make(constant, constant)), "");
    EXPECT_DEATH(run<float>(InplaceAdd::make(DimensionShuffle::make(constant, {-1, 0}), constant)),
                 "");
    EXPECT_DEATH(run<float>(InplaceAdd::make(constant, kept)), "");
    *tensor = *make_tensor<float>({2, 2}, {0, 0, 0, 0});
    EXPECT_DEATH(run<float>(InplaceAdd::make(kept, DimensionShuffle::make(kept, {1, 0}))), "");
}

}  // namespace
}  // namespace orb
