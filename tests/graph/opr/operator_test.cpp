#include <algorithm>
#include <cmath>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/type_convert.h"
#include "tests/graph/graph_test_util.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::DType;
using kern::ElementwiseMode;
using kern::ReduceMode;

class Operators : public testing::Test {
protected:
    template <typename T>
    GraphVar* input(const kern::TensorShape& shape, const std::vector<T>& values) {
        return SharedTensorInput::make(*graph, make_tensor<T>(shape, values));
    }
    GraphVar* reduce(GraphVar* var, ReduceMode mode, int axis = 0, GraphVar* target = nullptr) {
        return ReduceOperator::make(var, {mode, axis, kern::ReduceDataType::DEFAULT}, target);
    }
    // A target shape of as many axes of length 1.
    GraphVar* ones(size_t nr_axes) {
        HostTensorND shape(CompNode::default_cpu(), {nr_axes}, DType::Int32());
        std::fill_n(shape.ptr<int32_t>(), nr_axes, 1);
        return ConstantTensor::make(*graph, shape, on_node());
    }

    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
};

TEST_F(Operators, ConstantsAreSharedPerNode) {
    GraphVar* two = ConstantTensor::make_scalar(*graph, 2.0f, on_node());
    EXPECT_EQ(ConstantTensor::make_scalar(*graph, 2.0f, on_node()), two);
    EXPECT_EQ(two->name(), "2[0]");
    const auto other = ComputeGraph::make();
    GraphVar* foreign = ConstantTensor::make_scalar(*other, 2.0f, on_node());
    const auto tensor_of = [](GraphVar* var) {
        return static_cast<TensorSource*>(var->owner_operator())->get_device_value().raw_ptr();
    };
    EXPECT_EQ(tensor_of(foreign), tensor_of(two));

    HostTensorND matrix(CompNode::default_cpu(), {1, 2}, DType::Float32());
    matrix.ptr<float>()[0] = 3;
    matrix.ptr<float>()[1] = 4;
    GraphVar* constant = ConstantTensor::make(*graph, matrix, on_node());
    matrix.ptr<float>()[0] = 0;  // it was copied
    EXPECT_EQ(run<float>(constant), (std::vector<float>{3, 4}));
    EXPECT_EQ(constant->owner_operator()->name().rfind("const{1,2}", 0), 0u);
    // Equal bytes of different types, one element with more axes, and none at all.
    EXPECT_NE(ConstantTensor::make_scalar(*graph, 0.0f, on_node()),
              ConstantTensor::make_scalar(*graph, 0, on_node()));
    const auto of_shape = [&](const kern::TensorShape& shape) {
        HostTensorND value(CompNode::default_cpu(), shape, DType::Float32());
        if (!shape.has_zero_axis())
            value.ptr<float>()[0] = 1.5f;
        return ConstantTensor::make(*graph, value, on_node());
    };
    EXPECT_EQ(of_shape({1, 1})->name().rfind("1.5[", 0), 0u);
    EXPECT_TRUE(run<float>(of_shape({0})).empty());
}

TEST_F(Operators, ElementwiseBringsInputsToOneType) {
    GraphVar* floats = input<float>({2}, {3, 7});
    GraphVar* ints = input<int32_t>({2}, {-7, 7});
    GraphVar* int_two = ConstantTensor::make_scalar(*graph, 2, on_node());
    EXPECT_EQ(run<float>(ElementwiseOperator::divide(floats, int_two)),
              (std::vector<float>{1.5f, 3.5f}));
    EXPECT_EQ(run<int32_t>(ElementwiseOperator::divide(ints, int_two)),
              (std::vector<int32_t>{-3, 3}));
    EXPECT_EQ(run<float>(ElementwiseOperator::make({ints}, ElementwiseMode::EXP))[1],
              std::exp(7.0f));
    EXPECT_EQ(TypeConvert::make(ints, DType::Int32()), ints);
    EXPECT_EQ(run<float>(TypeConvert::make(ints, DType::Float32())), (std::vector<float>{-7, 7}));
}

TEST_F(Operators, ChainsRunInPlaceUntilSomebodyElseReads) {
    GraphVar* a = input<float>({2, 2}, {1, 2, 3, 4});
    GraphVar* column = input<float>({2, 1}, {1, 2});
    GraphVar* first = ElementwiseOperator::subtract(a, column);
    GraphVar* row = DimensionShuffle::make(column, {1, 0});
    GraphVar* second = ElementwiseOperator::subtract(first, row);
    EXPECT_EQ(run<float>(second), (std::vector<float>{-1, -1, 0, 0}));
    EXPECT_NE(first->device_value().raw_ptr(), a->device_value().raw_ptr());
    EXPECT_EQ(second->device_value().raw_ptr(), first->device_value().raw_ptr());

    // Read again later: no longer in place.
    GraphVar* third = ElementwiseOperator::make({second, first}, ElementwiseMode::MUL);
    EXPECT_EQ(run<float>(third), (std::vector<float>{0, -1, 0, 0}));
    EXPECT_NE(second->device_value().raw_ptr(), first->device_value().raw_ptr());

    // A transposed view of the same memory would be overwritten before it is read.
    GraphVar* view = DimensionShuffle::make(first, {1, 0});
    GraphVar* mixed = ElementwiseOperator::subtract(first, view);
    EXPECT_EQ(run<float>(mixed), (std::vector<float>{0, 0, 0, 0}));
    EXPECT_EQ(view->device_value().raw_ptr(), first->device_value().raw_ptr());
    EXPECT_NE(mixed->device_value().raw_ptr(), first->device_value().raw_ptr());
}

TEST_F(Operators, ShufflesAreViews) {
    GraphVar* a = input<float>({2, 1, 3}, {1, 2, 3, 4, 5, 6});
    GraphVar* shuffled = DimensionShuffle::make(a, {2, -1, 0});
    const auto* op = static_cast<DimensionShuffle*>(shuffled->owner_operator());
    EXPECT_EQ(op->param().source_ndim, 3u);
    EXPECT_EQ(run<float>(shuffled), (std::vector<float>{1, 4, 2, 5, 3, 6}));
    EXPECT_TRUE(shuffled->shape().same_shape({3, 1, 2}));
    EXPECT_EQ(shuffled->device_value().raw_ptr(), a->device_value().raw_ptr());
    EXPECT_DEATH(DimensionShuffle::make(a, {0, 1}, 3), "");  // drops an axis of length 3
}

TEST_F(Operators, ReductionsToATargetShape) {
    const auto cube = make_tensor<float>({2, 2, 3}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    GraphVar* c = SharedTensorInput::make(*graph, cube);
    GraphVar* a = input<float>({2, 3}, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(reduce(a, ReduceMode::MAX, 0)->name().rfind("reduce4[", 0), 0u);
    // Two axes in turn, with a buffer in between; then other lengths in the same plan.
    GraphVar* squares = reduce(c, ReduceMode::SUM_SQR, -1, ones(3));
    EXPECT_EQ(run<float>(squares), (std::vector<float>{650}));
    fill<float>(*cube, {1, 2, 2}, {1, 2, 3, 4});
    EXPECT_EQ(run<float>(squares), (std::vector<float>{30}));
    EXPECT_EQ(run<float>(reduce(a, ReduceMode::MEAN, -1, ones(2))), (std::vector<float>{3.5f}));
    // The target as a value that is only known in the run, of another length in each.
    GraphVar* late = input<int32_t>({1}, {3});
    EXPECT_EQ(run<float>(reduce(a, ReduceMode::SUM, -1, late)), (std::vector<float>{5, 7, 9}));

    // Nothing collapses, but the type changes.
    GraphVar* half = TypeConvert::make(a, DType::Float16());
    GraphVar* widened = ReduceOperator::make(DimensionShuffle::make(half, {0, 1, -1}),
                                             {ReduceMode::SUM, 2, kern::ReduceDataType::FLOAT_O32});
    EXPECT_EQ(run<float>(widened), (std::vector<float>{1, 2, 3, 4, 5, 6}));
    // Nothing collapses: a view, but for squares.
    GraphVar* thin = input<float>({2, 1}, {-2, 3});
    GraphVar* same = reduce(thin, ReduceMode::SUM, 1);
    EXPECT_EQ(run<float>(same), (std::vector<float>{-2, 3}));
    EXPECT_EQ(same->device_value().raw_ptr(), thin->device_value().raw_ptr());
    EXPECT_EQ(run<float>(reduce(thin, ReduceMode::SUM_SQR, 1)), (std::vector<float>{4, 9}));

    EXPECT_DEATH(ReduceOperator::make(a, {ReduceMode::SUM, -1, {}}), "");
    EXPECT_DEATH(run<float>(reduce(a, ReduceMode::SUM, 2)), "");
    // A target that is no vector of few enough integers.
    for (GraphVar* target : {input<int32_t>({1, 1}, {1}), input<float>({1}, {1}),
                             ones(kern::TensorShape::MAX_NDIM + 1)})
        EXPECT_DEATH(run<float>(reduce(a, ReduceMode::SUM, -1, target)), "");
}

TEST_F(Operators, ASumOfSecondPowersIsASumOfSquares) {
    GraphVar* a = input<float>({1, 2}, {3, 4});
    const auto power = [&](float exponent) {
        return ElementwiseOperator::make(
            {a, ConstantTensor::make_scalar(*graph, exponent, on_node())}, ElementwiseMode::POW);
    };
    GraphVar* squares = reduce(power(2.0f), ReduceMode::SUM, 1);
    EXPECT_EQ(squares->owner_operator()->input(0), a);
    EXPECT_EQ(run<float>(squares), (std::vector<float>{25}));
    GraphVar* cubes = power(3.0f);
    EXPECT_EQ(reduce(cubes, ReduceMode::SUM, 1)->owner_operator()->input(0), cubes);
    GraphVar* max = power(2.0f);
    EXPECT_EQ(reduce(max, ReduceMode::MAX, 1)->owner_operator()->input(0), max);
}

TEST_F(Operators, AProductWithoutDepthIsZero) {
    const auto tensor = make_tensor<float>({2, 3}, {1, 2, 3, 4, 5, 6});
    const auto other = make_tensor<float>({3, 1}, {1, 0, 2});
    GraphVar* a = SharedTensorInput::make(*graph, tensor);
    GraphVar* product = MatrixMultiply::make(a, SharedTensorInput::make(*graph, other), {});
    EXPECT_EQ(run<float>(product), (std::vector<float>{7, 16}));
    *tensor = *make_tensor<float>({2, 0}, {});
    *other = *make_tensor<float>({0, 1}, {});
    EXPECT_EQ(run<float>(product), (std::vector<float>{0, 0}));
    *other = *make_tensor<float>({2, 1}, {1, 1});
    EXPECT_DEATH(run<float>(product), "");
    EXPECT_DEATH(MatrixMultiply::make(a, input<int32_t>({3, 2}, {}), {}), "");
}

TEST_F(Operators, QuantisedProductsAndReductions) {
    const auto quantised = [&](DType dtype, const kern::TensorShape& shape) {
        auto tensor = std::make_shared<DeviceTensorND>(node(), dtype);
        tensor->resize(shape);
        for (size_t i = 0; i < shape.element_count(); ++i)
            tensor->raw_ptr()[i] = static_cast<uint8_t>(i + 1);
        return SharedTensorInput::make(*graph, tensor);
    };
    const auto as_float = [](GraphVar* var) { return TypeConvert::make(var, DType::Float32()); };
    GraphVar* a = quantised(DType::QuantizedS8(0.5f), {2, 2});
    GraphVar* b = quantised(DType::QuantizedS8(0.25f), {2, 2});
    const MatrixMultiply::Param to_32{false, false, kern::MatrixMulDataType::INT8_TO_INT32};
    GraphVar* product = MatrixMultiply::make(a, b, to_32);
    EXPECT_EQ(product->dtype(), DType::QuantizedS32(0.125f));
    EXPECT_EQ(run<float>(as_float(product)), (std::vector<float>{0.875f, 1.25f, 1.875f, 2.75f}));
    OperatorConfig wide;
    wide.output_dtype = DType::QuantizedS32(2);
    EXPECT_EQ(run<float>(as_float(MatrixMultiply::make(a, b, to_32, wide))),
              (std::vector<float>{14, 20, 30, 44}));
    wide.output_dtype = DType::Int32();
    EXPECT_DEATH(MatrixMultiply::make(a, b, to_32, wide), "");

    GraphVar* bytes = quantised(DType::Quantized8Asymm(0.5f, 1), {1, 2, 3});
    const auto reduced = [&](GraphVar* var, ReduceMode mode, kern::ReduceDataType type, int axis) {
        return ReduceOperator::make(var, {mode, axis, type});
    };
    using Type = kern::ReduceDataType;
    GraphVar* largest = reduced(bytes, ReduceMode::MAX, Type::QUINT_I8_O32, 2);
    EXPECT_EQ(largest->dtype(), DType::QuantizedS32(0.5f));
    EXPECT_EQ(run<float>(as_float(largest)), (std::vector<float>{1, 2.5f}));
    // Two axes: only the first step reads bytes.
    GraphVar* all = ReduceOperator::make(bytes, {ReduceMode::MAX, -1, Type::QUINT_I8_O32}, ones(3));
    EXPECT_EQ(run<float>(as_float(all)), (std::vector<float>{2.5f}));
    EXPECT_EQ(run<float>(as_float(reduced(a, ReduceMode::MIN, Type::DEFAULT, 0))),
              (std::vector<float>{0.5f, 1}));
    EXPECT_DEATH(reduced(a, ReduceMode::SUM, Type::DEFAULT, 0), "");
    EXPECT_DEATH(reduced(a, ReduceMode::MAX, static_cast<Type>(5), 0), "");
    EXPECT_DEATH(reduced(a, ReduceMode::MAX, Type::QUINT_I8_O32, 0), "");
}

}  // namespace
}  // namespace orb
