#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

// Sizes around the edges of tiles of 4 and 8 rows and of 4 and 12 columns.
std::vector<Problem> problems() {
    std::vector<Problem> result;
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 16, 17})
        for (size_t columns : Sizes{1, 4, 11, 12, 13, 24, 25})
            for (size_t depth : Sizes{0, 1, 2, 3, 4, 5, 33})
                for (int flags = 0; flags < 8; ++flags)
                    result.push_back({rows, columns, depth, (flags & 1) != 0, (flags & 2) != 0,
                                      flags & 4 ? size_t{3} : size_t{0}});
    // A third of them meets every pair of sizes: the step has no factor in common with the lists.
    constexpr size_t STEP = 3;
    size_t kept = 0;
    for (size_t i = 0; i < result.size(); i += STEP)
        result[kept++] = result[i];
    result.resize(kept);
    return result;
}

// The armv7 level's blocks: 480 columns and rows of C, 256 products.
const Problem BLOCK_EDGES[] = {
    {5, 479, 255, false, true, 0}, {9, 480, 256, false, false, 1}, {4, 481, 257, false, true, 3},
    {479, 13, 5, true, true, 0},   {481, 3, 9, false, true, 0},    {480, 12, 2, true, false, 2},
    {2, 25, 513, true, false, 0},  {1, 961, 17, true, true, 0},    {12, 1, 100, false, false, 0},
    {13, 1, 18, false, true, 1},
};

TEST(MatrixMul, WholeNumbersAreExactAtEveryLevel) {
    const struct {
        DType in, out;
        MatrixMulDataType data_type;
        int magnitude;
    } kinds[] = {
        {DType::Float32(), DType::Float32(), MatrixMulDataType::DEFAULT, 100},
        {DType::Float32(), DType::Float32(), MatrixMulDataType::FLOAT_IO16_CO32, 100},
        {DType::Float16(), DType::Float16(), MatrixMulDataType::DEFAULT, 7},
        {DType::Float16(), DType::Float16(), MatrixMulDataType::FLOAT_IO16_CO32, 7},
        {DType::Int8(), DType::Int32(), MatrixMulDataType::INT8_TO_INT32, 127},
    };
    std::mt19937 random(1);
    for (const Problem& problem : problems()) {
        for (const auto& kind : kinds) {
            Tensor a(problem.a(kind.in)), b(problem.b(kind.in));
            a.fill_integers(random, -kind.magnitude - 1, kind.magnitude);
            b.fill_integers(random, -kind.magnitude - 1, kind.magnitude);
            Tensor wanted(problem.c(kind.out));  // what lies between rows is never written
            for (size_t i = 0; i < problem.rows; ++i)
                for (size_t j = 0; j < problem.columns; ++j) {
                    double sum = 0;
                    for (size_t k = 0; k < problem.depth; ++k)
                        sum += a.get(problem.a_position(i, k)) * b.get(problem.b_position(k, j));
                    wanted.set(i * problem.columns + j, sum);
                }
            for (kern::HandleLevel level : LEVELS) {
                const Tensor c(problem.c(kind.out));
                run(level, problem, kind.data_type, a, b, c);
                ASSERT_EQ(c.bytes(), wanted.bytes())
                    << problem.text() << " " << kind.in.name() << " level " << level_name(level);
            }
        }
    }
}

TEST(MatrixMul, FloatLevelsAgreeBitForBit) {
    std::mt19937 random(2);
    size_t misalignment = 0;  // the workspace may lie anywhere
    std::vector<Problem> all = problems();
    all.insert(all.end(), std::begin(BLOCK_EDGES), std::end(BLOCK_EDGES));
    for (const Problem& problem : all) {
        Tensor a(problem.a(DType::Float32())), b(problem.b(DType::Float32()));
        a.fill_uniform(random, -1, 1);
        b.fill_uniform(random, -1, 1);
        const Tensor naive(problem.c(DType::Float32()));
        run(NAIVE, problem, MatrixMulDataType::DEFAULT, a, b, naive);
        for (kern::HandleLevel level : {FALLBACK, ARMV7}) {
            const Tensor c(problem.c(DType::Float32()));
            run(level, problem, MatrixMulDataType::DEFAULT, a, b, c, misalignment++ % 16);
            ASSERT_EQ(c.bytes(), naive.bytes()) << problem.text() << " " << level_name(level);
        }
    }
}

class MatrixMulLevels : public testing::TestWithParam<kern::HandleLevel> {};

// The score of a pair may depend neither on the other queries and rows nor on where the pair lies.
TEST_P(MatrixMulLevels, PairHasTheSameBitsAloneAndInABatch) {
    const kern::HandleLevel level = GetParam();
    constexpr size_t QUERIES = 21, ROWS = 61, DIM = 131;
    std::mt19937 random(3);
    const Problem batch{QUERIES, ROWS, DIM, false, true, 0};
    Tensor a(batch.a(DType::Float32())), b(batch.b(DType::Float32()));
    a.fill_uniform(random, -1, 1);
    b.fill_uniform(random, -1, 1);
    const Tensor all(batch.c(DType::Float32()));
    run(level, batch, MatrixMulDataType::DEFAULT, a, b, all);
    for (size_t count : Sizes{1, 2, 3, 4, 6}) {
        for (size_t first_row : Sizes{0, 1, 7, 50}) {
            const Problem part{count, ROWS - first_row, DIM, false, true, 0};
            const size_t first_query = QUERIES - count;
            Tensor queries(part.a(DType::Float32())), rows(part.b(DType::Float32()));
            for (size_t i = 0; i < count * DIM; ++i)
                queries.set(i, a.get(first_query * DIM + i));
            for (size_t i = 0; i < (ROWS - first_row) * DIM; ++i)
                rows.set(i, b.get(first_row * DIM + i));
            const Tensor c(part.c(DType::Float32()));
            run(level, part, MatrixMulDataType::DEFAULT, queries, rows, c);
            for (size_t i = 0; i < count; ++i)
                for (size_t j = 0; j < ROWS - first_row; ++j)
                    ASSERT_EQ(c.at<float>(i * (ROWS - first_row) + j),
                              all.at<float>((first_query + i) * ROWS + first_row + j));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, MatrixMulLevels, testing::Values(FALLBACK, ARMV7),
                         [](const auto& level) { return level_name(level.param); });

TEST(MatrixMul, HalfRoundsAfterEveryStepOrOnce) {
    for (kern::HandleLevel level : LEVELS) {
        const Problem problem{1, 1, 3, false, true, 0};
        Tensor a(problem.a(DType::Float16())), b(problem.b(DType::Float16()));
        const Tensor c(problem.c(DType::Float16()));
        b.fill([] { return 1; });
        a.set(0, 2048), a.set(1, 1), a.set(2, 1);
        run(level, problem, MatrixMulDataType::DEFAULT, a, b, c);
        EXPECT_EQ(c.get(0), 2048);
        run(level, problem, MatrixMulDataType::FLOAT_IO16_CO32, a, b, c);
        EXPECT_EQ(c.get(0), 2050);
    }
}

TEST(MatrixMul, NoRowsNoColumnsAndWorkspaceSizes) {
    for (kern::HandleLevel level : LEVELS) {
        for (const Problem& problem :
             {Problem{0, 5, 3, false, true, 0}, Problem{5, 0, 3, false, false, 0},
              Problem{0, 0, 0, true, false, 0}}) {
            const DType f = DType::Float32();
            const Tensor a(TensorLayout(problem.a(f), f)), b(TensorLayout(problem.b(f), f)),
                c(TensorLayout(problem.c(f), f));
            run(level, problem, MatrixMulDataType::DEFAULT, a, b, c);
        }
    }
    const auto handle = make_handle(FALLBACK);
    const auto op = handle->create_operator<kern::MatrixMul>();
    const Problem problem{9, 13, 5, false, false, 0};
    const DType f = DType::Float32();
    EXPECT_EQ(op->workspace_in_bytes(problem.a(f), problem.b(f), problem.c(f)),
              64u * (16 * 5 * 4 / 64 + (24 * 5 * 4 + 63) / 64) + 32);
}

TEST(MatrixMul, WrongArgumentsStopTheProcess) {
    const auto handle = make_handle(FALLBACK);
    const auto op = handle->create_operator<kern::MatrixMul>();
    const DType f = DType::Float32(), h = DType::Float16(), i8 = DType::Int8();
    std::vector<uint8_t> memory(4096);
    const auto exec = [&](const TensorLayout& a, const TensorLayout& b, const TensorLayout& c,
                          MatrixMulDataType data_type, size_t workspace) {
        op->param().data_type = data_type;
        op->exec({memory.data(), a}, {memory.data() + 1024, b}, {memory.data() + 2048, c},
                 {memory.data() + 3072, workspace});
    };
    const TensorLayout square({4, 4}, f), bytes({4, 4}, i8);
    constexpr auto PLAIN = MatrixMulDataType::DEFAULT;
    exec(square, square, square, PLAIN, 1000);
    EXPECT_DEATH(exec(square, square, square, PLAIN, 10), "");
    EXPECT_DEATH(exec(square, square, TensorLayout({4, 5}, f), PLAIN, 1000), "");
    EXPECT_DEATH(exec(square, TensorLayout({5, 4}, f), square, PLAIN, 1000), "");
    EXPECT_DEATH(exec(TensorLayout({1, 4, 4}, f), square, square, PLAIN, 1000), "");
    EXPECT_DEATH(exec(strided({4, 4}, {1, 4}, f), square, square, PLAIN, 1000), "");
    EXPECT_DEATH(exec(strided({4, 4}, {3, 1}, f), square, square, PLAIN, 1000), "");
    EXPECT_DEATH(exec(square, square, strided({4, 4}, {3, 1}, f), PLAIN, 1000), "");
    EXPECT_DEATH(exec(square, square, TensorLayout({4, 4}, h), PLAIN, 1000), "");
    EXPECT_DEATH(exec(square, TensorLayout({4, 4}, h), square, PLAIN, 1000), "");
    EXPECT_DEATH(exec(bytes, bytes, bytes, PLAIN, 1000), "");
    EXPECT_DEATH(exec(bytes, bytes, square, MatrixMulDataType::INT8_TO_INT32, 1000), "");
}

}  // namespace
}  // namespace kern_test
