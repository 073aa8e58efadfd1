// How fast are the kernels that a search is made of? Matrix products in operations per second (a
// multiplication and an addition count as two) and as a share of the machine's peak, the rest in
// bytes of operands moved per second.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "kernels/operators/elementwise.h"
#include "kernels/operators/matrix_mul.h"
#include "kernels/operators/reduce.h"
#include "kernels/operators/relayout.h"
#include "tools/common/machine_limits.h"

namespace {

using kern::DType;
using kern::RawTensor;
using kern::TensorLayout;

constexpr size_t NR_ROWS = 8192;
constexpr size_t DIM = 128;

// A dense tensor with memory of its own, filled with small numbers.
class Tensor {
public:
    Tensor(const kern::TensorShape& shape, DType dtype)
        : m_layout(shape, dtype), m_bytes(m_layout.span().high_byte + 1) {
        for (size_t i = 0; i < m_layout.element_count(); ++i) {
            if (dtype == DType::Float32()) {
                const float value = static_cast<float>(i % 17) - 8.0f;
                std::memcpy(m_bytes.data() + i * sizeof(value), &value, sizeof(value));
            } else {
                m_bytes[i * dtype.element_bytes()] = static_cast<uint8_t>(i % 17);
            }
        }
    }
    RawTensor raw() { return {m_bytes.data(), m_layout}; }
    int64_t nr_bytes() const { return static_cast<int64_t>(m_layout.span().high_byte); }

private:
    TensorLayout m_layout;
    std::vector<uint8_t> m_bytes;
};

std::unique_ptr<kern::KernelHandle> make_handle(int debug_level) {
    return kern::make_handle({kern::Platform::CPU, std::make_shared<kern::InlineDispatcher>()},
                             debug_level);
}

// {queries, dim} times the transpose of {NR_ROWS, dim}.
void multiply(benchmark::State& state, DType in, DType out, kern::MatrixMulDataType data_type,
              double peak) {
    const auto queries = static_cast<size_t>(state.range(0));
    const auto dim = static_cast<size_t>(state.range(1));
    const auto handle = make_handle(0);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param().transpose_b = true;
    op->param().data_type = data_type;
    Tensor a({queries, dim}, in), b({NR_ROWS, dim}, in), c({queries, NR_ROWS}, out);
    std::vector<uint8_t> workspace(
        op->workspace_in_bytes(a.raw().layout, b.raw().layout, c.raw().layout));
    const auto operations = static_cast<double>(2 * queries * NR_ROWS * dim);
    double best = 0;
    for (auto _ : state) {
        const double rate = machine_limits::best_rate(
            [&] {
                op->exec(a.raw(), b.raw(), c.raw(), {workspace.data(), workspace.size()});
                return operations;
            },
            1);
        best = std::max(best, rate);
    }
    state.counters["OP/s"] =
        benchmark::Counter(operations, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["best_OP/s"] = benchmark::Counter(best);
    if (peak > 0)
        state.counters["best_share"] = best / peak;
}

void matrix_mul_float32(benchmark::State& state) {
    static const double peak = machine_limits::float_peak();
    multiply(state, DType::Float32(), DType::Float32(), kern::MatrixMulDataType::DEFAULT, peak);
}
BENCHMARK(matrix_mul_float32)->ArgsProduct({{1, 2, 4, 8, 16, 64, 256, 1024}, {DIM, 512}});

void matrix_mul_int8(benchmark::State& state) {
    static const double peak = machine_limits::int8_peak();
    multiply(state, DType::Int8(), DType::Int32(), kern::MatrixMulDataType::INT8_TO_INT32, peak);
}
BENCHMARK(matrix_mul_int8)->ArgsProduct({{1, 2, 4, 8, 16, 64, 256, 1024}, {DIM, 512}});

// Argument: the axis of {NR_ROWS, DIM} that is reduced.
void reduce_sum_sqr(benchmark::State& state) {
    const auto handle = make_handle(0);
    const auto op = handle->create_operator<kern::Reduce>();
    const bool rows = state.range(0) == 1;
    op->param() = {kern::ReduceMode::SUM_SQR, rows ? 1 : 0, kern::ReduceDataType::DEFAULT};
    Tensor src({NR_ROWS, DIM}, DType::Float32());
    Tensor dst({rows ? NR_ROWS : 1, rows ? 1 : DIM}, DType::Float32());
    for (auto _ : state)
        op->exec(src.raw(), dst.raw(), {});
    state.SetBytesProcessed(state.iterations() * src.nr_bytes());
}
BENCHMARK(reduce_sum_sqr)->Arg(0)->Arg(1);

// {16, NR_ROWS} minus a vector of the given shape, in place.
void subtract(benchmark::State& state, DType dtype, const kern::TensorShape& vector_shape) {
    const auto handle = make_handle(0);
    const auto op = handle->create_operator<kern::Elementwise>();
    op->param().mode = kern::ElementwiseMode::SUB;
    Tensor matrix({16, NR_ROWS}, dtype), vector(vector_shape, dtype);
    for (auto _ : state)
        op->exec({matrix.raw(), vector.raw()}, matrix.raw());
    state.SetBytesProcessed(state.iterations() * 2 * matrix.nr_bytes());
}
void subtract_row_float32(benchmark::State& state) {
    subtract(state, DType::Float32(), {1, NR_ROWS});
}
void subtract_column_float32(benchmark::State& state) {
    subtract(state, DType::Float32(), {16, 1});
}
void subtract_row_int32(benchmark::State& state) {
    subtract(state, DType::Int32(), {1, NR_ROWS});
}
void subtract_column_int32(benchmark::State& state) {
    subtract(state, DType::Int32(), {16, 1});
}
BENCHMARK(subtract_row_float32);
BENCHMARK(subtract_column_float32);
BENCHMARK(subtract_row_int32);
BENCHMARK(subtract_column_int32);

// {16, NR_ROWS} into columns of a matrix that is twice as wide.
void relayout_rows(benchmark::State& state) {
    const auto handle = make_handle(0);
    const auto op = handle->create_operator<kern::Relayout>();
    Tensor src({16, NR_ROWS}, DType::Float32()), wide({16, 2 * NR_ROWS}, DType::Float32());
    RawTensor dst(wide.raw().ptr<float>() + NR_ROWS, src.raw().layout);
    dst.layout.stride[0] = 2 * NR_ROWS;
    for (auto _ : state)
        op->exec(src.raw(), dst);
    state.SetBytesProcessed(state.iterations() * 2 * src.nr_bytes());
}
BENCHMARK(relayout_rows);

}  // namespace

BENCHMARK_MAIN();
