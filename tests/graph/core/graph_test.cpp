#include "graph/core/compute_graph.h"

#include "graph/opr/elementwise_operator.h"
#include "kernels/types/image_format.h"
#include "tests/graph/graph_test_util.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::ElementwiseMode;

class Graph : public testing::Test {
protected:
    GraphVar* test_var(uint64_t key, VarFlags flags = 0) {
        TestOperator::Behaviour behaviour;
        behaviour.key = key;
        behaviour.flags = flags;
        behaviour.infer = constant_shape({2});
        return TestOperator::make(*graph, {}, behaviour);
    }

    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    std::shared_ptr<DeviceTensorND> tensor = make_tensor<float>({2}, {1, 2});
};

TEST_F(Graph, EqualExpressionsAreOneVar) {
    std::vector<bool> dedup;
    graph->events().operator_inserted.connect(
        [&](const OperatorInsertedEvent& event) { dedup.push_back(event.is_dedup); });
    GraphVar* a = SharedTensorInput::make(*graph, tensor);
    EXPECT_EQ(SharedTensorInput::make(*graph, tensor), a);
    GraphVar* b = test_var(1);
    EXPECT_NE(test_var(2), b);
    GraphVar* sum = ElementwiseOperator::make({a, b}, ElementwiseMode::ADD);
    const size_t nr_operators = graph->nr_operators();
    EXPECT_EQ(ElementwiseOperator::make({b, a}, ElementwiseMode::ADD), sum);
    EXPECT_EQ(graph->nr_operators(), nr_operators);
    EXPECT_NE(ElementwiseOperator::subtract(a, b), ElementwiseOperator::subtract(b, a));
    EXPECT_EQ(dedup, (std::vector<bool>{false, true, false, false, false, true, false, false}));

    // A fused product may exchange its factors, not its products' places.
    const auto fused = [&](std::vector<GraphVar*> inputs) {
        return ElementwiseOperator::make(inputs, ElementwiseMode::FUSE_MUL_ADD3);
    };
    EXPECT_EQ(fused({a, b, sum}), fused({b, a, sum}));
    EXPECT_NE(fused({a, b, sum}), fused({a, sum, b}));
}

TEST_F(Graph, NamesCountObjectsOfTheGraph) {
    GraphVar* first = SharedTensorInput::make(*graph, tensor);
    EXPECT_EQ(first->name(), "shared[0]");
    EXPECT_EQ(first->id(), 1u);
    SharedTensorInput::make(*graph, tensor);  // merges, and uses up two numbers
    OperatorConfig config;
    config.name = "mine";
    GraphVar* named = ElementwiseOperator::make({first, first}, ElementwiseMode::SUB, config);
    EXPECT_EQ(named->owner_operator()->id(), 4u);
    EXPECT_EQ(named->name(), "mine");
    EXPECT_EQ(graph->find_var_by_id(5), named);
    EXPECT_EQ(graph->find_var_by_id(99), nullptr);
    // A var that is read twice by one operator has one receiver.
    ASSERT_NE(graph->var_receivers(first), nullptr);
    EXPECT_EQ(graph->var_receivers(first)->size(), 1u);

    EXPECT_EQ(var_description({}), "");
    EXPECT_EQ(var_description({first}),
              "{id:1, shape:{2}, Float32, owner:shared[0]{SharedTensorInput}, name:shared[0], "
              "slot:0, cpu:default, s, 4, 1}");
    const std::string two = var_description({first, named});
    EXPECT_EQ(two.rfind("0={id:1,", 0), 0u);
    EXPECT_NE(two.find("} 1={id:5,"), std::string::npos);
}

TEST_F(Graph, ConfigsDifferInNodesAndValuesButNotInNames) {
    OperatorConfig plain, named, numbered;
    named.name = "x";
    numbered.instance_id = 1;
    EXPECT_EQ(plain.hash(), named.hash());
    EXPECT_TRUE(plain.is_same(named));
    EXPECT_FALSE(plain.is_same(numbered));
    EXPECT_NE(plain.hash(), numbered.hash());
    EXPECT_FALSE(plain.is_same(on_node()));
    OperatorConfig typed;
    typed.output_dtype = kern::DType::Int32();
    EXPECT_EQ(plain.hash(), typed.hash());
    EXPECT_FALSE(plain.is_same(typed));
}

TEST_F(Graph, AReplacedVarIsGivenToWhoMakesItAgain) {
    GraphVar* a = test_var(1);
    const auto negated = [&] { return ElementwiseOperator::make({a}, ElementwiseMode::NEGATE); };
    GraphVar* original = negated();
    GraphVar* first = test_var(2);
    GraphVar* second = test_var(3);
    graph->replace_var(original, first);
    EXPECT_EQ(negated(), first);
    graph->replace_var(first, second);
    EXPECT_EQ(negated(), second);
    EXPECT_EQ(test_var(2), second);
    EXPECT_DEATH(graph->replace_var(second, original), "");
}

TEST_F(Graph, ExtraDependenciesOrderOperators) {
    std::vector<int> order;
    const auto recorder = [&](int number) {
        TestOperator::Behaviour behaviour;
        behaviour.key = static_cast<uint64_t>(number);
        behaviour.infer = constant_shape({1});
        behaviour.run = [&order, number](TestOperator&) { order.push_back(number); };
        return TestOperator::make(*graph, {}, behaviour);
    };
    GraphVar* one = recorder(1);
    GraphVar* two = recorder(2);
    const auto order_of_run = [&](const std::vector<OutputSpec>& outputs) {
        order.clear();
        graph->compile(outputs)->execute().wait();
        return order;
    };
    EXPECT_EQ(order_of_run({{one, nullptr}}), (std::vector<int>{1}));
    graph->add_extra_dependency(dependency::DEVICE_VALUE, two, one->owner_operator());
    EXPECT_EQ(order_of_run({{one, nullptr}}), (std::vector<int>{2, 1}));
    EXPECT_EQ(order_of_run({{one, nullptr}, {two, nullptr}}), (std::vector<int>{2, 1}));
    graph->add_extra_dependency(0, two, one->owner_operator());
    EXPECT_EQ(order_of_run({{one, nullptr}, {two, nullptr}}), (std::vector<int>{1, 2}));
    graph->add_extra_dependency(dependency::DEVICE_VALUE, one, one->owner_operator());
    EXPECT_DEATH(order_of_run({{one, nullptr}}), "");
}

TEST_F(Graph, AnInsertionThatThrowsLeavesNothing) {
    GraphVar* input = SharedTensorInput::make(*graph, tensor);
    bool fails = true;
    TestOperator::Behaviour behaviour;
    behaviour.infer = [&](TestOperator& op) {
        input->lead_storage_of(op.output(0));
        shape_rule(InferSource::DEPENDENT, [&](kern::TensorShape& shape, const auto& inputs) {
            if (fails)
                throw std::bad_alloc();
            shape = *inputs[0].shape;
            return true;
        })(op);
    };
    EXPECT_THROW(TestOperator::make(*graph, {input}, behaviour), std::bad_alloc);
    EXPECT_EQ(graph->nr_operators(), 1u);
    EXPECT_TRUE(graph->var_receivers(input)->empty() && input->dynamic_chain().empty());
    fails = false;
    GraphVar* var = TestOperator::make(*graph, {input}, behaviour);
    EXPECT_EQ(graph->find_var_by_id(var->id()), var);
    EXPECT_EQ(run<float>(var).size(), 2u);
}

TEST_F(Graph, ShapeListenersHearOfChangesOnly) {
    GraphVar* var = SharedTensorInput::make(*graph, tensor);
    size_t heard = 0;
    var->set_shape_listener(this, [&](GraphVar*) { ++heard; });
    var->shape({2});
    EXPECT_EQ(heard, 0u);
    var->shape({3});
    var->shape({3});
    EXPECT_EQ(heard, 1u);
}

using GraphDeathTest = Graph;

TEST_F(GraphDeathTest, MisuseStopsTheProcess) {
    GraphVar* var = SharedTensorInput::make(*graph, tensor);
    GraphVar* scratch = test_var(1, var_flag::VOLATILE_CONTENT);
    EXPECT_DEATH(ElementwiseOperator::subtract(var, scratch), "");
    const auto other = ComputeGraph::make();
    GraphVar* foreign = SharedTensorInput::make(*other, tensor);
    EXPECT_DEATH(ElementwiseOperator::subtract(var, foreign), "");
    TestOperator::Behaviour silent;
    silent.has_output = false;
    EXPECT_DEATH(TestOperator::make(*graph, {var}, silent), "");
    EXPECT_DEATH(graph->compile({}), "");
    EXPECT_DEATH(graph->compile({{foreign, nullptr}}), "");
    EXPECT_DEATH(graph->find_var_by_id(1)->device_value(), "");
    EXPECT_DEATH(static_cast<TestOperator*>(scratch->owner_operator())->add_input({var}), "");
    EXPECT_DEATH(var->dtype(kern::DType::Int32()), "");
    // Contradicting flags, and flags that come too late.
    using namespace var_flag;
    EXPECT_DEATH(test_var(2, NO_SYSTEM_ALLOC | LOOP_STATE), "");
    EXPECT_DEATH(test_var(2, PERSISTENT_STATIC), "");
    EXPECT_DEATH(test_var(2, NO_SYSTEM_ALLOC)->add_flag(PLANNED_DYNAMIC), "");
    EXPECT_DEATH(test_var(2)->add_flag(VOLATILE_CONTENT), "");
    test_var(2)->add_flag(DYNAMIC_STORAGE);
    GraphVar* planned = test_var(4);
    graph->compile({{planned, nullptr}});
    EXPECT_DEATH(planned->add_flag(DYNAMIC_STORAGE), "");
    // A format other than the default is final; so is a constant shape.
    GraphVar* image = test_var(2);
    image->format(kern::image_pack4_format(1, 32)).format(kern::image_pack4_format(1, 32));
    EXPECT_DEATH(image->format(kern::default_format()), "");
    OperatorConfig two_nodes = on_node();
    two_nodes.comp_nodes.push_back(CompNode::default_cpu());
    EXPECT_DEATH(ElementwiseOperator::make({var, var}, kern::ElementwiseMode::ADD, two_nodes), "");
    EXPECT_DEATH(test_var(3)->shape({7}), "");
}

}  // namespace
}  // namespace orb
