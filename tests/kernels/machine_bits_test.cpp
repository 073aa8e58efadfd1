// The scores of real features have the same bits on every machine that runs these levels.
#include <fstream>

#include "kernels/operators/elementwise.h"
#include "kernels/operators/matrix_mul.h"
#include "kernels/operators/reduce.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

constexpr size_t DIM = 128, NR_QUERY = 100, NR_ROWS = 2000;

// |x|^2 / 2 of each row.
void half_norms(kern::HandleLevel level, const Tensor& rows, const Tensor& norms) {
    run_operator<kern::Reduce>(level, {kern::ReduceMode::SUM_SQR, 1}, rows, norms);
    const Tensor two({1}, DType::Float32());
    two.set(0, 2);
    run_elementwise<kern::Elementwise>(level, kern::ElementwiseMode::TRUE_DIV,
                                       {norms.raw(), two.raw()}, norms.raw());
}

std::string scores(kern::HandleLevel level, const Tensor& queries, const Tensor& rows) {
    const Tensor query_norms({NR_QUERY, 1}, DType::Float32());
    const Tensor row_norms({NR_ROWS, 1}, DType::Float32());
    half_norms(level, queries, query_norms);
    half_norms(level, rows, row_norms);
    const Tensor result({NR_QUERY, NR_ROWS}, DType::Float32());
    run_operator<kern::MatrixMul>(level, {false, true}, queries, rows, result);
    RawTensor as_row = row_norms.raw();
    as_row.layout = as_row.layout.permuted({1, 0});
    for (const RawTensor& norms : {query_norms.raw(), as_row})
        run_elementwise<kern::Elementwise>(level, kern::ElementwiseMode::SUB, {result.raw(), norms},
                                           result.raw());
    return result.bytes();
}

// Fowler, Noll and Vo's hash, FNV-1a.
uint64_t hash(const std::string& bytes) {
    uint64_t value = 0xcbf29ce484222325;
    for (char byte : bytes)
        value = (value ^ static_cast<uint8_t>(byte)) * 0x100000001b3;
    return value;
}

struct RealRows : Tensor {
    RealRows(const char* name, size_t count) : Tensor({count, DIM}, DType::Float32()) {
        std::ifstream file(std::string(VEKFIND_DATA_DIR) + "/" + name, std::ios::binary);
        file.read(raw().ptr<char>(), static_cast<std::streamsize>(count * DIM * sizeof(float)));
        EXPECT_TRUE(file) << name;
    }
};

TEST(MachineBits, ScoresOfRealFeatures) {
    const RealRows queries("fashion128-query.f32", NR_QUERY);
    const RealRows rows("fashion128-base.f32", NR_ROWS);
    for (kern::HandleLevel level : {FALLBACK, ARMV7})
        EXPECT_EQ(hash(scores(level, queries, rows)), 2591025541587773602u) << level_name(level);
    for (kern::HandleLevel level : x86_levels())
        EXPECT_EQ(hash(scores(level, queries, rows)), 520378550619427573u) << level_name(level);
}

}  // namespace
}  // namespace kern_test
