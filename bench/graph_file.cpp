// How fast graphs go to a file and come back, beside reading the same file into fresh memory, and
// how many operators a second. Files lie in the folder that TMPDIR names, /tmp by default.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/shared_tensor_input.h"
#include "serialization/graph_dumper.h"
#include "serialization/graph_inspector.h"
#include "serialization/graph_loader.h"

namespace {

using namespace orb;
namespace fs = std::filesystem;

CompNode node() {
    return CompNode::load("cpu:default");
}

// A graph in a file, which is removed at the end.
class GraphFile {
public:
    template <typename Build>
    GraphFile(const char* name, const Build& build)
        : m_path(fs::temp_directory_path() / (name + std::to_string(getpid()))),
          m_outputs(build(*m_graph)) {
        dump();
    }
    ~GraphFile() { fs::remove(m_path); }

    void dump() const { GraphDumper(OutputFile::create(m_path)).dump(m_outputs); }
    std::unique_ptr<InputFile> open() const { return InputFile::open(m_path); }
    const fs::path& path() const { return m_path; }
    size_t bytes() const { return fs::file_size(m_path); }

private:
    fs::path m_path;
    std::shared_ptr<ComputeGraph> m_graph = ComputeGraph::make();
    std::vector<GraphVar*> m_outputs;
};

// 25 parameters of 4 MB.
const GraphFile& weights() {
    static const GraphFile file("vekfind-bench-weights-", [](ComputeGraph& graph) {
        std::vector<GraphVar*> outputs;
        for (int i = 0; i < 25; ++i) {
            auto tensor = std::make_shared<DeviceTensorND>(node(), kern::TensorShape{1 << 20},
                                                           kern::DType::Float32());
            std::memset(tensor->raw_ptr(), i, tensor->dtype().byte_size(1 << 20));
            outputs.push_back(SharedTensorInput::make(graph, tensor, {}, TensorRole::PARAMETER));
            outputs.back()->name("parameter" + std::to_string(i));
        }
        return outputs;
    });
    return file;
}

constexpr size_t NR_OPERATORS = 100000;

// A chain of additions.
const GraphFile& small_operators() {
    static const GraphFile file("vekfind-bench-operators-", [](ComputeGraph& graph) {
        OperatorConfig config;
        config.comp_nodes = {node()};
        GraphVar* one = ConstantTensor::make_scalar(graph, 1.0f, config);
        GraphVar* var = one;
        for (size_t i = 0; i < NR_OPERATORS; ++i)
            var = ElementwiseOperator::make({var, one}, kern::ElementwiseMode::ADD);
        return std::vector<GraphVar*>{var};
    });
    return file;
}

void count_bytes(benchmark::State& state) {
    state.counters["GB/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(weights().bytes()) * 1e-9,
        benchmark::Counter::kIsRate);
}

void count_operators(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(NR_OPERATORS));
}

void read_into_fresh_memory(benchmark::State& state) {
    weights();
    for (auto _ : state) {
        const auto file = weights().open();
        const std::unique_ptr<uint8_t[]> bytes(new uint8_t[weights().bytes()]);
        file->read(bytes.get(), weights().bytes());
        benchmark::DoNotOptimize(bytes.get());
    }
    count_bytes(state);
}
BENCHMARK(read_into_fresh_memory)->Unit(benchmark::kMillisecond)->UseRealTime();

void load_values(benchmark::State& state) {
    weights();
    for (auto _ : state) {
        GraphLoader loader(weights().open());
        benchmark::DoNotOptimize(loader.load().graph.get());
    }
    count_bytes(state);
}
BENCHMARK(load_values)->Unit(benchmark::kMillisecond)->UseRealTime();

// The parameters are there already.
void load_again(benchmark::State& state) {
    GraphLoader loader(weights().open());
    const GraphLoadResult first = loader.load();
    for (auto _ : state)
        benchmark::DoNotOptimize(loader.load({}, true).graph.get());
}
BENCHMARK(load_again)->Unit(benchmark::kMicrosecond)->UseRealTime();

void dump_values(benchmark::State& state) {
    weights();
    for (auto _ : state)
        weights().dump();
    count_bytes(state);
}
BENCHMARK(dump_values)->Unit(benchmark::kMillisecond)->UseRealTime();

void parse_operators(benchmark::State& state) {
    small_operators();
    for (auto _ : state) {
        const auto file = small_operators().open();
        benchmark::DoNotOptimize(inspect_graph_file(*file).operators.size());
    }
    count_operators(state);
}
BENCHMARK(parse_operators)->Unit(benchmark::kMillisecond)->UseRealTime();

void load_operators(benchmark::State& state) {
    small_operators();
    for (auto _ : state) {
        GraphLoadResult result = GraphLoader(small_operators().open()).load();
        state.PauseTiming();
        result = GraphLoadResult();
        state.ResumeTiming();
    }
    count_operators(state);
}
BENCHMARK(load_operators)->Unit(benchmark::kMillisecond)->UseRealTime();

void dump_operators(benchmark::State& state) {
    small_operators();
    for (auto _ : state)
        small_operators().dump();
    count_operators(state);
}
BENCHMARK(dump_operators)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
