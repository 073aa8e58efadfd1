// What only the x86 level has, each of its instruction sets forced in turn: the products themselves
// are tested with those of all levels.
#if defined(__x86_64__)
#include "kernels/x86/matrix_mul.h"
#include "kernels/x86/reduce.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;
using kern::x86::InstructionSet;

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
    const ThrowingChecks checks;
    EXPECT_THROW(kern::x86::force_instruction_set(InstructionSet::NONE), Refused);
}

// Runs the product with the subtractions folded, and by itself with these after it.
template <typename T>
void expect_folded_bits(kern::HandleLevel level, const Problem& problem, const Kind& item,
                        bool with_rows, bool with_columns, std::mt19937& random) {
    Operands in(problem, item);
    Tensor rows({problem.rows, 1}, item.c), columns({1, problem.columns}, item.c);
    for (Tensor* tensor : {&in.a, &in.b, &rows, &columns}) {
        if (std::is_same_v<T, float>)
            tensor->fill_uniform(random, -1, 1);
        else if (tensor->layout().dtype == DType::Int8())
            tensor->fill_integers(random, -128, 127);
        else
            tensor->fill_integers(random, INT32_MIN, INT32_MAX);
    }
    const auto wanted = product(level, problem, item, in);
    // Differences of integers wrap.
    using Word = std::conditional_t<std::is_same_v<T, float>, float, uint32_t>;
    for (size_t i = 0; i < problem.rows * problem.columns; ++i) {
        Word value = static_cast<Word>(wanted->at<T>(i));
        if (with_rows)
            value = value - static_cast<Word>(rows.at<T>(i / problem.columns));
        if (with_columns)
            value = value - static_cast<Word>(columns.at<T>(i % problem.columns));
        wanted->at<T>(i) = static_cast<T>(value);
    }
    std::vector<kern::MatrixMul::Epilogue> operations;
    if (with_rows)
        operations.push_back({ElementwiseMode::SUB, rows.raw()});
    if (with_columns)
        operations.push_back({ElementwiseMode::SUB, columns.raw()});
    ASSERT_EQ(product(level, problem, item, in, 0, operations)->bytes(), wanted->bytes())
        << problem.text() << " " << item.name;
}

TEST_P(X86, FoldedSubtractionsHaveTheBitsOfLaterOnes) {
    std::mt19937 random(3);
    size_t turn = 0;
    const auto check = [&](const Problem& problem) {
        ++turn;
        const bool with_rows = turn % 3 != 0, with_columns = turn % 3 != 1;
        expect_folded_bits<float>(GetParam(), problem, kind("float"), with_rows, with_columns,
                                  random);
        expect_folded_bits<int32_t>(GetParam(), problem, kind("8 to 32"), with_rows, with_columns,
                                    random);
    };
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 13, 16, 17, 35})
        for (size_t columns : Sizes{1, 3, 11, 12, 13, 15, 16, 17, 24, 33, 65})
            for (size_t depth : Sizes{0, 1, 8, 17, 65})
                check(
                    {rows, columns, depth, turn % 7 == 1, turn % 5 != 1, turn % 11 == 1 ? 3u : 0u});
    check({33, 37, 520, false, true, 0});
    check({241, 21, 520, false, true, 0});  // several blocks of several groups
    for (int i = 0; i < 3; ++i)
        check({3, 401, 20, false, false, 0});  // more columns than are transposed at a time
}

TEST_P(X86, FoldsOnlySubtractionsOfRowsThenColumns) {
    const auto handle = make_handle(GetParam());
    const auto op = handle->create_operator<kern::MatrixMul>();
    const DType f = DType::Float32();
    const TensorLayout a({4, 8}, f), c({4, 6}, f), rows({4, 1}, f), columns({1, 6}, f);
    const struct {
        std::vector<TensorLayout> operands;
        size_t folded;
        ElementwiseMode mode = ElementwiseMode::SUB;
        MatrixMulDataType data_type = MatrixMulDataType::DEFAULT;
    } cases[] = {
        {{rows, columns, rows}, 2},
        {{columns, rows}, 1},
        {{rows, rows}, 1},
        {{rows}, 0, ElementwiseMode::ADD},
        {{TensorLayout({4, 1}, DType::Int32())}, 0},
        {{strided({4, 1}, {2, 1}, f)}, 0},
        {{strided({1, 6}, {0, 0}, f)}, 0},
        {{TensorLayout({4, 6}, f)}, 0},
        {{rows}, 0, ElementwiseMode::SUB, MatrixMulDataType::FLOAT_IO16_CO32},
    };
    for (const auto& item : cases) {
        std::vector<kern::MatrixMul::Epilogue> operations;
        for (const TensorLayout& layout : item.operands)
            operations.push_back({item.mode, {nullptr, layout}});
        op->param().data_type = item.data_type;
        EXPECT_EQ(op->nr_foldable(a, c, operations), item.folded) << &item - cases;
    }
}

}  // namespace
}  // namespace kern_test
#endif
