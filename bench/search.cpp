// How long a search takes: whole calls through the C interface, one thread, warm. Columns: time of
// one query, stored bytes that one call covers a second, multiply-adds counted as two operations,
// and the memory that the search needs over the group at rest.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "bench/bench_util.h"

namespace {

using namespace vek_bench;

constexpr size_t K = 10;

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
    const size_t peak = peak_memory();
    for (auto _ : state)
        call();

    const auto calls = static_cast<double>(state.iterations());
    const double bytes = static_cast<double>(rows) * static_cast<double>(dim) * sizeof(T);
    const double operations = 2.0 * bytes / sizeof(T) * static_cast<double>(nr_query);
    using benchmark::Counter;
    state.counters["s/query"] =
        Counter(calls * static_cast<double>(nr_query), Counter::kIsRate | Counter::kInvert);
    state.counters["GB/s"] = Counter(calls * bytes * 1e-9, Counter::kIsRate);
    state.counters["Gop/s"] = Counter(calls * operations * 1e-9, Counter::kIsRate);
    state.counters["search_MB"] = static_cast<double>(peak > at_rest ? peak - at_rest : 0) * 1e-6;
}

void all_sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"rows", "dim", "queries"})->Unit(benchmark::kMillisecond);
    for (int64_t dim : {128, 512}) {
        for (int64_t rows : {10000, 100000, 1000000}) {
            for (int64_t queries : {1, 4, 16, 64, 256})
                benchmark->Args({rows, dim, queries});
        }
    }
}
BENCHMARK_TEMPLATE(search, float)->Apply(all_sizes);
BENCHMARK_TEMPLATE(search, int8_t)->Apply(all_sizes);

}  // namespace

BENCHMARK_MAIN();
