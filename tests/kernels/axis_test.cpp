// Cumsum, ArgMax and ArgMin.
#include "kernels/arg_max.h"
#include "kernels/cumsum.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32(), I32 = DType::Int32();

void cumsum(const kern::Cumsum::Param& param, const Tensor& src, const Tensor& dst,
            kern::HandleLevel level = FALLBACK) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::Cumsum>();
    op->param() = param;
    EXPECT_EQ(op->workspace_in_bytes(src.layout(), dst.layout()), 0u);
    op->exec(src.raw(), dst.raw(), {});
}

template <typename Operator>
void arg_select(int32_t axis, const Tensor& src, const Tensor& dst,
                kern::HandleLevel level = FALLBACK) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param().axis = axis;
    EXPECT_EQ(op->workspace_in_bytes(src.layout(), dst.layout()), 0u);
    op->exec(src.raw(), dst.raw(), {});
}

Tensor& fill(Tensor& tensor, const std::vector<double>& values) {
    size_t next = 0;
    return tensor.fill([&] { return values[next++]; });
}

// Checks every element against the sum of those that its definition names.
TEST(Cumsum, EveryFormDtypeAndAxis) {
    std::mt19937 random(8);
    const TensorShape shape{3, 5, 4};
    const size_t inner[] = {20, 4, 1};
    for (DType dtype : number_types())
        for (int32_t axis : {0, 1, 2, -1, -3})
            for (bool exclusive : {false, true})
                for (bool reverse : {false, true})
                    for (kern::HandleLevel level : LEVELS) {
                        Tensor src(shape, dtype);
                        src.fill_integers(random, 0, 9);
                        const Tensor dst(shape, dtype);
                        cumsum({axis, exclusive, reverse}, src, dst, level);
                        const auto first_axis = static_cast<size_t>(axis < 0 ? axis + 3 : axis);
                        const size_t step = inner[first_axis], length = shape[first_axis];
                        for (size_t i = 0; i < shape.element_count(); ++i) {
                            const size_t own = i / step % length;
                            double wanted = 0;
                            for (size_t b = 0; b < length; ++b)
                                if (reverse ? b > own : b < own)
                                    wanted += src.get(i - own * step + b * step);
                            wanted += exclusive ? 0 : src.get(i);
                            ASSERT_EQ(dst.get(i), wanted) << dtype.name() << " axis " << axis;
                        }
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
    const size_t inner[] = {28, 4, 1};
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
                const size_t step = inner[axis];
                for (size_t i = 0; i < out.element_count(); ++i) {
                    const size_t start = i / step * step * shape[axis] + i % step;
                    size_t high = 0, low = 0;
                    const auto at = [&](size_t b) { return src.get(start + b * step); };
                    for (size_t b = shape[axis]; b-- > 0;) {
                        high = at(b) >= at(high) ? b : high;
                        low = at(b) <= at(low) ? b : low;
                    }
                    ASSERT_EQ(largest.get(i), high) << dtype.name() << " axis " << axis;
                    ASSERT_EQ(smallest.get(i), low) << dtype.name() << " axis " << axis;
                }
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
