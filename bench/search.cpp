// How long a search takes: whole calls through the C interface, one thread, warm. Columns: the
// fastest call, the time that the machine's own limits allow (reading the rows once, or the
// multiply-adds at peak, whichever is longer), the share of that bound which is reached, and the
// memory that the search needs over the group at rest. The limits are measured in the same run.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <map>

#include "bench/bench_util.h"
#include "bench/machine_limits.h"

namespace {

using namespace vek_bench;

constexpr size_t K = 10;

// Rates per second, measured at first use.
struct Limits {
    double float_operations = machine_limits::float_peak();
    double int8_operations = machine_limits::int8_peak();
    std::map<size_t, double> bandwidths;

    static Limits& of_machine() {
        static Limits limits;
        return limits;
    }
    // Over as many bytes.
    double bandwidth(size_t bytes) {
        double& rate = bandwidths[bytes];
        if (rate == 0)
            rate = machine_limits::read_bandwidth(bytes);
        return rate;
    }
};

template <typename T>
void search(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    const auto nr_query = static_cast<size_t>(state.range(2));
    // A group of its own for each line: a search leaves its buffers behind for the next one.
    const Group group = make_filled_group<T>(rows, dim);
    const std::vector<T> queries = random_features<T>(nr_query, dim, 7);
    std::vector<uint64_t> ids(nr_query * K);
    std::vector<float> scores(nr_query * K);
    VEKFeatureGroupSearchOptions options{1, 0};
    VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
    const auto call = [&] {
        check(VEK_search_feature_group(group.get(), as_bytes(queries.data()), nr_query, K, 0.0f,
                                       nullptr, nullptr, &options, &result));
    };
    malloc_trim(0);
    reset_peak_memory();
    const size_t at_rest = resident_memory();
    call();
    const size_t most = peak_memory();
    double best_rate = 0;  // calls a second
    for (auto _ : state)
        best_rate = std::max(best_rate, machine_limits::best_rate([&] { return call(), 1.0; }, 1));

    Limits& limits = Limits::of_machine();
    const double elements = static_cast<double>(rows) * static_cast<double>(dim);
    const double peak = sizeof(T) == 1 ? limits.int8_operations : limits.float_operations;
    const double bandwidth = limits.bandwidth(rows * dim * sizeof(T));
    const double reading = elements * sizeof(T) / bandwidth;
    const double computing = peak > 0 ? 2 * elements * static_cast<double>(nr_query) / peak : 0;
    const double bound = std::max(reading, computing);
    state.counters["read_GB/s"] = bandwidth * 1e-9;
    state.counters["peak_Gop/s"] = peak * 1e-9;
    state.counters["best_ms"] = 1e3 / best_rate;
    state.counters["bound_ms"] = bound * 1e3;
    state.counters["share"] = bound * best_rate;
    state.counters["search_MB"] = static_cast<double>(most > at_rest ? most - at_rest : 0) * 1e-6;
}

void all_sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"rows", "dim", "queries"})->Unit(benchmark::kMillisecond);
    constexpr int64_t SHAPES[][2] = {{10000, 128}, {100000, 128}, {1000000, 128}, {200000, 512}};
    for (const auto& [rows, dim] : SHAPES) {
        for (int64_t queries : {1, 4, 16, 64, 256, 1024})
            benchmark->Args({rows, dim, queries});
    }
}
BENCHMARK_TEMPLATE(search, float)->Apply(all_sizes)->ArgsProduct({{4000000}, {128}, {1, 16, 256}});
BENCHMARK_TEMPLATE(search, int8_t)
    ->Apply(all_sizes)
    ->ArgsProduct({{10000000}, {128}, {1, 16, 256}});

}  // namespace

BENCHMARK_MAIN();
