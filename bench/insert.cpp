// How fast a group grows and shrinks: rows a second for batches of different sizes into a new
// group, beside a plain copy of the same bytes into fresh memory, and for erasure by id in random
// order.
#include <benchmark/benchmark.h>

#include "bench/bench_util.h"
#include "tools/common/machine_limits.h"

namespace {

using namespace vek_bench;

// The bound of an insert: the rows' bytes, copied into memory that nobody has touched before. The
// seconds of the copying alone.
double copy_into_fresh_blocks(const std::vector<float>& features, size_t dim) {
    constexpr size_t ROWS_OF_BLOCK = 8192;
    std::vector<machine_limits::Memory> blocks;
    const double start = machine_limits::seconds_now();
    for (size_t first = 0; first < features.size(); first += ROWS_OF_BLOCK * dim) {
        const size_t bytes = std::min(ROWS_OF_BLOCK * dim, features.size() - first) * sizeof(float);
        blocks.push_back(machine_limits::fresh_memory(bytes));
        std::memcpy(blocks.back().get(), features.data() + first, bytes);
    }
    benchmark::DoNotOptimize(blocks.data());
    return machine_limits::seconds_now() - start;
}

double insert_into_new_group(const std::vector<float>& features, const std::vector<uint64_t>& ids,
                             size_t dim, size_t batch) {
    const Group group = make_group<float>(dim);
    const double start = machine_limits::seconds_now();
    for (size_t first = 0; first < ids.size(); first += batch) {
        const size_t count = std::min(batch, ids.size() - first);
        check(VEK_insert_features_to_feature_group(group.get(),
                                                   as_bytes(features.data() + first * dim),
                                                   ids.data() + first, nullptr, count, nullptr));
    }
    return machine_limits::seconds_now() - start;
}

// The best of each, in turn, so that what else the machine does meets both. What the first group of
// a process pays for all is not counted.
void insert_float32(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    const auto batch = std::min(rows, static_cast<size_t>(state.range(2)));
    const std::vector<float> features = random_features<float>(rows, dim, 1);
    const std::vector<uint64_t> ids = consecutive_ids(rows);
    make_filled_group<float>(rows, dim);
    copy_into_fresh_blocks(features, dim);
    double insertion = 1e9, copy = 1e9;
    for (auto _ : state) {
        const double seconds = insert_into_new_group(features, ids, dim, batch);
        state.SetIterationTime(seconds);
        insertion = std::min(insertion, seconds);
        copy = std::min(copy, copy_into_fresh_blocks(features, dim));
    }
    const auto total = static_cast<double>(rows);
    state.counters["rows/s"] = total / insertion;
    state.counters["GB/s"] = total * static_cast<double>(dim * sizeof(float)) / insertion * 1e-9;
    state.counters["copy_rows/s"] = total / copy;
    state.counters["share"] = copy / insertion;
}
BENCHMARK(insert_float32)
    ->ArgNames({"rows", "dim", "batch"})
    ->Args({1000000, 128, 1000000})
    ->Args({1000000, 128, 1000})
    ->Args({1000000, 128, 100})
    ->Args({100000, 128, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

void erase_in_random_order(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    const auto batch = static_cast<size_t>(state.range(1));
    constexpr size_t DIM = 128;
    std::vector<uint64_t> ids = consecutive_ids(rows);
    Random random(3);
    for (size_t i = rows; i > 1; --i)
        std::swap(ids[i - 1], ids[random.next() % i]);
    double best = 1e9;
    for (auto _ : state) {
        const Group group = make_filled_group<float>(rows, DIM);
        const double start = machine_limits::seconds_now();
        for (size_t first = 0; first < rows; first += batch) {
            check(VEK_delete_features_from_feature_group(group.get(), ids.data() + first,
                                                         std::min(batch, rows - first)));
        }
        const double seconds = machine_limits::seconds_now() - start;
        state.SetIterationTime(seconds);
        best = std::min(best, seconds);
    }
    state.counters["rows/s"] = static_cast<double>(rows) / best;
}
BENCHMARK(erase_in_random_order)
    ->ArgNames({"rows", "batch"})
    ->Args({1000000, 1000000})
    ->Args({1000000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
