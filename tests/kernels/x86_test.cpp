// The x86 level, each of its instruction sets forced in turn.
#if defined(__x86_64__)
#include <cmath>
#include <limits>

#include "kernels/x86/matrix_mul.h"
#include "kernels/x86/reduce.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

using kern::x86::InstructionSet;

// Lines along k that are contiguous, as in a search, unless stated otherwise.
Problem problem_of(size_t rows, size_t columns, size_t depth) {
    return {rows, columns, depth, false, true, 0};
}

// The sum that every kernel of the level must give.
float dot(const Problem& problem, const Tensor& a, size_t i, const Tensor& b, size_t j) {
    float partials[16] = {};
    for (size_t k = 0; k < problem.depth; ++k)
        partials[k % 16] = std::fma(a.at<float>(problem.a_position(i, k)),
                                    b.at<float>(problem.b_position(k, j)), partials[k % 16]);
    for (size_t width = 8; width > 0; width /= 2)
        for (size_t l = 0; l < width; ++l)
            partials[l] += partials[l + width];
    return partials[0];
}

// Around the edges of tiles, panels and vectors, and beyond the depth where panels are split. A
// depth of 9000 packs lines of A in several blocks.
std::vector<Problem> problems() {
    std::vector<Problem> result;
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 13, 16, 17, 35})
        for (size_t columns : Sizes{1, 3, 11, 12, 13, 15, 16, 17, 24, 33, 65})
            for (size_t depth : Sizes{0, 1, 7, 8, 9, 15, 16, 17, 31, 64, 65, 131})
                result.push_back(problem_of(rows, columns, depth));
    for (size_t depth : Sizes{256, 257, 343, 520, 9000})
        result.push_back(problem_of(33, 37, depth));
    result.push_back(problem_of(241, 21, 520));  // several blocks of several groups
    const size_t plain = result.size();
    for (size_t i = 0; i < plain; i += 5) {  // five and the sizes above share no factor
        for (int flags = 0; flags < 4; ++flags) {
            Problem form = result[i];
            form.transpose_a = (flags & 1) != 0;
            form.transpose_b = (flags & 2) != 0;
            form.padding = 3;
            result.push_back(form);
        }
    }
    result.push_back({3, 401, 20, false, false, 0});  // more lines than are turned at a time
    return result;
}

class X86 : public testing::TestWithParam<kern::HandleLevel> {
protected:
    void SetUp() override {
        const auto levels = x86_levels();
        if (std::find(levels.begin(), levels.end(), GetParam()) == levels.end())
            GTEST_SKIP() << "this CPU lacks " << level_name(GetParam());
    }
};
INSTANTIATE_TEST_SUITE_P(Sets, X86, testing::Values(X86_AVX2, X86_AVX512), [](const auto& set) {
    return set.param == X86_AVX2 ? std::string("avx2") : "avx512";
});

TEST_P(X86, TheForcedSetRuns) {
    const auto handle = make_handle(GetParam());
    const auto op = handle->create_operator<kern::MatrixMul>();
    const auto* impl = dynamic_cast<kern::x86::MatrixMulImpl*>(op.get());
    ASSERT_NE(impl, nullptr);
    EXPECT_STREQ(impl->kernels().name, GetParam() == X86_AVX2 ? "avx2" : "avx512");
    EXPECT_NE(dynamic_cast<kern::x86::ReduceImpl*>(handle->create_operator<kern::Reduce>().get()),
              nullptr);
    EXPECT_DEATH(kern::x86::force_instruction_set(InstructionSet::NONE), "");
}

// So a pair has the same bits alone and in a batch, anywhere in it, and with either set.
TEST_P(X86, FloatProductsHaveTheBitsOfThePair) {
    std::mt19937 random(1);
    for (const Problem& problem : problems()) {
        Tensor a(problem.a(DType::Float32()));
        a.fill_uniform(random, -1, 1);
        Tensor b(problem.b(DType::Float32()));
        b.fill_uniform(random, -1, 1);
        const Tensor wanted(problem.c(DType::Float32())), c(problem.c(DType::Float32()));
        for (size_t i = 0; i < problem.rows; ++i)
            for (size_t j = 0; j < problem.columns; ++j)
                wanted.at<float>(i * problem.columns + j) = dot(problem, a, i, b, j);
        run(GetParam(), problem, MatrixMulDataType::DEFAULT, a, b, c);
        ASSERT_EQ(c.bytes(), wanted.bytes()) << problem.text();
    }
}

TEST_P(X86, IntegerProductsAreExactAndWrap) {
    std::mt19937 random(2);
    std::vector<Problem> all = problems();
    all.push_back(problem_of(3, 5, 140000));  // 2^31 is passed at a depth of 2^17
    all.push_back(problem_of(17, 17, 140000));
    for (const Problem& problem : all) {
        for (int highest : {127, -128}) {
            Tensor a(problem.a(DType::Int8())), b(problem.b(DType::Int8()));
            a.fill_integers(random, -128, highest);
            b.fill_integers(random, -128, highest);
            const Tensor wanted(problem.c(DType::Int32())), c(problem.c(DType::Int32()));
            run(NAIVE, problem, MatrixMulDataType::INT8_TO_INT32, a, b, wanted);
            run(GetParam(), problem, MatrixMulDataType::INT8_TO_INT32, a, b, c);
            ASSERT_EQ(c.bytes(), wanted.bytes()) << problem.text() << " up to " << highest;
        }
    }
}

// Runs the product with the subtractions folded, and by itself with these after it.
template <typename T>
void expect_folded_bits(kern::HandleLevel level, const Problem& problem, MatrixMulDataType type,
                        const Tensor& a, const Tensor& b, const Tensor* rows,
                        const Tensor* columns) {
    const DType dtype = rows ? rows->layout().dtype : columns->layout().dtype;
    const Tensor wanted(problem.c(dtype)), c(problem.c(dtype));
    run(level, problem, type, a, b, wanted);
    // Differences of integers wrap.
    using Word = std::conditional_t<std::is_same_v<T, float>, float, uint32_t>;
    for (size_t i = 0; i < problem.rows * problem.columns; ++i) {
        Word value = static_cast<Word>(wanted.at<T>(i));
        if (rows)
            value = value - static_cast<Word>(rows->at<T>(i / problem.columns));
        if (columns)
            value = value - static_cast<Word>(columns->at<T>(i % problem.columns));
        wanted.at<T>(i) = static_cast<T>(value);
    }

    std::vector<kern::MatrixMul::FollowUp> operations;
    for (const Tensor* operand : {rows, columns})
        if (operand)
            operations.push_back({kern::ElementwiseMode::SUB, operand->raw()});
    run(level, problem, type, a, b, c, 0, operations);
    ASSERT_EQ(c.bytes(), wanted.bytes()) << problem.text();
}

TEST_P(X86, FoldedSubtractionsHaveTheBitsOfLaterOnes) {
    std::mt19937 random(3);
    const auto all = problems();
    for (size_t i = 0; i < all.size(); ++i) {
        const Problem& problem = all[i];
        // Not in step with the depths; both where lines of B are turned in several panels.
        const size_t kind = i + 1 == all.size() ? 2 : (i + i / 12) % 3;
        const bool with_rows = kind != 0, with_columns = kind != 1;
        const TensorShape of_rows{problem.rows, 1}, of_columns{1, problem.columns};
        Tensor a(problem.a(DType::Float32())), b(problem.b(DType::Float32()));
        Tensor rows(of_rows, DType::Float32()), columns(of_columns, DType::Float32());
        for (Tensor* tensor : {&a, &b, &rows, &columns})
            tensor->fill_uniform(random, -1, 1);
        expect_folded_bits<float>(GetParam(), problem, MatrixMulDataType::DEFAULT, a, b,
                                  with_rows ? &rows : nullptr, with_columns ? &columns : nullptr);

        Tensor a8(problem.a(DType::Int8())), b8(problem.b(DType::Int8()));
        Tensor rows32(of_rows, DType::Int32()), columns32(of_columns, DType::Int32());
        for (Tensor* tensor : {&a8, &b8})
            tensor->fill_integers(random, -128, 127);
        for (Tensor* tensor : {&rows32, &columns32})
            tensor->fill_integers(random, INT32_MIN, INT32_MAX);
        expect_folded_bits<int32_t>(GetParam(), problem, MatrixMulDataType::INT8_TO_INT32, a8, b8,
                                    with_rows ? &rows32 : nullptr,
                                    with_columns ? &columns32 : nullptr);
    }
}

TEST_P(X86, FoldsOnlySubtractionsOfRowsThenColumns) {
    const auto handle = make_handle(GetParam());
    const auto op = handle->create_operator<kern::MatrixMul>();
    const TensorLayout a({4, 8}, DType::Float32()), c({4, 6}, DType::Float32());
    const auto nr_foldable = [&](const std::vector<TensorLayout>& operands,
                                 kern::ElementwiseMode mode = kern::ElementwiseMode::SUB) {
        std::vector<kern::MatrixMul::FollowUp> operations;
        for (const TensorLayout& layout : operands)
            operations.push_back({mode, {nullptr, layout}});
        return op->nr_foldable(a, c, operations);
    };
    const TensorLayout rows({4, 1}, DType::Float32()), columns({1, 6}, DType::Float32());
    EXPECT_EQ(nr_foldable({rows, columns, rows}), 2u);
    EXPECT_EQ(nr_foldable({columns, rows}), 1u);
    EXPECT_EQ(nr_foldable({rows, rows}), 1u);
    EXPECT_EQ(nr_foldable({rows}, kern::ElementwiseMode::ADD), 0u);
    EXPECT_EQ(nr_foldable({TensorLayout({4, 1}, DType::Int32())}), 0u);
    EXPECT_EQ(nr_foldable({strided({4, 1}, {2, 1}, DType::Float32())}), 0u);
    EXPECT_EQ(nr_foldable({strided({1, 6}, {0, 0}, DType::Float32())}), 0u);
    EXPECT_EQ(nr_foldable({TensorLayout({4, 6}, DType::Float32())}), 0u);
    op->param().data_type = MatrixMulDataType::FLOAT_IO16_CO32;  // another level's product
    EXPECT_EQ(nr_foldable({rows}), 0u);
}

TEST_P(X86, NoNumberStaysInItsOwnLine) {
    constexpr float NO_NUMBER = std::numeric_limits<float>::quiet_NaN();
    constexpr float INFINITE = std::numeric_limits<float>::infinity();
    for (const Problem& problem :
         {problem_of(1, 40, 21), problem_of(6, 40, 21), problem_of(17, 40, 144)}) {
        Tensor a(problem.a(DType::Float32()));
        a.fill([] { return 1; });
        Tensor b(problem.b(DType::Float32()));
        b.fill([] { return -1; });
        b.at<float>(18 * problem.depth + 19) = NO_NUMBER;
        b.at<float>(39 * problem.depth + 20) = INFINITE;
        const Tensor c(problem.c(DType::Float32()));
        run(GetParam(), problem, MatrixMulDataType::DEFAULT, a, b, c);
        for (size_t i = 0; i < problem.rows * problem.columns; ++i) {
            const float value = c.at<float>(i);
            switch (i % problem.columns) {
                case 18:
                    EXPECT_TRUE(std::isnan(value));
                    break;
                case 39:
                    EXPECT_EQ(value, INFINITE);
                    break;
                default:
                    EXPECT_EQ(value, -static_cast<float>(problem.depth));
            }
        }
    }
}

// A product that is too small for a float leaves a negative zero, which the lanes that a short last
// step does not use must keep.
TEST_P(X86, LanesWithoutAProductKeepTheirSigns) {
    const Problem problem = problem_of(5, 17, 17);
    Tensor a(problem.a(DType::Float32()));
    a.fill([] { return -1e-30; });
    Tensor b(problem.b(DType::Float32()));
    b.fill([] { return 1e-30; });
    const Tensor c(problem.c(DType::Float32()));
    run(GetParam(), problem, MatrixMulDataType::DEFAULT, a, b, c);
    for (size_t i = 0; i < 5 * 17; ++i)
        EXPECT_TRUE(std::signbit(c.at<float>(i)) && c.at<float>(i) == 0);
}

}  // namespace
}  // namespace kern_test
#endif
