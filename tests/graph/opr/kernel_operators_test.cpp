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
#include "graph/opr/conv_bias.h"
#include "graph/opr/cumsum.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/inplace_add.h"
#include "graph/opr/mask_convolution.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
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

Matrix transposed(const Matrix& m) {
    Matrix result{{m.length(), m.rows()}, {}};
    for (size_t column = 0; column < m.length(); ++column) {
        for (size_t row = 0; row < m.rows(); ++row)
            result.values.push_back(m.at(row, column));
    }
    return result;
}

// Each row of `a` times each row of `b`.
Matrix products_of_rows(const Matrix& a, const Matrix& b) {
    Matrix result{{a.rows(), b.rows()}, {}};
    for (size_t i = 0; i < a.rows(); ++i) {
        for (size_t j = 0; j < b.rows(); ++j) {
            float sum = 0;
            for (size_t k = 0; k < a.length(); ++k)
                sum += a.at(i, k) * b.at(j, k);
            result.values.push_back(sum);
        }
    }
    return result;
}

// A matrix as an image {1, 1, height, width} of so many spatial axes, as filters {oc, 1, 1, width},
// and as images {1, channels, height, 1}.
template <size_t AXES>
GraphVar* as_image(GraphVar* matrix) {
    return DimensionShuffle::make(matrix, AXES == 2 ? std::vector<int32_t>{-1, -1, 0, 1}
                                                    : std::vector<int32_t>{-1, -1, -1, 0, 1});
}
template <size_t AXES>
GraphVar* as_filters(GraphVar* matrix) {
    return DimensionShuffle::make(matrix, AXES == 2 ? std::vector<int32_t>{0, -1, -1, 1}
                                                    : std::vector<int32_t>{0, -1, -1, -1, 1});
}
template <size_t AXES>
GraphVar* as_channels(GraphVar* matrix) {
    return DimensionShuffle::make(matrix, AXES == 2 ? std::vector<int32_t>{-1, 0, 1, -1}
                                                    : std::vector<int32_t>{-1, 0, -1, 1, -1});
}

// Rows of a matrix met by filters of their length: matrix products in all directions.
template <typename Forward, size_t AXES, NameForm FORM>
GraphVar* filtered(const Vars& v) {
    return Forward::make({as_image<AXES>(v[0]), as_filters<AXES>(v[1])}, {{}, FORM});
}
template <typename BackwardData, size_t AXES, NameForm FORM>
GraphVar* spread(const Vars& v) {
    return BackwardData::make({as_filters<AXES>(v[0]), as_channels<AXES>(v[1])}, {{}, FORM});
}
template <typename BackwardFilter, size_t AXES, NameForm FORM>
GraphVar* correlated(const Vars& v) {
    GraphVar* channels = DimensionShuffle::make(v[1], {1, 0});
    GraphVar* square = MatrixMultiply::make(channels, v[0], {});
    return BackwardFilter::make(
        {as_image<AXES>(v[0]), as_channels<AXES>(channels), as_filters<AXES>(square)}, {{}, FORM});
}

std::vector<Values> filtered_rows(const std::vector<Matrix>& m) {
    return {products_of_rows(m[1], m[0]).values};
}
std::vector<Values> spread_rows(const std::vector<Matrix>& m) {
    return {products_of_rows(transposed(m[1]), transposed(m[0])).values};
}

GraphVar* reduced(GraphVar* matrix, kern::ReduceMode mode) {  // to one column
    return ReduceOperator::make(matrix, {mode, 1, {}});
}
float extreme_of(const Matrix& m, size_t row, bool is_largest) {
    const size_t at = is_largest ? order_of(m, row).back() : order_of(m, row).front();
    return m.at(row, at);
}

template <NameForm FORM>
GraphVar* biased(const Vars& v) {
    GraphVar* bias = DimensionShuffle::make(reduced(v[1], kern::ReduceMode::MAX), {-1, 0, 1, -1});
    return ConvBias::make(as_image<2>(v[0]), as_filters<2>(v[1]), bias,
                          {{{}, kern::Nonlinearity::RELU}, FORM});
}
std::vector<Values> biased_rows(const std::vector<Matrix>& m) {
    Matrix sums = products_of_rows(m[1], m[0]);
    for (size_t i = 0; i < sums.values.size(); ++i) {
        float& value = sums.values[i];
        value = std::max(value + extreme_of(m[1], i / sums.length(), true), 0.0f);
    }
    return {sums.values};
}

std::vector<Values> unmasked_rows(const std::vector<Matrix>& m) {
    Matrix sums = products_of_rows(m[1], m[0]);
    for (size_t i = 0; i < sums.values.size(); ++i)
        sums.values[i] *= extreme_of(m[0], i % sums.length(), false) <= 0 ? 0.0f : 1.0f;
    return {sums.values};
}

GraphVar* positive(GraphVar* var) {
    return ElementwiseOperator::make({var}, kern::ElementwiseMode::RELU);
}

// A window of two columns, padded on both sides.
std::vector<Values> live_pairs(const std::vector<Matrix>& m) {
    Values live;
    for (size_t row = 0; row < m[0].rows(); ++row) {
        for (size_t i = 0; i <= m[0].length(); ++i) {
            const bool left = i > 0 && m[0].at(row, i - 1) > 0;
            const bool right = i < m[0].length() && m[0].at(row, i) > 0;
            live.push_back(left || right ? 1.0f : 0.0f);
        }
    }
    return {live};
}

const Case CASES[] = {
    {"conv_fwdv2", 2, filtered<ConvolutionForward, 2, NameForm::PLAIN>, filtered_rows},
    {"conv3d", 2, filtered<Convolution3DForward, 3, NameForm::PLAIN>, filtered_rows},
    {"conv3d_fwdv2", 2, filtered<Convolution3DForward, 3, NameForm::V2>, filtered_rows},
    {"conv_bwd_data", 2, spread<ConvolutionBackwardData, 2, NameForm::PLAIN>, spread_rows},
    {"conv_bwd_datav2", 2, spread<ConvolutionBackwardData, 2, NameForm::V2>, spread_rows},
    {"conv3d_bwd_data", 2, spread<Convolution3DBackwardData, 3, NameForm::PLAIN>, spread_rows},
    {"conv3d_bwd_datav2", 2, spread<Convolution3DBackwardData, 3, NameForm::V2>, spread_rows},
    {"conv_bwd_filter", 2, correlated<ConvolutionBackwardFilter, 2, NameForm::PLAIN>, spread_rows},
    {"conv_bwd_filterv2", 2, correlated<ConvolutionBackwardFilter, 2, NameForm::V2>, spread_rows},
    {"conv3d_bwd_filter", 2, correlated<Convolution3DBackwardFilter, 3, NameForm::PLAIN>,
     spread_rows},
    {"conv3d_bwd_filterv2", 2, correlated<Convolution3DBackwardFilter, 3, NameForm::V2>,
     spread_rows},
    {"conv_bias", 2, biased<NameForm::PLAIN>, biased_rows},
    {"conv_bias_fwdv2", 2, biased<NameForm::V2>, biased_rows},
    {"mask_conv_fwd", 2,
     [](const Vars& v) {
         return MaskConvolution::make(as_image<2>(v[0]), as_filters<2>(v[1]),
                                      positive(reduced(v[0], kern::ReduceMode::MIN)), {});
     },
     unmasked_rows},
    {"mask_propagate", 1,
     [](const Vars& v) {
         return MaskPropagate::make(positive(v[0]), {0, 1, 1, 1, 1, 2, 1, 1});
     },
     live_pairs},
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

// Images that end in a column which no output sees, by a var of their shape.
TEST_F(KernelOperators, BackwardDataOfLargerImages) {
    const auto source = [&](const TensorShape& shape, const Values& values) {
        return SharedTensorInput::make(*graph, make_tensor<float>(shape, values));
    };
    GraphVar* filter = source({1, 1, 1, 1}, {3});
    GraphVar* gradient = source({1, 1, 1, 2}, {5, 7});
    kern::ConvolutionParam param;
    param.stride_w = 2;
    EXPECT_EQ(run<float>(ConvolutionBackwardData::make({filter, gradient}, {param})),
              (Values{15, 0, 21}));
    GraphVar* images = source({1, 1, 1, 4}, {0, 0, 0, 0});
    EXPECT_EQ(run<float>(ConvolutionBackwardData::make({filter, gradient, images}, {param})),
              (Values{15, 0, 21, 0}));
    GraphVar* too_large = source({1, 1, 1, 5}, Values(5));
    EXPECT_DEATH(run<float>(ConvolutionBackwardData::make({filter, gradient, too_large}, {param})),
                 "");
    EXPECT_DEATH(ConvolutionForward::make({images, filter, images}, {param}), "");
    EXPECT_DEATH(ConvolutionBackwardFilter::make({images, gradient}, {param}), "");
    param.format = kern::ConvolutionFormat{1};
    EXPECT_DEATH(ConvolutionForward::make({images, filter}, {param}), "");
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
