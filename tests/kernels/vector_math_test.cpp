// The vector forms of exp, sigmoid, tanh and the rational tanh against their formulas in double
// precision, over a grid and over the bit patterns of all magnitudes; sums of integers that wrap.
#include <cfloat>
#include <cmath>

#include "kernels/operators/elementwise.h"
#include "kernels/simd/integers.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;

// Of a quotient by an estimate and one Newton step.
#if defined(__ARM_NEON)
constexpr double QUOTIENT_ERROR = 1.6e-5;
#else
constexpr double QUOTIENT_ERROR = 3e-7;
#endif

std::vector<float> evaluate(ElementwiseMode mode, std::vector<float> x) {
    const TensorLayout layout({x.size()}, DType::Float32());
    std::vector<float> result(x.size());
    run_elementwise<kern::Elementwise>(ARMV7, mode, {{x.data(), layout}}, {result.data(), layout});
    return result;
}

std::vector<float> sweep_points() {
    constexpr size_t NR_POINTS = 1 << 19;
    std::vector<float> points;
    for (size_t i = 0; i < NR_POINTS; ++i) {
        points.push_back(-90.0f + 180.0f * static_cast<float>(i) / NR_POINTS);
        const auto bits = static_cast<uint32_t>(i * 8191);
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        points.push_back(std::fpclassify(value) == FP_NORMAL ? value : 0.0f);
    }
    return points;
}

// Errors are relative to results above `least_result` and absolute below, so always absolute for
// infinity; `in_range` tells where the formula holds.
TEST(VectorMath, ExpSigmoidTanhAndRationalTanh) {
    constexpr double LEAST = FLT_MIN;
    const auto everywhere = [](float) { return true; };
    const struct {
        ElementwiseMode mode;
        double (*formula)(double);
        double least_result;
        bool (*in_range)(float);
        double error;
    } cases[] = {
        // Below the smallest normal number a result may be 0, which the absolute error allows.
        {ElementwiseMode::EXP, [](double x) { return std::exp(x); }, LEAST,
         [](float x) { return x <= 88.37626f; }, 1e-7},
        // Twice the smallest normal number has a reciprocal whose estimate is 0.
        {ElementwiseMode::SIGMOID, [](double x) { return 1 / (std::exp(-x) + 1); }, 4 * LEAST,
         everywhere, 2.5e-7},
        {ElementwiseMode::TANH, [](double x) { return std::tanh(x); }, INFINITY, everywhere,
         QUOTIENT_ERROR},
        // Behind the bound the cube overflows.
        {ElementwiseMode::RATIONAL_TANH,
         [](double x) { return x * (27 + x * x) / (27 + 9 * x * x); }, LEAST,
         [](float x) { return std::fabs(x) < 6.9e12f && (x == 0 || std::fabs(x) > 1e-36f); },
         QUOTIENT_ERROR},
    };
    const std::vector<float> points = sweep_points();
    for (const auto& c : cases) {
        const std::vector<float> results = evaluate(c.mode, points);
        for (size_t i = 0; i < points.size(); ++i) {
            if (!c.in_range(points[i]))
                continue;
            const double wanted = c.formula(static_cast<double>(points[i]));
            const double error = std::fabs(static_cast<double>(results[i]) - wanted);
            const double size = std::fabs(wanted) >= c.least_result ? std::fabs(wanted) : 1;
            ASSERT_LE(error, c.error * size)
                << kern::ModeTrait::of(c.mode).name << " of " << points[i];
        }
    }
}

// Out of line, so that nothing is known of the lanes. A compiler to which a sum cannot overflow
// compares without adding.
template <typename V>
[[gnu::noinline]] V sum_is_greater(V a, V b) {
    return kern::simd::greater(kern::simd::add(a, b), a);
}
template <typename V>
[[gnu::noinline]] V difference_is_greater(V a, V b) {
    return kern::simd::greater(a, kern::simd::sub(a, b));
}
template <typename V>
[[gnu::noinline]] V magnitude_is_negative(V a) {
    return kern::simd::greater(V{}, kern::simd::absolute(a));
}

template <typename T>
void expect_integers_wrap() {
    using Limits = std::numeric_limits<T>;
    const auto all = [](T lane) { return kern::simd::broadcast(lane); };
    const auto one = all(1);
    EXPECT_EQ(sum_is_greater(all(Limits::max()), one)[0], 0);
    EXPECT_EQ(sum_is_greater(all(1), one)[0], -1);
    EXPECT_EQ(difference_is_greater(all(Limits::min()), one)[0], 0);
    EXPECT_EQ(magnitude_is_negative(all(Limits::min()))[0], -1);
    EXPECT_EQ(kern::simd::mul(all(Limits::max()), all(2))[0], -2);
    EXPECT_EQ(kern::simd::add_product(all(Limits::max()), one, one)[0], Limits::min());
}

TEST(VectorMath, IntegersWrapAround) {
    expect_integers_wrap<int32_t>();
    expect_integers_wrap<int16_t>();
    expect_integers_wrap<int8_t>();
}

TEST(VectorMath, ClampsAndKeepsNan) {
    const auto of = [](ElementwiseMode mode, float x) {
        return evaluate(mode, std::vector<float>(4, x))[1];
    };
    const float at_limit = of(ElementwiseMode::EXP, 88.37626f);
    for (float x : {88.4f, 1000.0f, INFINITY})
        EXPECT_EQ(of(ElementwiseMode::EXP, x), at_limit);
    EXPECT_EQ(of(ElementwiseMode::EXP, -88.4f), 0.0f);
    EXPECT_EQ(of(ElementwiseMode::EXP, -INFINITY), 0.0f);
    EXPECT_EQ(of(ElementwiseMode::EXP, 0.0f), 1.0f);
    EXPECT_EQ(of(ElementwiseMode::SIGMOID, INFINITY), 1.0f);
    EXPECT_LE(of(ElementwiseMode::SIGMOID, -INFINITY), FLT_MIN);
    EXPECT_EQ(of(ElementwiseMode::TANH, INFINITY), 1.0f);
    EXPECT_NEAR(static_cast<double>(of(ElementwiseMode::TANH, -INFINITY)), -1, QUOTIENT_ERROR);
    for (auto mode : {ElementwiseMode::EXP, ElementwiseMode::SIGMOID, ElementwiseMode::TANH,
                      ElementwiseMode::RATIONAL_TANH})
        EXPECT_TRUE(std::isnan(of(mode, NAN)));
}

// Which place an element has must not show in its result. Only exp has another function for the
// rest behind the last whole vector, whose bits show that a vector form is what runs before it.
TEST(VectorMath, TheRestIsComputedAsTheBodyIs) {
    bool differ = false;
    for (float x : {-3.7f, 0.3f, 2.9f, -4.4f, 1.7f}) {
        for (auto mode :
             {ElementwiseMode::SIGMOID, ElementwiseMode::TANH, ElementwiseMode::RATIONAL_TANH}) {
            const std::vector<float> results = evaluate(mode, std::vector<float>(15, x));
            EXPECT_EQ(results, std::vector<float>(15, results[0]));
        }
        const std::vector<float> powers = evaluate(ElementwiseMode::EXP, std::vector<float>(15, x));
        EXPECT_EQ(std::vector<float>(powers.begin(), powers.begin() + 12),
                  std::vector<float>(12, powers[0]));
        EXPECT_EQ(std::vector<float>(powers.begin() + 12, powers.end()),
                  std::vector<float>(3, static_cast<float>(std::exp(static_cast<double>(x)))));
        differ |= powers[0] != powers[12];
    }
    EXPECT_TRUE(differ);
}

}  // namespace
}  // namespace kern_test
