#include "kernels/matrix_mul.h"

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::MatrixMulDataType;

struct Problem {
    size_t rows, columns, depth;
    bool transpose_a, transpose_b;
    size_t padding;  // elements between rows

    TensorLayout layout(size_t height, size_t width, bool transposed, DType dtype) const {
        if (transposed)
            std::swap(height, width);
        return strided({height, width}, {static_cast<ptrdiff_t>(width + padding), 1}, dtype);
    }
    TensorLayout a(DType dtype) const { return layout(rows, depth, transpose_a, dtype); }
    TensorLayout b(DType dtype) const { return layout(depth, columns, transpose_b, dtype); }
    TensorLayout c(DType dtype) const { return layout(rows, columns, false, dtype); }
    size_t a_position(size_t i, size_t k) const {
        return transpose_a ? k * rows + i : i * depth + k;
    }
    size_t b_position(size_t k, size_t j) const {
        return transpose_b ? j * depth + k : k * columns + j;
    }
    std::string text() const {
        return std::to_string(rows) + "x" + std::to_string(depth) + "x" + std::to_string(columns) +
               (transpose_a ? " ta" : "") + (transpose_b ? " tb" : "") + (padding ? " padded" : "");
    }
};

// Sizes around the edges of tiles of 4 and 8 rows and of 4 and 12 columns.
std::vector<Problem> problems() {
    std::vector<Problem> result;
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 16, 17})
        for (size_t columns : Sizes{1, 4, 11, 12, 13, 24, 25})
            for (size_t depth : Sizes{0, 1, 3, 4, 5, 33})
                for (int flags = 0; flags < 8; ++flags)
                    result.push_back({rows, columns, depth, (flags & 1) != 0, (flags & 2) != 0,
                                      flags & 4 ? size_t{3} : size_t{0}});
    return result;
}

void run(kern::HandleLevel level, const Problem& problem, MatrixMulDataType data_type,
         const Tensor& a, const Tensor& b, const Tensor& c, size_t misalignment = 0) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {problem.transpose_a, problem.transpose_b, data_type};
    const size_t bytes = op->workspace_in_bytes(a.layout(), b.layout(), c.layout());
    const GuardedBuffer workspace(bytes + 16);
    op->exec(a.raw(), b.raw(), c.raw(), {workspace.data() + 16 - misalignment, bytes});
}

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
    for (const Problem& problem : problems()) {
        Tensor a(problem.a(DType::Float32())), b(problem.b(DType::Float32()));
        a.fill_uniform(random, -1, 1);
        b.fill_uniform(random, -1, 1);
        const Tensor naive(problem.c(DType::Float32())), fallback(problem.c(DType::Float32()));
        run(NAIVE, problem, MatrixMulDataType::DEFAULT, a, b, naive);
        run(FALLBACK, problem, MatrixMulDataType::DEFAULT, a, b, fallback, misalignment++ % 16);
        ASSERT_EQ(fallback.bytes(), naive.bytes()) << problem.text();
    }
}

// The score of a pair may depend neither on the other queries and rows nor on where the pair lies.
TEST(MatrixMul, PairHasTheSameBitsAloneAndInABatch) {
    constexpr size_t QUERIES = 21, ROWS = 61, DIM = 131;
    std::mt19937 random(3);
    const Problem batch{QUERIES, ROWS, DIM, false, true, 0};
    Tensor a(batch.a(DType::Float32())), b(batch.b(DType::Float32()));
    a.fill_uniform(random, -1, 1);
    b.fill_uniform(random, -1, 1);
    const Tensor all(batch.c(DType::Float32()));
    run(FALLBACK, batch, MatrixMulDataType::DEFAULT, a, b, all);
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
            run(FALLBACK, part, MatrixMulDataType::DEFAULT, queries, rows, c);
            for (size_t i = 0; i < count; ++i)
                for (size_t j = 0; j < ROWS - first_row; ++j)
                    ASSERT_EQ(c.at<float>(i * (ROWS - first_row) + j),
                              all.at<float>((first_query + i) * ROWS + first_row + j));
        }
    }
}

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
    // Right, but without a kernel so far.
    EXPECT_DEATH(exec(bytes, bytes, TensorLayout({4, 4}, DType::Int16()),
                      MatrixMulDataType::INT8_TO_INT16, 1000),
                 "");
}

}  // namespace
}  // namespace kern_test
