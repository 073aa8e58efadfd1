#include "graph/infer/inference_manager_impl.h"

#include "graph/opr/constant_tensor.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/type_convert.h"
#include "tests/graph/graph_test_util.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::TensorShape;

// A graph of test operators that counts how often each rule is asked.
class Inference : public testing::Test {
protected:
    GraphVar* make(const std::vector<GraphVar*>& inputs, std::function<void(TestOperator&)> infer,
                   VarFlags flags = 0) {
        TestOperator::Behaviour behaviour;
        behaviour.key = ++m_key;
        behaviour.flags = flags;
        behaviour.infer = std::move(infer);
        return TestOperator::make(*graph, inputs, behaviour);
    }
    // A shape that may change; no axes are none at all.
    GraphVar* source(TensorShape* shape, size_t* calls = nullptr) {
        return make({}, shape_rule(InferSource::MUTABLE, [=](TensorShape& result, const auto&) {
                        if (calls)
                            ++*calls;
                        result = *shape;
                        return shape->ndim != 0;
                    }));
    }
    // The shape of the first input.
    GraphVar* follow(const std::vector<GraphVar*>& inputs, size_t* calls = nullptr,
                     VarFlags flags = 0) {
        return make(inputs,
                    shape_rule(InferSource::DEPENDENT,
                               [=](TensorShape& result, const auto& deps) {
                                   if (calls)
                                       ++*calls;
                                   result = *deps[0].shape;
                                   return true;
                               }),
                    flags);
    }
    // A var that nothing is known of before it is computed.
    GraphVar* unknown() { return make({}, nullptr); }

    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    InferenceManagerImpl& manager = static_cast<InferenceManagerImpl&>(graph->inference_manager());

private:
    uint64_t m_key = 0;
};

TEST_F(Inference, KindOfACombinationIsTheLargestOfItsParts) {
    TensorShape shape{2};
    GraphVar* constant = ConstantTensor::make_scalar(*graph, 2.0f, on_node());
    GraphVar* mutable_var = source(&shape);
    GraphVar* missing_a = follow({unknown()});
    GraphVar* missing_b = follow({unknown()});
    EXPECT_EQ(manager.shape_kind(follow({constant})), InferKind::CONSTANT);
    EXPECT_EQ(manager.shape_kind(mutable_var), InferKind::RUNTIME_STATIC);
    EXPECT_EQ(manager.shape_kind(follow({constant, mutable_var})), InferKind::RUNTIME_STATIC);
    EXPECT_EQ(manager.value_kind(constant), InferKind::CONSTANT);
    EXPECT_EQ(manager.value_kind(mutable_var), InferKind::NO_RULE);

    GraphVar* both = follow({mutable_var, missing_a, missing_b});
    EXPECT_EQ(manager.shape_kind(both), InferKind::MISSING_INPUT);
    std::vector<GraphVar*> expected{missing_a->owner_operator()->input(0),
                                    missing_b->owner_operator()->input(0)};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(manager.missing_inputs_of_shape(both), expected);
    EXPECT_EQ(manager.missing_inputs_of_shape(missing_a).size(), 1u);
    EXPECT_FALSE(manager.try_shape_of_var(both));
}

TEST_F(Inference, RulesRunOnlyForWhatChanged) {
    TensorShape a{2}, b{3};
    size_t a_calls = 0, b_calls = 0, sum_calls = 0, side_calls = 0;
    GraphVar* source_a = source(&a, &a_calls);
    GraphVar* source_b = source(&b, &b_calls);
    GraphVar* sum = follow({source_a, source_b}, &sum_calls);
    GraphVar* side = follow({source_b}, &side_calls);
    auto list = manager.make_update_list({sum, side}, {});
    manager.update(list);
    EXPECT_FALSE(list.changed);
    a_calls = b_calls = sum_calls = side_calls = 0;

    manager.update(list);
    EXPECT_FALSE(list.changed);
    EXPECT_EQ(a_calls + b_calls, 2u);
    EXPECT_EQ(sum_calls + side_calls, 0u);

    a = {5};
    manager.update(list);
    EXPECT_TRUE(list.changed);
    EXPECT_TRUE(sum->shape().same_shape({5}));
    EXPECT_EQ(sum_calls, 1u);
    EXPECT_EQ(side_calls, 0u);
}

TEST_F(Inference, ASourceMayHaveNoValueUntilLater) {
    TensorShape shape;
    GraphVar* input = source(&shape);
    GraphVar* output = follow({input});
    EXPECT_EQ(output->shape().ndim, 0u);
    EXPECT_FALSE(manager.try_shape_of_var(output));
    shape = {4};
    ASSERT_TRUE(manager.try_shape_of_var(input));
    ASSERT_TRUE(manager.try_shape_of_var(output));
    EXPECT_TRUE(manager.shape_of_var(output).same_shape({4}));
    // The same value again after none at all: dependents must not keep their old "none".
    shape = {};
    EXPECT_FALSE(manager.try_shape_of_var(input));
    EXPECT_FALSE(manager.try_shape_of_var(output));
    shape = {4};
    manager.try_shape_of_var(input);
    EXPECT_TRUE(manager.try_shape_of_var(output));
}

TEST_F(Inference, ConstantShapesAreStoredForGoodUnlessVolatile) {
    GraphVar* constant = ConstantTensor::make_scalar(*graph, 1.0f, on_node());
    size_t calls = 0;
    GraphVar* kept = follow({constant}, &calls);
    EXPECT_TRUE(kept->shape().same_shape({1}));
    EXPECT_EQ(calls, 1u);
    GraphVar* scratch = follow({constant}, nullptr, var_flag::VOLATILE_CONTENT);
    EXPECT_EQ(scratch->shape().ndim, 0u);
    EXPECT_TRUE(manager.shape_of_var(scratch).same_shape({1}));
}

TEST_F(Inference, ValuesComeFromRulesOrFromWhatWasComputed) {
    GraphVar* constant = ConstantTensor::make_scalar(*graph, 2.5f, on_node());
    EXPECT_EQ(manager.value_of_var(constant).ptr<float>()[0], 2.5f);
    auto tensor = make_tensor<float>({2}, {7, 8});
    GraphVar* input = SharedTensorInput::make(*graph, tensor);
    EXPECT_FALSE(manager.try_value_of_var(input));
    run<float>(input);
    ASSERT_TRUE(manager.try_value_of_var(input));
}

// A target shape that is computed from constants makes no var dynamic.
TEST_F(Inference, SmallResultsOfKnownValuesAreKnown) {
    const auto scalar = [&](float value) {
        return ConstantTensor::make_scalar(*graph, value, on_node());
    };
    const auto plus = [](GraphVar* a, GraphVar* b) {
        return ElementwiseOperator::make({a, b}, kern::ElementwiseMode::ADD);
    };
    GraphVar* four = plus(scalar(3), scalar(1));
    GraphVar* target = TypeConvert::make(
        ReduceOperator::make(four, {kern::ReduceMode::SUM_SQR, 0, {}}), kern::DType::Int32());
    EXPECT_EQ(manager.value_kind(target), InferKind::CONSTANT);
    EXPECT_EQ(manager.value_of_var(target).ptr<int32_t>()[0], 16);
    EXPECT_EQ(manager.inference_kinds(target), 0x0202u);
    GraphVar* ones = TypeConvert::make(plus(scalar(0), scalar(1)), kern::DType::Int32());
    GraphVar* input = SharedTensorInput::make(*graph, make_tensor<float>({3}, {1, 2, 3}));
    GraphVar* sum = ReduceOperator::make(input, {kern::ReduceMode::SUM, -1, {}}, ones);
    EXPECT_EQ(run<float>(sum), (std::vector<float>{6}));
    EXPECT_TRUE(sum->is_static_storage());
    // Not of what only a run computes, and not of much.
    EXPECT_EQ(manager.value_kind(plus(input, four)), InferKind::NO_RULE);
    const HostTensorND many(CompNode::default_cpu(), {65}, kern::DType::Float32());
    std::memset(many.raw_ptr(), 0, 65 * sizeof(float));
    GraphVar* large = ConstantTensor::make(*graph, many, on_node());
    EXPECT_EQ(manager.value_kind(plus(large, large)), InferKind::NO_RULE);
}

using InferenceDeathTest = Inference;

TEST_F(InferenceDeathTest, MisuseStopsTheProcess) {
    TensorShape shape{2};
    GraphVar* input = source(&shape);
    ShapeInferDescriptor rule;
    rule.source = InferSource::CONSTANT;
    EXPECT_DEATH(manager.add_shape_rule(input, rule), "");  // outside of insertion
    EXPECT_DEATH(manager.shape_of_var(unknown()), "");
    const auto twice = [](TestOperator& op) {
        constant_shape({2})(op);
        constant_shape({2})(op);
    };
    const auto nothing = [](auto&, const auto&) { return true; };
    EXPECT_DEATH(make({}, twice), "");
    EXPECT_DEATH(make({}, shape_rule(InferSource::DEPENDENT, nothing)), "");
    EXPECT_DEATH(manager.remove_var(follow({input})->owner_operator()->input(0)), "");
}

}  // namespace
}  // namespace orb
