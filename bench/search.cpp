// How long a search takes: whole calls through the C interface, one thread, warm. Columns: the
// fastest call, the time that the machine's own limits allow (reading the rows once, or the
// multiply-adds at peak, whichever is longer), the share of that bound which is reached, and the
// memory that the search needs over the group at rest. The limits are measured in the same run.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <map>

#include "bench/bench_util.h"
#include "tools/common/machine_limits.h"

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
    // Over as many bytes: the best seen so far, measured once more.
    double bandwidth(size_t bytes) {
        double& rate = bandwidths[bytes];
        rate = std::max(rate, machine_limits::read_bandwidth(bytes));
        return rate;
    }
};

// A group of made-up rows, and one search over it that is called again and again.
template <typename T>
class Call {
public:
    Call(size_t rows, size_t dim, size_t nr_query, uint32_t tag_bytes = 0)
        : m_group(make_filled_group<T>(rows, dim, tag_bytes)),
          m_queries(random_features<T>(nr_query, dim, 7)),
          m_ids(nr_query * K),
          m_scores(nr_query * K),
          m_contexts(nr_query) {}

    void operator()(float threshold, int (*predicate)(void*, const uint8_t*) = nullptr) {
        VEKFeatureGroupSearchOptions options{1, 0};
        VEKFeatureGroupSearchResult result{0, 0, m_scores.data(), m_ids.data()};
        check(VEK_search_feature_group(m_group.get(), as_bytes(m_queries.data()), m_contexts.size(),
                                       K, threshold, m_contexts.data(), predicate, &options,
                                       &result));
    }

private:
    Group m_group;
    std::vector<T> m_queries;
    std::vector<uint64_t> m_ids;
    std::vector<float> m_scores;
    std::vector<void*> m_contexts;
};

template <typename Function>
double seconds_of(Function function) {
    const double start = machine_limits::seconds_now();
    function();
    return machine_limits::seconds_now() - start;
}

template <typename T>
void search(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    const auto nr_query = static_cast<size_t>(state.range(2));
    // A group of its own for each line: a search leaves its buffers behind for the next one.
    Call<T> call(rows, dim, nr_query);
    malloc_trim(0);
    reset_peak_memory();
    const size_t at_rest = resident_memory();
    call(0);
    const size_t most = peak_memory();
    Limits& limits = Limits::of_machine();
    limits.bandwidth(rows * dim * sizeof(T));  // before and after: other work comes and goes
    double seconds = 1e9;
    for (auto _ : state)
        seconds = std::min(seconds, seconds_of([&] { call(0); }));

    const double elements = static_cast<double>(rows) * static_cast<double>(dim);
    const double peak = sizeof(T) == 1 ? limits.int8_operations : limits.float_operations;
    const double bandwidth = limits.bandwidth(rows * dim * sizeof(T));
    const double reading = elements * sizeof(T) / bandwidth;
    const double computing = peak > 0 ? 2 * elements * static_cast<double>(nr_query) / peak : 0;
    const double bound = std::max(reading, computing);
    state.counters["read_GB/s"] = bandwidth * 1e-9;
    state.counters["peak_Gop/s"] = peak * 1e-9;
    state.counters["best_ms"] = seconds * 1e3;
    state.counters["bound_ms"] = bound * 1e3;
    state.counters["share"] = bound / seconds;
    state.counters["search_MB"] = static_cast<double>(most > at_rest ? most - at_rest : 0) * 1e-6;
}

int keep(void*, const uint8_t* tag) {
    return tag[0] == 0;
}

[[gnu::noinline]] int ask_about_all(const std::vector<uint8_t>& tags, size_t tag_bytes,
                                    int (*predicate)(void*, const uint8_t*), void* context) {
    int kept = 0;
    const uint8_t* end = tags.data() + tags.size();
    for (const uint8_t* tag = tags.data(); tag != end; tag += tag_bytes)
        kept += predicate(context, tag);
    return kept;
}

// A search with a predicate that keeps all rows, beside one without and the calls alone.
void search_with_predicate(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto nr_query = static_cast<size_t>(state.range(1));
    constexpr uint32_t TAG_BYTES = 8;
    Call<float> call(rows, 128, nr_query, TAG_BYTES);
    int (*volatile predicate)(void*, const uint8_t*) = keep;
    const std::vector<uint8_t> tags(rows * TAG_BYTES);
    double with = 1e9, without = 1e9, calls = 1e9;
    for (auto _ : state) {
        with = std::min(with, seconds_of([&] { call(0, predicate); }));
        without = std::min(without, seconds_of([&] { call(0); }));
        calls = std::min(calls, seconds_of([&] {
                             int kept = 0;
                             for (size_t query = 0; query < nr_query; ++query)
                                 kept += ask_about_all(tags, TAG_BYTES, predicate, nullptr);
                             benchmark::DoNotOptimize(kept);
                         }));
    }
    state.counters["with_ms"] = with * 1e3;
    state.counters["without_ms"] = without * 1e3;
    state.counters["calls_ms"] = calls * 1e3;
    state.counters["beyond_ms"] = (with - without - calls) * 1e3;
}

// A search whose threshold drops all rows, beside one whose threshold drops none.
void search_above_threshold(benchmark::State& state) {
    Call<float> call(static_cast<size_t>(state.range(0)), 128, static_cast<size_t>(state.range(1)));
    double above = 1e9, all = 1e9;
    for (auto _ : state) {
        above = std::min(above, seconds_of([&] { call(0.999999f); }));
        all = std::min(all, seconds_of([&] { call(0); }));
    }
    state.counters["dropping_ms"] = above * 1e3;
    state.counters["keeping_ms"] = all * 1e3;
    state.counters["ratio"] = above / all;
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

void some_sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgNames({"rows", "queries"})->Unit(benchmark::kMillisecond);
    benchmark->ArgsProduct({{1000000}, {1, 16}});
}
BENCHMARK(search_with_predicate)->Apply(some_sizes);
BENCHMARK(search_above_threshold)->Apply(some_sizes);

}  // namespace

BENCHMARK_MAIN();
