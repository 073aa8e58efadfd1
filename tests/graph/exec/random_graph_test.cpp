// Random graphs give the same bits as plain evaluation, on whatever nodes, however late these are,
// recorded or not, and whatever happened to a run before.
#include "tests/graph/exec/random_graph.h"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "graph/exec/graph_function.h"
#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;

// Makes a step late now and then, on whatever thread it ran.
void delay(const StepTime&) {
    static std::atomic<uint32_t> nr_steps{0};
    const uint32_t draw = nr_steps.fetch_add(1) * 2654435761u >> 16;
    if (draw % 8 == 0)
        std::this_thread::sleep_for(std::chrono::microseconds(draw / 8 % 50));
}

// The last var and some others, by a callback all or some.
class Outputs {
public:
    Outputs(RandomGraph& graph, bool all_by_callback)
        : m_graph(graph), m_indices{graph.vars().size() - 1} {
        for (size_t i = graph.below(4); i > 0; --i)
            m_indices.push_back(graph.below(graph.vars().size()));
        m_results.resize(m_indices.size());
        for (size_t i = 0; i < m_indices.size(); ++i) {
            GraphVar* var = graph.vars()[m_indices[i]].var;
            specs.push_back({var, nullptr});  // keeps its value
            if (!all_by_callback && graph.below(3) == 0)
                continue;
            const bool may_throw = var->comp_node().is_inline();
            can_throw |= may_throw;
            specs[i].callback = [this, may_throw, i](const DeviceTensorND& value) {
                if (may_throw && throws)
                    throw std::runtime_error("callback");
                m_results[i] = {value.shape(), values_of<float>(value)};
            };
        }
    }

    void drop_results() { m_results.assign(m_indices.size(), {}); }
    void check() {
        for (size_t i = 0; i < m_indices.size(); ++i) {
            const RandomGraph::Var& output = m_graph.vars()[m_indices[i]];
            if (!specs[i].callback) {
                const DeviceTensorND& value = output.var->device_value();
                m_results[i] = {value.shape(), values_of<float>(value)};
            }
            ASSERT_TRUE(m_results[i].shape.same_shape(m_graph.shape_of(output)));
            ASSERT_EQ(m_results[i].values, output.values) << "var " << m_indices[i];
        }
        ASSERT_TRUE(m_graph.inputs_are_unchanged());
    }

    std::vector<OutputSpec> specs;
    bool can_throw = false;
    bool throws = false;  // on nodes without a worker

private:
    struct Result {
        kern::TensorShape shape;
        std::vector<float> values;
    };
    RandomGraph& m_graph;
    std::vector<size_t> m_indices;
    std::vector<Result> m_results;
};

// Runs a function with other contents, memory and shapes of the inputs in turn.
void check_one_function(RandomGraph& graph) {
    Outputs outputs(graph, false);
    const auto function = graph.graph().compile(outputs.specs);
    if (graph.below(2))
        static_cast<GraphFunction&>(*function).step_hook(delay);
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        if (graph.below(8) == 0)
            function->clear_device_memory();
        if (graph.below(2))
            graph.draw_lengths();
        graph.draw_values();
        if (outputs.can_throw && graph.below(3) == 0) {
            outputs.throws = true;
            ASSERT_THROW(function->execute(), std::runtime_error);
            outputs.throws = false;
        }
        outputs.drop_results();
        function->execute().wait();
        outputs.check();
    }
    function->execute();  // and goes while it runs
}

void check(const std::vector<CompNode>& nodes, RandomGraph::Kind kind, uint32_t record_level = 0) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        RandomGraph graph(seed, nodes, kind);
        graph.graph().options().record_level = record_level;
        for (int function = 0; function < 3 && !testing::Test::HasFailure(); ++function)
            check_one_function(graph);
    }
}

const std::vector<CompNode>& several_nodes() {
    static const std::vector<CompNode> nodes{node(), worker_node(41), worker_node(42),
                                             worker_node(42, 1)};
    return nodes;
}

TEST(RandomGraphs, EqualPlainEvaluation) {
    check({node()}, RandomGraph::Kind::ANY);
}
TEST(RandomGraphs, OnSeveralNodes) {
    check(several_nodes(), RandomGraph::Kind::ANY);
}
TEST(RandomGraphs, StaticOnesOnSeveralNodes) {
    check(several_nodes(), RandomGraph::Kind::STATIC);
}
TEST(RandomGraphs, RecordedOnAWorker) {
    check({worker_node(43)}, RandomGraph::Kind::STATIC, 1);
}

TEST(RandomGraphs, RecordedForGood) {
    for (unsigned seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        RandomGraph graph(seed, {worker_node(43)}, RandomGraph::Kind::STATIC);
        graph.draw_lengths();
        graph.draw_values();
        graph.graph().options().record_level = 2;
        Outputs outputs(graph, true);
        const auto function = graph.graph().compile(outputs.specs);
        ASSERT_EQ(graph.graph().current_function(), nullptr);
        graph.drop_graph();
        for (int run = 0; run < 3; ++run) {
            graph.draw_values_in_place();
            outputs.drop_results();
            function->execute();
            outputs.check();
        }
    }
}

}  // namespace
}  // namespace orb
