// Runs that involve workers: timing, recording, sub-graphs, and what may happen while a run is
// under way. That values are right on several nodes is what the random graphs show.
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "graph/exec/graph_function.h"
#include "graph/opr/elementwise_operator.h"
#include "tests/graph/graph_test_util.h"
#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::ElementwiseMode;

class Nodes : public testing::Test {
protected:
    GraphVar* source(const std::shared_ptr<DeviceTensorND>& tensor) {
        return SharedTensorInput::make(*graph, tensor);
    }
    GraphVar* doubled(GraphVar* var, CompNode on) {
        return ElementwiseOperator::make({var, var}, ElementwiseMode::ADD, on_node(on));
    }
    // An operator that copies its input once `before` has returned.
    GraphVar* copied(GraphVar* var, CompNode on, std::function<void()> before,
                     std::shared_ptr<void> handed_over = nullptr) {
        TestOperator::Behaviour behaviour;
        behaviour.handed_over = std::move(handed_over);
        behaviour.key = ++nr_copies;
        behaviour.node = on;
        behaviour.infer = shape_rule(InferSource::DEPENDENT, [](kern::TensorShape& shape,
                                                                const std::vector<InferInput>& in) {
            shape = *in[0].shape;
            return true;
        });
        behaviour.run = [before](TestOperator& op) {
            before();
            DeviceTensorND(op.output_value(0)).copy_from_fixlayout(op.input_value(0));
        };
        return TestOperator::make(*graph, {var}, behaviour);
    }
    std::unique_ptr<CompiledFunction> compile(GraphVar* var) {
        return graph->compile({{var, take(result)}});
    }
    std::shared_ptr<DeviceTensorND> tensor_on(CompNode on, const std::vector<float>& values) {
        auto tensor = std::make_shared<DeviceTensorND>(on, kern::DType::Float32());
        fill<float>(*tensor, {values.size()}, values);
        return tensor;
    }

    uint64_t nr_copies = 0;
    const CompNode worker = worker_node(60), other = worker_node(61);
    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    std::vector<float> result;
};

TEST_F(Nodes, ARecordedRunIsReplayedWhileMemoryAndShapesStay) {
    const auto tensor = tensor_on(worker, {1, 2});
    graph->options().record_level = 1;
    const auto function = compile(doubled(doubled(source(tensor), worker), worker));
    size_t steps = 0, finished = 0;
    static_cast<GraphFunction&>(*function).step_hook([&](const StepTime&) { ++steps; });
    graph->events().run_finished.connect([&](const RunFinishedEvent&) { ++finished; });
    size_t nr_runs = 0;
    const auto expect = [&](const std::vector<float>& values) {
        result.clear();
        function->execute();
        EXPECT_EQ(result, values) << "a replay has ended when execute returns";
        function->wait();
        EXPECT_EQ(finished, ++nr_runs);
    };
    size_t recordings = 0;
    graph->events().operator_begin.connect([&](const OperatorBeginEvent&) { ++recordings; });
    expect({4, 8});
    const size_t steps_made = recordings;
    fill<float>(*tensor, {2}, {3, 4});
    expect({12, 16});
    *tensor = *tensor_on(worker, {5, 6});  // a replay would read the old memory
    expect({20, 24});
    fill<float>(*tensor, {2}, {7, 8});
    expect({28, 32});
    *tensor = *tensor_on(worker, {1, 2, 3});
    expect({4, 8, 12});
    function->clear_device_memory();
    expect({4, 8, 12});
    EXPECT_EQ(steps, 0u) << "kernels alone are recorded";
    EXPECT_EQ(recordings, steps_made);
    graph->options().record_level = 0;
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{4, 8, 12}));
    EXPECT_GT(steps, 0u);
}

TEST_F(Nodes, AFunctionRecordedForGoodKeepsWhatItNeeds) {
    const auto tensor = tensor_on(worker, {1, 2});
    const auto other_graph = ComputeGraph::make();
    graph->share_device_memory_with(*other_graph);
    GraphVar* big =
        SharedTensorInput::make(*other_graph, tensor_on(worker, std::vector<float>(99)));
    graph->options().record_level = 2;
    graph->options().timing = true;
    auto owned = std::make_shared<int>();
    const std::weak_ptr<int> of_the_operator = owned;
    auto function = compile(copied(
        doubled(source(tensor), worker), worker, [] {}, std::move(owned)));
    EXPECT_TRUE(result.empty());
    run<float>(doubled(big, worker));  // replaces the shared block by a larger one
    graph->clear_device_memory();
    graph.reset();
    *tensor = DeviceTensorND(worker, kern::DType::Float32());  // is never seen
    EXPECT_EQ(function->execute().get_run_id(), 2u);
    EXPECT_EQ(result, (std::vector<float>{2, 4}));
    EXPECT_GT(function->last_run_time(), 0.0);
    EXPECT_FALSE(of_the_operator.expired());
    function.reset();
    EXPECT_TRUE(of_the_operator.expired());
}

TEST_F(Nodes, WhatCannotBeRecordedRunsPlainly) {
    const auto tensor = make_tensor<float>({2}, {1, 2});
    for (CompNode last : {node(), worker}) {  // inline, and two nodes
        graph->options().record_level = last == worker ? 1 : 2;
        const auto function = compile(doubled(doubled(source(tensor), node()), last));
        for (int run = 0; run < 3; ++run) {
            result.clear();
            function->execute().wait();
            EXPECT_EQ(result, (std::vector<float>{4, 8}));
        }
    }
}

TEST_F(Nodes, ARunLastsAsLongAsItsSlowestNode) {
    const auto slow = [] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); };
    const auto tensor = make_tensor<float>({2}, {1, 2});
    graph->options().timing = true;
    graph->options().record_level = 1;
    const auto recorded = compile(doubled(source(tensor_on(worker, {1})), worker));
    for (int i = 0; i < 3; ++i) {
        recorded->execute();
        EXPECT_GT(recorded->last_run_time(), 0.0);
    }
    for (CompNode on : {node(), worker}) {
        graph->options().timing = true;
        auto function = compile(doubled(copied(source(tensor), on, slow), other));
        function->execute().wait();
        EXPECT_GT(function->last_run_time(), 0.02);
        EXPECT_LT(function->last_run_time(), 20.0);
        graph->options().timing = false;
        graph->options().record_level = 0;
        function = compile(source(tensor));
        function->execute().wait();
        EXPECT_EQ(function->last_run_time(), 0.0);
    }
}

TEST_F(Nodes, ChangesAndReadsWaitForTheRun) {
    const auto tensor = make_tensor<float>({2}, {1, 2});
    std::atomic<bool> ended{false};
    const auto slow = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
    };
    GraphVar* var = copied(source(tensor), worker, slow);
    auto function = compile(var);
    const std::function<void()> changes[] = {
        [&] { EXPECT_EQ(graph->inference_manager().value_of_var(var).ptr<float>()[1], 2); },
        [&] { function->clear_device_memory(); },
        [&] { function->execute().wait(); },
        [&] { function = compile(var); },
        [&] { function.reset(); },
    };
    for (const auto& change : changes) {
        ended = false;
        result.clear();
        function->execute();
        change();
        EXPECT_TRUE(ended);
        EXPECT_EQ(result, (std::vector<float>{1, 2}));
    }
}

TEST_F(Nodes, AnExceptionEndsTheRunOnAllNodes) {
    const auto tensor = make_tensor<float>({2}, {1, 2});
    bool fails = true;
    std::atomic<bool> ended{false};
    GraphVar* slow = copied(source(tensor), worker, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
    });
    GraphVar* failing = copied(source(tensor), node(), [&] {
        if (fails)
            throw std::runtime_error("no");
    });
    const auto function = graph->compile({{slow, nullptr}, {failing, take(result)}});
    EXPECT_THROW(function->execute(), std::runtime_error);
    EXPECT_TRUE(ended);
    fails = false;
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{1, 2}));
}

TEST_F(Nodes, SubGraphsCountTogetherAndAreWaitedFor) {
    const auto parent = graph;
    const auto tensor = make_tensor<float>({2}, {1, 2});
    const auto function = compile(doubled(source(tensor), worker));
    const auto child = parent->make_sub_graph();
    graph = child;
    std::atomic<bool> ended{false};
    GraphVar* inner = copied(source(tensor), other, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
    });
    EXPECT_EQ(parent->find_var_by_id(inner->id()), inner);
    EXPECT_EQ(child->find_var_by_id(function->output_vars()[0]->id()), nullptr);
    EXPECT_GT(inner->id(), function->output_vars()[0]->id());
    const auto inner_function = child->compile({{inner, nullptr}});
    function->execute();
    inner_function->execute();
    function->wait();
    EXPECT_TRUE(ended);
    EXPECT_EQ(parent->var_step_info(function->output_vars()[0]).writer, 1u);
}

TEST_F(Nodes, APausedWalkGivesNoTask) {
    StepList steps;
    size_t nr_calls = 0;
    steps.add_node(node());
    steps.add_node_task(node(), [&] { ++nr_calls; });
    steps.pause();
    steps.run();
    EXPECT_EQ(nr_calls, 0u);
    steps.resume();
    steps.run();
    EXPECT_EQ(nr_calls, 1u);
}

TEST_F(Nodes, OperatorsMayMoveToAnotherStream) {
    const auto tensor = tensor_on(worker, {0});
    GraphVar* moved = doubled(source(tensor), worker);
    GraphVar* last = doubled(moved, worker);
    graph->options().passes.push_back([&](const std::vector<GraphVar*>& vars) {
        EXPECT_EQ(moved->comp_node(), worker) << "it has come back by then";
        return vars;
    });
    for (int32_t stream : {0, 1, 2}) {
        graph->node_order_optimizer().prefer_stream(moved, stream);
        const auto x = static_cast<float>(stream + 1);
        fill<float>(*tensor, {1}, {x});
        compile(last)->execute().wait();
        EXPECT_EQ(result, (std::vector<float>{4 * x}));
        EXPECT_EQ(moved->comp_node(), worker.with_stream(stream));
    }
}

TEST_F(Nodes, OneThreadExecutesWhileAnotherWaits) {
    const auto function = compile(doubled(source(tensor_on(worker, {1, 2})), worker));
    size_t finished = 0;
    graph->events().run_finished.connect([&](const RunFinishedEvent&) { ++finished; });
    std::atomic<bool> done{false};
    std::thread waiting([&] {
        while (!done)
            function->wait();
    });
    for (size_t i = 0; i < 200; ++i)
        function->execute();
    function->wait();
    done = true;
    waiting.join();
    EXPECT_EQ(finished, 200u);
}

using NodesDeathTest = Nodes;

TEST_F(NodesDeathTest, MisuseStopsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto tensor = make_tensor<float>({2}, {1, 2});
    GraphVar* first = copied(source(tensor), node(), [] {});
    const auto function = compile(
        copied(first, worker, [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }));
    EXPECT_DEATH((function->execute(), function->last_run_time()), "");
    graph->events().before_run.connect([](const BeforeRunEvent& run) { run.function->execute(); });
    EXPECT_DEATH(function->execute(), "");
#ifndef __arm__  // an emulated program cannot start itself
    const auto exit_with_a_recording = [&] {
        graph->options().record_level = 2;
        static const auto recorded = compile(doubled(source(tensor_on(worker, {2})), worker));
        recorded->execute();
        std::exit(result[0] == 4 ? 17 : 1);
    };
    EXPECT_EXIT(exit_with_a_recording(), testing::ExitedWithCode(17), "");
#endif
}

}  // namespace
}  // namespace orb
