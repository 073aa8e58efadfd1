// What only the x86 level has, each of its instruction sets forced in turn: the products themselves
// and what is folded into them are tested with those of all levels.
#if defined(__x86_64__)
#include "kernels/x86/matrix_mul.h"
#include "kernels/x86/reduce.h"
#include "tests/kernels/convolution_test_util.h"

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

// Channels in and out, image height and width, filter, images, stride, padding, groups.
ConvolutionProblem convolution_of(size_t ic, size_t oc, size_t ih, size_t iw, size_t f, size_t n,
                                  uint32_t stride, uint32_t pad, size_t groups = 1) {
    ConvolutionProblem problem;
    problem.param.stride_h = problem.param.stride_w = stride;
    problem.param.pad_h = problem.param.pad_w = pad;
    problem.src = {n, ic, ih, iw};
    problem.filter = {oc, ic, f, f};
    if (groups > 1) {
        problem.param.sparse = ConvolutionSparse::GROUP;
        problem.filter = {groups, oc / groups, ic / groups, f, f};
    }
    return problem;
}

// So an image has the bits alone that it has in a batch, and both sets give the same.
TEST_P(X86, ConvolutionsAddOneFusedChain) {
    std::vector<ConvolutionProblem> problems = {
        // Blocks of depth, of filters and of outputs, and what is one beyond them.
        convolution_of(193, 3, 5, 5, 1, 1, 1, 0), convolution_of(3, 113, 4, 5, 3, 1, 1, 1),
        convolution_of(2, 2, 16, 17, 3, 1, 1, 1), convolution_of(22, 15, 3, 6, 3, 2, 1, 0),
        // Images where they lie, last panels of every width, and small ones packed together.
        convolution_of(4, 29, 9, 17, 1, 1, 1, 0), convolution_of(130, 5, 12, 12, 1, 2, 1, 0),
        convolution_of(4, 3, 7, 7, 1, 5, 1, 0), convolution_of(4, 3, 3, 3, 3, 6, 1, 1),
        // Two, one and many rows of outputs in a vector; other strides.
        convolution_of(2, 3, 33, 31, 7, 1, 2, 3), convolution_of(2, 3, 40, 3, 2, 1, 1, 0),
        convolution_of(2, 3, 20, 21, 3, 1, 3, 2), convolution_of(3, 2, 9, 40, 1, 2, 2, 0),
        // One channel a group: widths around vectors, rows around blocks, narrow images.
        convolution_of(3, 3, 18, 33, 3, 2, 1, 1, 3), convolution_of(2, 4, 17, 50, 3, 1, 2, 1, 2),
        convolution_of(2, 2, 9, 8, 3, 1, 1, 1, 2), convolution_of(2, 2, 7, 7, 5, 1, 2, 4, 2),
        convolution_of(2, 2, 3, 70, 3, 1, 1, 3, 2), convolution_of(2, 2, 10, 90, 15, 1, 1, 9, 2)};
    // As many outputs as elements, of which each meets another one or the padding.
    problems.push_back(convolution_of(2, 3, 1, 3, 1, 1, 2, 1));
    problems.back().param.pad_h = 0;
    std::mt19937 random(8);
    for (int i = 0; i < 40; ++i)
        problems.push_back(random_convolution(random));
    for (const auto& problem : problems) {
        ConvolutionOperands in(problem, kind("float"));
        in.src.fill_uniform(random, -1, 1);
        in.filter.fill_uniform(random, -1, 1);
        Tensor expected(problem.dst(), DType::Float32());
        expected.fill([] { return 0; });
        for_each_product(problem, [&](size_t output, size_t src, size_t filter) {
            float& sum = expected.at<float>(output);
            sum = std::fma(in.src.at<float>(src), in.filter.at<float>(filter), sum);
        });
        for (const auto* algorithm : algorithms_of(GetParam(), problem, kind("float"))) {
            SCOPED_TRACE(problem.text() + " " + algorithm->name);
            if (algorithm->level_tag != kern::HandleLevel::X86)
                continue;
            const auto dst = convolve(GetParam(), problem, kind("float"), in, algorithm);
            ASSERT_EQ(dst->bytes(), expected.bytes());
        }
    }
}

TEST_P(X86, ListsItsConvolutionsFirst) {
    const auto expect = [&](const ConvolutionProblem& problem, const std::string& wanted,
                            const char* kind_name = "float") {
        std::string names;
        for (const auto* algorithm : algorithms_of(GetParam(), problem, kind(kind_name)))
            names += std::string(names.empty() ? "" : " ") + algorithm->name;
        EXPECT_EQ(names, wanted) << problem.text();
    };
    auto problem = convolution_of(2, 4, 40, 40, 16, 1, 2, 1, 2);
    expect(problem, "X86PLANES X86PATCHES F N");
    expect(problem, "N", "8 to 16");
    problem.filter[1] = 8;
    expect(problem, "X86PLANES X86PATCHES F N");
    problem.filter[1] = 9;
    expect(problem, "X86PATCHES X86PLANES F N");
    problem.filter[1] = 2;
    problem.param.mode = ConvolutionMode::CONVOLUTION;
    expect(problem, "X86PATCHES F N");
    problem.param.mode = ConvolutionMode::CROSS_CORRELATION;
    problem.param.dilate_h = 2;
    expect(problem, "X86PLANES X86PATCHES N");
    expect(convolution_of(2, 4, 40, 40, 17, 1, 2, 1, 2), "X86PATCHES F N");
    expect(convolution_of(2, 4, 40, 40, 16, 1, 3, 1, 2), "X86PATCHES F N");
    expect(convolution_of(2, 4, 40, 40, 3, 1, 1, 1), "X86PATCHES F N");
    const auto handle = make_handle(GetParam());
    EXPECT_STREQ(handle->create_operator<kern::ConvolutionForward>()->algorithm_set_name(), "X86");
}

}  // namespace
}  // namespace kern_test
#endif
