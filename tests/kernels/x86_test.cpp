// What only the x86 level has, each of its instruction sets forced in turn: the products themselves
// and what is folded into them are tested with those of all levels.
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
