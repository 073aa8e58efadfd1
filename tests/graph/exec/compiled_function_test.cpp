#include "graph/core/compiled_function.h"

#include <stdexcept>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "tests/graph/graph_test_util.h"

namespace orb {
namespace {

using namespace orb_test;
using kern::ElementwiseMode;

class Execution : public testing::Test {
protected:
    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    std::shared_ptr<DeviceTensorND> tensor = make_tensor<float>({2}, {1, 2});
    GraphVar* input = SharedTensorInput::make(*graph, tensor);
    GraphVar* two = ConstantTensor::make_scalar(*graph, 2.0f, on_node());
    GraphVar* doubled = ElementwiseOperator::make({input, two}, ElementwiseMode::MUL);
    std::vector<float> result;
};

TEST_F(Execution, RunsFollowTheSourcesWithoutNewTasks) {
    size_t tasks_made = 0;
    graph->events().operator_end.connect([&](const OperatorEndEvent&) { ++tasks_made; });
    const auto function = graph->compile({{doubled, take(result)}});
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 4}));
    const size_t made_by_first_run = tasks_made;

    // Contents, memory of equal shape, another shape, nothing at all.
    fill<float>(*tensor, {2}, {5, 6});
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{10, 12}));
    for (size_t length : std::vector<size_t>{2, 3, 0}) {
        *tensor = *make_tensor<float>({length}, std::vector<float>(length, 7));
        function->execute().wait();
        EXPECT_EQ(result, std::vector<float>(length, 14));
    }
    EXPECT_EQ(tasks_made, made_by_first_run);
    EXPECT_EQ(function->get_run_id(), 6u);
}

TEST_F(Execution, OnlyAnotherShapeMakesANewPlan) {
    const auto function = graph->compile({{doubled, take(result)}});
    VarMemoryManager& memory = graph->memory_manager();
    EXPECT_EQ(memory.allocate_static_memory(false), MemoryChange::REPLANNED);
    EXPECT_EQ(memory.allocate_static_memory(false), MemoryChange::NONE);
    *tensor = *make_tensor<float>({2}, {3, 4});
    EXPECT_EQ(memory.allocate_static_memory(false), MemoryChange::REBOUND);
    EXPECT_EQ(input->device_value().raw_ptr(), tensor->raw_ptr());
    *tensor = *make_tensor<float>({4}, {1, 2, 3, 4});
    EXPECT_EQ(memory.allocate_static_memory(false), MemoryChange::REPLANNED);
    EXPECT_EQ(memory.allocate_static_memory(true), MemoryChange::REPLANNED);
    // Equal shape, other strides.
    const auto wide = make_tensor<float>({4, 2}, {1, 0, 2, 0, 3, 0, 4, 0});
    tensor->reset(
        wide->storage(),
        kern::TensorLayout({4, 2}, kern::DType::Float32()).permuted({0, 1}).remove_axis(1));
    EXPECT_EQ(memory.allocate_static_memory(false), MemoryChange::REPLANNED);
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 4, 6, 8}));
}

TEST_F(Execution, SeveralCallbacksOfOneVarAndConstantsRunEachTime) {
    std::vector<float> second;
    size_t constant_calls = 0;
    const auto function = graph->compile({{doubled, take(result)},
                                          {doubled, take(second)},
                                          {two, [&](const DeviceTensorND&) { ++constant_calls; }}});
    function->execute();
    function->execute();  // waits for the first by itself
    function->wait();
    function->wait();
    EXPECT_EQ(result, second);
    EXPECT_EQ(result, (std::vector<float>{2, 4}));
    EXPECT_EQ(constant_calls, 2u);
    EXPECT_EQ(function->last_run_time(), 0.0);
    EXPECT_EQ(function->output_vars(), (std::vector<GraphVar*>{doubled, doubled, two}));
    // Another function takes its place.
    graph->compile({{two, nullptr}});
    EXPECT_DEATH(function->execute(), "");
}

TEST_F(Execution, PassesReplaceWhatIsWantedInTheirOrder) {
    for (const auto mode : {ElementwiseMode::ADD, ElementwiseMode::MUL}) {
        graph->options().passes.push_back([mode](const std::vector<GraphVar*>& vars) {
            return std::vector<GraphVar*>{ElementwiseOperator::make({vars[0], vars[0]}, mode)};
        });
    }
    const auto function = graph->compile({{doubled, take(result)}});
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{16, 64}));
    EXPECT_NE(function->output_vars()[0], doubled);
}

TEST_F(Execution, ExceptionsPassThroughAndTheNextRunIsWhole) {
    bool fail = true;
    const auto function = graph->compile({{doubled, [&](const DeviceTensorND& value) {
                                               if (fail)
                                                   throw std::runtime_error("callback");
                                               result = values_of<float>(value);
                                           }}});
    EXPECT_THROW(function->execute(), std::runtime_error);
    fail = false;
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 4}));

    size_t limit = 100;
    graph->static_memory_source([&](CompNode node, size_t size) {
        if (size > limit)
            throw std::bad_alloc();
        DeviceTensorStorage storage(node);
        return storage.ensure_size(size);
    });
    *tensor = *make_tensor<float>({100}, std::vector<float>(100, 3));
    EXPECT_THROW(function->execute(), std::bad_alloc);
    EXPECT_THROW(function->execute(), std::bad_alloc);
    limit = 1000;
    function->execute().wait();
    EXPECT_EQ(result, std::vector<float>(100, 6));
    // A smaller shape stays in the block.
    limit = 0;
    *tensor = *make_tensor<float>({2}, {1, 1});
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 2}));
}

TEST_F(Execution, MemoryCanBeSharedAndCleared) {
    const auto other_graph = ComputeGraph::make();
    graph->share_device_memory_with(*other_graph);
    const auto big = make_tensor<float>({64}, std::vector<float>(64, 1));
    GraphVar* big_input = SharedTensorInput::make(*other_graph, big);
    GraphVar* sum = ElementwiseOperator::make({big_input, big_input}, ElementwiseMode::ADD);
    const auto function = graph->compile({{doubled, take(result)}});
    const auto other = other_graph->compile({{sum, nullptr}});
    function->execute().wait();
    other->execute().wait();  // replaces the block by a larger one
    EXPECT_EQ(values_of<float>(sum->device_value()), std::vector<float>(64, 2));
    const uint8_t* replaced_block = doubled->device_value().raw_ptr();
    function->execute().wait();
    EXPECT_EQ(doubled->device_value().raw_ptr(), sum->device_value().raw_ptr());
    EXPECT_NE(doubled->device_value().raw_ptr(), replaced_block);
    function->clear_device_memory();
    EXPECT_FALSE(doubled->has_device_value());
    result.clear();
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 4}));
}

// Operators that look at a value to know their output's shape make it inside the run: floats
// counted up, as many as the input says.
class LateShapes : public Execution {
protected:
    GraphVar* counted(GraphVar* source) {
        auto behaviour = shape_from_value(source, [](const float* value) {
            return kern::TensorShape{static_cast<size_t>(value[0])};
        });
        behaviour.run = [](TestOperator& op) {
            for (size_t i = 0; i < op.output_value(0).shape(0); ++i)
                op.output_value(0).ptr<float>()[i] = static_cast<float>(i);
        };
        return TestOperator::make(*graph, {source}, behaviour);
    }
    GraphVar* plus(GraphVar* a, GraphVar* b) {
        return ElementwiseOperator::make({a, b}, ElementwiseMode::ADD);
    }

    std::shared_ptr<DeviceTensorND> length = make_tensor<float>({1}, {3});
    GraphVar* wanted = SharedTensorInput::make(*graph, length);
};

TEST_F(LateShapes, VarsLiveFromTheirWriterToTheirLastReaderUnlessKept) {
    GraphVar* numbers = counted(wanted);
    // Views of views keep the memory when the var itself is released.
    GraphVar* view = DimensionShuffle::make(DimensionShuffle::make(numbers, {-1, 0}), {1, 0});
    GraphVar* sum = plus(view, two);
    const auto function = graph->compile({{sum, take(result)}});
    EXPECT_FALSE(numbers->is_static_storage());
    EXPECT_TRUE(wanted->is_static_storage());
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{2, 3, 4}));
    EXPECT_FALSE(numbers->has_device_value());
    EXPECT_FALSE(view->has_device_value());

    GraphVar* first = plus(input, two);
    const auto keeping = graph->compile({{first, nullptr}, {numbers, nullptr}, {sum, nullptr}});
    keeping->execute().wait();
    EXPECT_EQ(values_of<float>(numbers->device_value()), (std::vector<float>{0, 1, 2}));
    EXPECT_TRUE(first->has_device_value());
    // Another function plans anew: old values are gone, not stale.
    graph->compile({{plus(first, two), nullptr}});
    EXPECT_FALSE(first->has_device_value());
    EXPECT_FALSE(numbers->has_device_value());
}

TEST_F(LateShapes, AreReadOnceWhileTheirSourceIsAlive) {
    GraphVar* copy = plus(wanted, ConstantTensor::make_scalar(*graph, 0.0f, on_node()));
    GraphVar* numbers = counted(copy);
    // Takes the address of `copy` as soon as that has been read.
    GraphVar* four = ElementwiseOperator::make({two, two}, ElementwiseMode::MUL);
    GraphVar* sum = plus(numbers, four);
    EXPECT_EQ(run<float>(sum), (std::vector<float>{4, 5, 6}));
}

TEST_F(Execution, AShapeSeenByADuplicateStillMakesANewPlan) {
    kern::TensorShape shape{2};
    TestOperator::Behaviour behaviour;
    behaviour.infer = shape_rule(InferSource::MUTABLE, [&](kern::TensorShape& now, const auto&) {
        now = shape;
        return true;
    });
    behaviour.run = [](TestOperator& op) { op.output_value(0).memset_zero(); };
    GraphVar* source = TestOperator::make(*graph, {}, behaviour);
    const auto function = graph->compile({{source, take(result)}});
    function->execute().wait();
    shape = {3};
    EXPECT_EQ(TestOperator::make(*graph, {}, behaviour), source);
    function->execute().wait();
    EXPECT_EQ(result.size(), 3u);
}

TEST_F(Execution, AVarMayAdoptMemoryInTheRun) {
    TestOperator::Behaviour behaviour;
    behaviour.key = 1;
    behaviour.flags = var_flag::NO_SYSTEM_ALLOC;
    behaviour.run = [&](TestOperator& op) {
        graph->memory_manager().adopt_var_memory(op.output(0), input);
    };
    GraphVar* adopted = TestOperator::make(*graph, {input}, behaviour);
    const uint8_t* address = nullptr;
    const auto function = graph->compile({{adopted, [&](const DeviceTensorND& value) {
                                               address = value.raw_ptr();
                                               result = values_of<float>(value);
                                           }}});
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{1, 2}));
    EXPECT_EQ(address, tensor->raw_ptr());
    *tensor = *make_tensor<float>({2}, {3, 4});  // other memory of the same layout
    function->execute().wait();
    EXPECT_EQ(result, (std::vector<float>{3, 4}));
    EXPECT_EQ(address, tensor->raw_ptr());
    EXPECT_DEATH(graph->memory_manager().adopt_tensor(doubled, *tensor), "");
}

}  // namespace
}  // namespace orb
