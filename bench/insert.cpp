// How fast a group grows and shrinks: rows a second for batches of different sizes into a new
// group, beside a plain copy of the same bytes into fresh memory, and for erasure by id in random
// order.
#include <benchmark/benchmark.h>

#include "bench/bench_util.h"
#include "bench/machine_limits.h"

namespace {

using namespace vek_bench;

void count_rows(benchmark::State& state, size_t rows, size_t dim) {
    using benchmark::Counter;
    const double total = static_cast<double>(state.iterations()) * static_cast<double>(rows);
    state.counters["rows/s"] = Counter(total, Counter::kIsRate);
    state.counters["GB/s"] =
        Counter(total * static_cast<double>(dim * sizeof(float)) * 1e-9, Counter::kIsRate);
}

void insert_float32(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    const auto batch = std::min(rows, static_cast<size_t>(state.range(2)));
    const std::vector<float> features = random_features<float>(rows, dim, 1);
    const std::vector<uint64_t> ids = consecutive_ids(rows);
    make_filled_group<float>(rows, dim);  // what the first group of a process pays for all
    for (auto _ : state) {
        state.PauseTiming();
        Group group = make_group<float>(dim);
        state.ResumeTiming();
        for (size_t first = 0; first < rows; first += batch) {
            const size_t count = std::min(batch, rows - first);
            check(VEK_insert_features_to_feature_group(
                group.get(), as_bytes(features.data() + first * dim), ids.data() + first, nullptr,
                count, nullptr));
        }
        state.PauseTiming();
        group.reset();
        state.ResumeTiming();
    }
    count_rows(state, rows, dim);
}
BENCHMARK(insert_float32)
    ->ArgNames({"rows", "dim", "batch"})
    ->Args({1000000, 128, 1000000})
    ->Args({1000000, 128, 1000})
    ->Args({1000000, 128, 100})
    ->Args({100000, 128, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The bound of an insert: the rows' bytes, copied into memory that nobody has touched before.
void copy_into_fresh_memory(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    constexpr size_t ROWS_OF_BLOCK = 8192;
    const std::vector<float> features = random_features<float>(rows, dim, 1);
    const auto copy = [&](std::vector<machine_limits::Memory>& blocks) {
        for (size_t first = 0; first < rows; first += ROWS_OF_BLOCK) {
            const size_t bytes = std::min(ROWS_OF_BLOCK, rows - first) * dim * sizeof(float);
            blocks.push_back(machine_limits::fresh_memory(bytes));
            std::memcpy(blocks.back().get(), features.data() + first * dim, bytes);
        }
        benchmark::DoNotOptimize(blocks.data());
    };
    std::vector<machine_limits::Memory> blocks;
    copy(blocks);  // as the inserts have a first group
    for (auto _ : state) {
        state.PauseTiming();
        blocks.clear();
        state.ResumeTiming();
        copy(blocks);
    }
    count_rows(state, rows, dim);
}
BENCHMARK(copy_into_fresh_memory)
    ->ArgNames({"rows", "dim"})
    ->Args({1000000, 128})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void erase_in_random_order(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto batch = static_cast<size_t>(state.range(1));
    constexpr size_t DIM = 128;
    std::vector<uint64_t> ids = consecutive_ids(rows);
    Random random(3);
    for (size_t i = rows; i > 1; --i)
        std::swap(ids[i - 1], ids[random.next() % i]);
    for (auto _ : state) {
        state.PauseTiming();
        Group group = make_filled_group<float>(rows, DIM);
        state.ResumeTiming();
        for (size_t first = 0; first < rows; first += batch) {
            check(VEK_delete_features_from_feature_group(group.get(), ids.data() + first,
                                                         std::min(batch, rows - first)));
        }
        state.PauseTiming();
        group.reset();
        state.ResumeTiming();
    }
    count_rows(state, rows, DIM);
}
BENCHMARK(erase_in_random_order)
    ->ArgNames({"rows", "batch"})
    ->Args({1000000, 1000000})
    ->Args({1000000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
