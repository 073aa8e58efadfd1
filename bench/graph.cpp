// What does the runtime add to the kernels of a graph? Chains of tiny operators: a plain run, a
// replay of a recorded one, and the same kernels called by hand; with allocations per run.
#include <benchmark/benchmark.h>

#include <cstring>

#include "bench/allocations.h"
#include "graph/core/compiled_function.h"
#include "graph/node/comp_node_env.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/shared_tensor_input.h"
#include "kernels/operators/elementwise.h"

namespace {

using orb::CompNode;

constexpr size_t NR_ELEMENTS = 16;
const auto MODE = kern::ElementwiseMode::ADD;

CompNode node_of(bool has_worker) {
    return CompNode::load(has_worker ? "cpu0:0" : "cpu:default");
}

std::shared_ptr<orb::DeviceTensorND> input_on(CompNode node) {
    auto tensor = std::make_shared<orb::DeviceTensorND>(node, kern::TensorShape{NR_ELEMENTS},
                                                        kern::DType::Float32());
    std::memset(tensor->raw_ptr(), 0, NR_ELEMENTS * sizeof(float));
    return tensor;
}

void run_graph(benchmark::State& state, CompNode node, uint32_t record_level) {
    const auto graph = orb::ComputeGraph::make();
    graph->options().record_level = record_level;
    orb::GraphVar* input = orb::SharedTensorInput::make(*graph, input_on(node));
    orb::GraphVar* var = input;
    for (int64_t i = 0; i < state.range(0); ++i)
        var = orb::ElementwiseOperator::make({var, input}, MODE);
    const auto function = graph->compile({{var, nullptr}});
    function->execute().wait();
    const int64_t before = nr_allocations;
    for (auto _ : state)
        function->execute().wait();
    state.counters["allocations"] =
        static_cast<double>(nr_allocations - before) / static_cast<double>(state.iterations());
}

void plain_inline(benchmark::State& state) {
    run_graph(state, node_of(false), 0);
}
void plain_on_worker(benchmark::State& state) {
    run_graph(state, node_of(true), 0);
}
void replayed(benchmark::State& state) {
    run_graph(state, node_of(true), 1);
}

void kernels_by_hand(benchmark::State& state) {
    const CompNode node = node_of(false);
    const auto input = input_on(node), result = input_on(node);
    const auto kernel = node.env().kernel_handle().create_operator<kern::Elementwise>();
    kernel->param().mode = MODE;
    const std::vector<kern::RawTensor> inputs{result->as_raw(), input->as_raw()};
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i)
            kernel->exec(inputs, result->as_raw());
    }
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->ArgName("operators")->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();
}
BENCHMARK(kernels_by_hand)->Apply(sizes);
BENCHMARK(plain_inline)->Apply(sizes);
BENCHMARK(plain_on_worker)->Apply(sizes);
BENCHMARK(replayed)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
