// Convolutions: the order of naive, every algorithm of every level against naive.
#include <array>
#include <set>

#include "tests/kernels/convolution_test_util.h"

namespace kern_test {
namespace {

bool adds_in_other_order(const kern::ConvolutionAlgorithm& algorithm) {
    return algorithm.name == std::string("WINOGRAD") ||
           algorithm.level_tag == kern::HandleLevel::X86;
}

// Within what another order of additions can make, for values up to 1.
void expect_near(const Tensor& dst, const Tensor& expected, size_t depth) {
    const double bound = 1e-6 * static_cast<double>(depth + 16);
    for (size_t i = 0; i < dst.layout().element_count(); ++i)
        ASSERT_LE(std::abs(dst.get(i) - expected.get(i)), bound) << "output " << i;
}

// The order of additions, which other levels repeat.
TEST(Convolution, NaiveAddsInTheOrderOfTheFilter) {
    std::mt19937 random(2);
    for (int i = 0; i < some_of(40); ++i) {
        const auto problem = random_convolution(random);
        SCOPED_TRACE(problem.text());
        ConvolutionOperands in(problem, kind("float"));
        in.src.fill_uniform(random, -1, 1);
        in.filter.fill_uniform(random, -1, 1);
        Tensor expected(problem.dst(), DType::Float32());
        expected.fill([] { return 0; });
        for_each_product(problem, [&](size_t output, size_t src, size_t filter) {
            expected.at<float>(output) += in.src.at<float>(src) * in.filter.at<float>(filter);
        });
        ASSERT_EQ(convolve(NAIVE, problem, kind("float"), in)->bytes(), expected.bytes());
    }
}

TEST(Convolution, EveryAlgorithmEqualsNaive) {
    std::mt19937 random(3);
    for (int i = 0; i < some_of(150); ++i) {
        const auto problem = random_convolution(random);
        for (const char* name : {"float", "half", "8 to 16", "zero points"}) {
            ConvolutionOperands in(problem, kind(name));
            const bool is_float = name == std::string("float");
            in.src.fill_integers(random, -128, 127);
            in.filter.fill_integers(random, -128, 127);
            const auto exact = convolve(NAIVE, problem, kind(name), in);
            ConvolutionOperands real(problem, kind(name));
            real.src.fill_uniform(random, -1, 1);
            real.filter.fill_uniform(random, -1, 1);
            const auto rounded = convolve(NAIVE, problem, kind(name), real);
            for (kern::HandleLevel level : LEVELS) {
                for (const auto* algorithm : algorithms_of(level, problem, kind(name))) {
                    SCOPED_TRACE(problem.text() + " " + name + " " + level_name(level) + " " +
                                 algorithm->name);
                    const bool is_other = adds_in_other_order(*algorithm);
                    const bool is_exact = algorithm->name != std::string("WINOGRAD");
                    const auto dst = convolve(level, problem, kind(name), in, algorithm);
                    ASSERT_TRUE(!is_exact || dst->bytes() == exact->bytes());
                    if (!is_float)
                        continue;
                    const auto floats = convolve(level, problem, kind(name), real, algorithm);
                    ASSERT_TRUE(is_other || floats->bytes() == rounded->bytes());
                    expect_near(*floats, *rounded, problem.filter.element_count());
                }
            }
        }
    }
}

TEST(Convolution, PatchesTakeTheSameMemoryForAnyImages) {
    std::set<std::string> seen;
    for (kern::HandleLevel level : LEVELS) {
        const auto handle = make_handle(level);
        const auto op = handle->create_operator<kern::ConvolutionForward>();
        const auto layouts = [](size_t n, size_t side) {
            const DType f32 = DType::Float32();
            return std::array{TensorLayout({n, 5, side, side}, f32),
                              TensorLayout({7, 5, 3, 3}, f32),
                              TensorLayout({n, 7, side - 2, side - 2}, f32)};
        };
        const auto [src, filter, dst] = layouts(1, 4);
        for (const auto* algorithm : op->all_algorithms(src, filter, dst)) {
            if (algorithm->name != std::string("F") && algorithm->name != std::string("X86PATCHES"))
                continue;
            seen.insert(algorithm->name);
            op->force_algorithm(algorithm);
            const auto [srcs, filters, dsts] = layouts(3, 90);
            EXPECT_EQ(op->workspace_in_bytes(src, filter, dst),
                      op->workspace_in_bytes(srcs, filters, dsts))
                << algorithm->name;
        }
    }
    EXPECT_EQ(seen.size(), x86_levels().empty() ? 1u : 2u);
}

}  // namespace
}  // namespace kern_test
