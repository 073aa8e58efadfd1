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
