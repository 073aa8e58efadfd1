// Cumsum, ArgMax and ArgMin: each line along an axis against the definition.
#include <algorithm>

#include "kernels/operators/arg_max.h"
#include "kernels/operators/cumsum.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32(), F16 = DType::Float16(), I8 = DType::Int8(),
            I32 = DType::Int32(), U8 = DType::Uint8();

// Runs over a line in place and from one tensor to another; sums keep the dtype after every step.
void expect_cumsum(const Tensor& src, const kern::Cumsum::Param& param, kern::HandleLevel level) {
    const Tensor dst(src.layout()), wanted(src.layout());
    const auto ndim = static_cast<int32_t>(src.layout().ndim);
    const auto axis = static_cast<size_t>(param.axis < 0 ? param.axis + ndim : param.axis);
    for_each_line(src.layout(), axis, [&](std::vector<size_t> line) {
        if (param.reverse)
            std::reverse(line.begin(), line.end());
        const Tensor sum({1}, src.layout().dtype);
        sum.set(0, 0);
        for (size_t i : line) {
            wanted.set(i, sum.get(0));
            sum.set(0, sum.get(0) + src.get(i));
            if (!param.exclusive)
                wanted.set(i, sum.get(0));
        }
    });
    EXPECT_EQ(run_operator<kern::Cumsum>(level, param, src, dst), 0u);
    EXPECT_EQ(dst.bytes(), wanted.bytes())
        << src.layout().dtype.name() << " axis " << param.axis << " " << level_name(level);
    run_operator<kern::Cumsum>(level, param, src, src);
    EXPECT_EQ(src.bytes(), wanted.bytes());
}

TEST(Cumsum, EveryFormDtypeAndAxis) {
    const kern::Cumsum::Param by_default;
    EXPECT_TRUE(by_default.axis == -1 && by_default.exclusive && !by_default.reverse);
    std::mt19937 random(8);
    for (DType dtype : number_types())
        for (int32_t axis : {0, 1, 2, -1, -3})
            for (int form = 0; form < 4; ++form)
                for (kern::HandleLevel level : LEVELS) {
                    Tensor src({3, 5, 4}, dtype);
                    // Sums of bytes wrap, and those of halves round.
                    src.fill_integers(random, 0, dtype == F16 ? 2047 : 127);
                    expect_cumsum(src, {axis, (form & 1) != 0, (form & 2) != 0}, level);
                }
}

template <typename Operator>
double best_of(const Tensor& src, kern::HandleLevel level) {
    const Tensor index({1}, I32);
    EXPECT_EQ(run_operator<Operator>(level, {0}, src, index), 0u);
    return index.get(0);
}

TEST(ArgSelect, FirstOfTheBestOnEveryAxisAndDtype) {
    std::mt19937 random(9);
    const TensorShape shape{3, 7, 4};
    for (DType dtype : number_types())
        for (size_t axis = 0; axis < 3; ++axis)
            for (kern::HandleLevel level : LEVELS) {
                Tensor src(shape, dtype);
                src.fill_integers(random, dtype == U8 ? 1 : -2, 2);  // many ties
                TensorShape out = shape;
                out[axis] = 1;
                const Tensor largest(out, I32), smallest(out, I32);
                const kern::ArgSelect::Param param{static_cast<int32_t>(axis)};
                run_operator<kern::ArgMax>(level, param, src, largest);
                run_operator<kern::ArgMin>(level, param, src, smallest);
                size_t nr = 0;
                for_each_line(shape, axis, [&](const std::vector<size_t>& line) {
                    const auto less = [&](size_t a, size_t b) { return src.get(a) < src.get(b); };
                    const auto [first, last] = std::pair(line.begin(), line.end());
                    EXPECT_EQ(largest.get(nr), std::max_element(first, last, less) - first);
                    EXPECT_EQ(smallest.get(nr++), std::min_element(first, last, less) - first)
                        << dtype.name() << " axis " << axis;
                });
            }
}

TEST(ArgSelect, ExtremesAndNan) {
    const struct {
        DType dtype;
        std::vector<double> line;
        double largest, smallest;
    } cases[] = {
        {F32, {1, 3, 3}, 1, 0},
        {F32, {NAN, NAN}, -1, -1},
        {F32, {NAN, 2, NAN, 1}, 1, 3},
        {F32, {-INFINITY, -INFINITY}, -1, 0},
        {F32, {INFINITY, 3e38}, 0, 1},
        {F32, {-0.0, 0}, 0, 0},
        {F16, {-65504, -65504}, -1, 0},
        {F16, {65504, -65504, INFINITY}, 2, 1},
        {I8, {-128, -128}, -1, 0},
        {U8, {255, 255, 0}, 0, 2},
        {U8, {0, 0}, -1, 0},
        {I32, {INT32_MAX, INT32_MIN}, 0, 1},
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS) {
            Tensor src({c.line.size()}, c.dtype);
            src.fill_with(c.line);
            EXPECT_EQ(best_of<kern::ArgMax>(src, level), c.largest) << c.line[0];
            EXPECT_EQ(best_of<kern::ArgMin>(src, level), c.smallest) << c.line[0];
        }
}

}  // namespace
}  // namespace kern_test
