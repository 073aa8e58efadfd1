// The kernels of the Arm levels where their tiles end, and what Winograd's transforms may add to
// the rounding of plain sums.
#include "kernels/arm_common/winograd_transforms.h"
#include "tests/kernels/convolution_test_util.h"

namespace kern_test {
namespace {

ConvolutionProblem square_problem(size_t oh, size_t ow, size_t fh, size_t fw, uint32_t stride,
                                  uint32_t pad) {
    ConvolutionProblem problem;
    problem.param.stride_h = problem.param.stride_w = stride;
    problem.param.pad_h = problem.param.pad_w = pad;
    problem.src = {2, 2, (oh - 1) * stride + fh - 2 * pad, (ow - 1) * stride + fw - 2 * pad};
    problem.filter = {3, 2, fh, fw};
    return problem;
}

void expect_bits_of_naive(const ConvolutionProblem& problem, std::mt19937& random) {
    for (const char* name : {"float", "8 to 16"}) {
        ConvolutionOperands in(problem, kind(name));
        if (name == std::string("float")) {
            in.src.fill_uniform(random, -1, 1);
            in.filter.fill_uniform(random, -1, 1);
        } else {
            in.src.fill_integers(random, -128, -100);  // sums that wrap around
            in.filter.fill_integers(random, -128, 127);
        }
        const auto expected = convolve(NAIVE, problem, kind(name), in)->bytes();
        for (const auto* algorithm : algorithms_of(ARMV7, problem, kind(name)))
            ASSERT_EQ(convolve(ARMV7, problem, kind(name), in, algorithm)->bytes(), expected)
                << problem.text() << " " << algorithm->name;
    }
}

TEST(ConvolutionArm, TilesAtTheirEdges) {
    std::mt19937 random(1);
    const std::pair<size_t, size_t> outputs[] = {{1, 1}, {1, 2}, {3, 3}, {2, 4},  {4, 5},
                                                 {5, 7}, {7, 8}, {8, 9}, {9, 17}, {4, 16}};
    for (auto [oh, ow] : outputs) {
        for (size_t side : Sizes{1, 2, 3, 5, 7}) {
            for (uint32_t stride : {1U, 2U}) {
                for (uint32_t pad : {0U, 1U}) {
                    if ((oh - 1) * stride + side > 2 * pad && (ow - 1) * stride + side > 2 * pad)
                        expect_bits_of_naive(square_problem(oh, ow, side, side, stride, pad),
                                             random);
                }
            }
        }
        for (auto [fh, fw] : {std::pair<size_t, size_t>{1, 9}, {7, 1}, {4, 6}, {3, 3}}) {
            auto problem = square_problem(oh, ow, fh, fw, 1, 0);
            expect_bits_of_naive(problem, random);
            problem.param.mode = ConvolutionMode::CONVOLUTION;
            expect_bits_of_naive(problem, random);
        }
    }
}

// One channel a group: nothing but the row kernels.
TEST(ConvolutionArm, DepthwiseEqualsNaive) {
    std::mt19937 random(2);
    for (uint32_t stride : {1U, 2U}) {
        auto problem = square_problem(7, 13, 3, 3, stride, 1);
        problem.param.sparse = ConvolutionSparse::GROUP;
        problem.src[1] = 6;
        problem.filter = {6, 1, 1, 3, 3};
        expect_bits_of_naive(problem, random);
    }
}

using Matrix = std::vector<std::vector<double>>;

// The matrix of a transform of `inputs` values into `outputs`, column by column.
template <typename Transform>
Matrix matrix_of(Transform transform, size_t outputs, size_t inputs) {
    Matrix matrix(outputs, std::vector<double>(inputs));
    for (size_t column = 0; column < inputs; ++column) {
        kern::arm_common::Winograd in[8], out[8];
        for (size_t i = 0; i < inputs; ++i)
            in[i] = kern::simd::broadcast(i == column ? 1.0f : 0.0f);
        transform(in, 1, out, 1);
        for (size_t row = 0; row < outputs; ++row) {
            float lanes[4];
            kern::simd::store(lanes, out[row]);
            matrix[row][column] = static_cast<double>(lanes[0]);
        }
    }
    return matrix;
}

double sum_of_squares(const std::vector<double>& values) {
    double sum = 0;
    for (double value : values)
        sum += value * value;
    return sum;
}

// By how much the transforms along one axis enlarge the mean square of a rounding error: a position
// has the energy of its rows of G and BT, and enters an output by its value in AT.
double energy() {
    const Matrix filter = matrix_of(kern::arm_common::transform_filter, 8, 3);
    const Matrix input = matrix_of(kern::arm_common::transform_input, 8, 8);
    double most = 0;
    for (const auto& row : matrix_of(kern::arm_common::transform_output, 6, 8)) {
        double sum = 0;
        for (size_t position = 0; position < 8; ++position)
            sum += row[position] * row[position] * sum_of_squares(filter[position]) *
                   sum_of_squares(input[position]);
        most = std::max(most, sum);
    }
    return most;
}

TEST(ConvolutionArm, WinogradIsAsNearAsItsTransformsAllow) {
    std::mt19937 random(3);
    const double energy_of_tile = energy() * energy();
    EXPECT_LT(energy_of_tile, 140 * 140);
    const std::pair<size_t, size_t> sizes[] = {{3, 3}, {8, 8}, {9, 14}, {15, 26}, {5, 21}};
    for (auto [height, width] : sizes) {
        for (auto [ic, oc] : {std::pair<size_t, size_t>{8, 16}, {24, 8}}) {
            ConvolutionProblem problem;
            problem.src = {3, ic, height, width};
            problem.filter = {oc, ic, 3, 3};
            SCOPED_TRACE(problem.text());
            const Kind& of = kind("float");
            const auto all = algorithms_of(ARMV7, problem, of);
            const auto winograd = std::find_if(all.begin(), all.end(), [](const auto* algorithm) {
                return algorithm->name == std::string("WINOGRAD");
            });
            ConvolutionOperands in(problem, of);
            in.src.fill_uniform(random, -1, 1);
            in.filter.fill_uniform(random, -1, 1);
            const auto dst = convolve(ARMV7, problem, of, in, *winograd);
            const auto exact = convolve(NAIVE, problem, of, in);
            // About 32 roundings in the transforms and one for each channel; a value's mean square
            // is 1/3. Six standard deviations.
            const auto channels = static_cast<double>(ic);
            const double bound = 6 * std::ldexp(1.0, -24) *
                                 std::sqrt((32 + channels) * energy_of_tile * channels / 9);
            for (size_t i = 0; i < dst->layout().element_count(); ++i)
                ASSERT_LE(std::abs(dst->get(i) - exact->get(i)), bound) << "output " << i;

            // The last image alone.
            ConvolutionProblem alone = problem;
            alone.src[0] = 1;
            ConvolutionOperands one(alone, of);
            const size_t skipped = 2 * alone.src.element_count();
            for (size_t i = 0; i < alone.src.element_count(); ++i)
                one.src.set(i, in.src.get(skipped + i));
            for (size_t i = 0; i < problem.filter.element_count(); ++i)
                one.filter.set(i, in.filter.get(i));
            const auto bytes = convolve(ARMV7, alone, of, one, *winograd)->bytes();
            ASSERT_EQ(bytes, dst->bytes().substr(dst->bytes().size() - bytes.size()));
        }
    }
}

}  // namespace
}  // namespace kern_test
