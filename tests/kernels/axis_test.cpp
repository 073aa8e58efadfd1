// Cumsum, ArgMax and ArgMin.
#include <algorithm>

#include "kernels/arg_max.h"
#include "kernels/cumsum.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32(), I32 = DType::Int32();

void cumsum(const kern::Cumsum::Param& param, const Tensor& src, const Tensor& dst,
            kern::HandleLevel level = FALLBACK) {
    EXPECT_EQ(run_operator<kern::Cumsum>(level, param, src, dst), 0u);
}

template <typename Operator>
void arg_select(int32_t axis, const Tensor& src, const Tensor& dst,
                kern::HandleLevel level = FALLBACK) {
    EXPECT_EQ(run_operator<Operator>(level, kern::ArgSelect::Param{axis}, src, dst), 0u);
}

Tensor& fill(Tensor& tensor, const std::vector<double>& values) {
    size_t next = 0;
    return tensor.fill([&] { return values[next++]; });
}

// Checks every element against the sum of those that its definition names.
TEST(Cumsum, EveryFormDtypeAndAxis) {
    std::mt19937 random(8);
    const TensorShape shape{3, 5, 4};
    for (DType dtype : number_types())
        for (int32_t axis : {0, 1, 2, -1, -3})
            for (bool exclusive : {false, true})
                for (bool reverse : {false, true})
                    for (kern::HandleLevel level : LEVELS) {
                        Tensor src(shape, dtype);
                        src.fill_integers(random, 0, 9);
                        const Tensor dst(shape, dtype);
                        cumsum({axis, exclusive, reverse}, src, dst, level);
                        const auto counted = static_cast<size_t>(axis < 0 ? axis + 3 : axis);
                        for_each_line(shape, counted, [&](std::vector<size_t> line) {
                            if (reverse)
                                std::reverse(line.begin(), line.end());
                            double sum = 0;
                            for (size_t i : line) {
                                const double after = sum + src.get(i);
                                EXPECT_EQ(dst.get(i), exclusive ? sum : after)
                                    << dtype.name() << " axis " << axis;
                                sum = after;
                            }
                        });
                    }
}

TEST(Cumsum, EdgeCases) {
    Tensor one({1}, F32), result({1}, F32);
    one.set(0, 5);
    cumsum({}, one, result);
    EXPECT_EQ(result.get(0), 0);

    Tensor bytes({3}, DType::Int8()), halves({3}, DType::Float16());
    fill(bytes, {100, 100, 1});
    fill(halves, {2048, 1, 1});
    cumsum({0, false, false}, bytes, bytes);  // in place
    EXPECT_EQ(bytes.get(1), -56);
    EXPECT_EQ(bytes.get(2), -55);
    cumsum({0, false, false}, halves, halves);
    EXPECT_EQ(halves.get(2), 2048);  // rounded at every step

    const Tensor src({2, 3}, F32), dst({2, 3}, F32);
    EXPECT_DEATH(cumsum({2, true, false}, src, dst), "");
    EXPECT_DEATH(cumsum({-3, true, false}, src, dst), "");
    EXPECT_DEATH(cumsum({0, true, false}, src, Tensor({2, 3}, I32)), "");
    EXPECT_DEATH(cumsum({0, true, false}, src, Tensor({3, 2}, F32)), "");
    const Tensor loose(strided({2, 3}, {4, 1}, F32)), quantised({2}, DType::QuantizedS8(1));
    EXPECT_DEATH(cumsum({0, true, false}, loose, loose), "");
    EXPECT_DEATH(cumsum({0, true, false}, quantised, quantised), "");
}

TEST(ArgSelect, FirstOfTheBestOnEveryAxisAndDtype) {
    std::mt19937 random(9);
    const TensorShape shape{3, 7, 4};
    for (DType dtype : number_types())
        for (size_t axis = 0; axis < 3; ++axis)
            for (kern::HandleLevel level : LEVELS) {
                Tensor src(shape, dtype);
                src.fill_integers(random, dtype == DType::Uint8() ? 1 : -2, 2);  // many ties
                TensorShape out = shape;
                out[axis] = 1;
                const Tensor largest(out, I32), smallest(out, I32);
                arg_select<kern::ArgMax>(static_cast<int32_t>(axis), src, largest, level);
                arg_select<kern::ArgMin>(static_cast<int32_t>(axis), src, smallest, level);
                size_t nr = 0;
                for_each_line(shape, axis, [&](const std::vector<size_t>& line) {
                    std::vector<double> values;
                    for (size_t i : line)
                        values.push_back(src.get(i));
                    const auto place = [&](auto found) { return found - values.begin(); };
                    EXPECT_EQ(largest.get(nr),
                              place(std::max_element(values.begin(), values.end())));
                    EXPECT_EQ(smallest.get(nr++),
                              place(std::min_element(values.begin(), values.end())))
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
        {DType::Float16(), {-65504, -65504}, -1, 0},
        {DType::Float16(), {65504, -65504, INFINITY}, 2, 1},
        {DType::Int8(), {-128, -128}, -1, 0},
        {DType::Uint8(), {255, 255, 0}, 0, 2},
        {DType::Uint8(), {0, 0}, -1, 0},
        {I32, {INT32_MAX, INT32_MIN}, 0, 1},
    };
    for (const auto& c : cases) {
        Tensor src({c.line.size()}, c.dtype);
        fill(src, c.line);
        const Tensor index({1}, I32);
        arg_select<kern::ArgMax>(0, src, index);
        EXPECT_EQ(index.get(0), c.largest) << c.dtype.name() << " " << c.line[0];
        arg_select<kern::ArgMin>(0, src, index);
        EXPECT_EQ(index.get(0), c.smallest) << c.dtype.name() << " " << c.line[0];
    }
    const Tensor src({2, 3}, F32), dst({2, 1}, I32);
    EXPECT_DEATH(arg_select<kern::ArgMax>(2, src, dst), "");
    EXPECT_DEATH(arg_select<kern::ArgMin>(-1, src, dst), "");
    EXPECT_DEATH(arg_select<kern::ArgMax>(0, src, dst), "");
    EXPECT_DEATH(arg_select<kern::ArgMax>(1, src, Tensor({2, 1}, F32)), "");
    EXPECT_DEATH(arg_select<kern::ArgMin>(1, Tensor({2, 3}, DType::QuantizedS8(1)), dst), "");
    EXPECT_DEATH(arg_select<kern::ArgMin>(1, Tensor(strided({2, 3}, {4, 1}, F32)), dst), "");
}

}  // namespace
}  // namespace kern_test
