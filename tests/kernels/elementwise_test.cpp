#include "kernels/elementwise.h"

#include <functional>

#include "kernels/fallback/elementwise.h"
#include "tests/kernels/elementwise_reference.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;
using kern::ModeTrait;

constexpr uint32_t NR_MODES = 44;

bool is_float(DType dtype) {
    return dtype.category() == kern::DTypeCategory::FLOAT;
}

void run(kern::HandleLevel level, uint32_t mode, const std::vector<RawTensor>& inputs,
         const RawTensor& output) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::Elementwise>();
    op->param().mode = static_cast<ElementwiseMode>(mode);
    op->exec(inputs, output);
}

// The input's element that belongs to a row-major position of the output.
double broadcast_get(const Tensor& input, const TensorShape& output, size_t position) {
    const TensorLayout& layout = input.layout();
    size_t index = 0, scale = 1;
    for (size_t from_right = 1; from_right <= output.ndim; ++from_right) {
        const size_t coordinate = position % output[output.ndim - from_right];
        position /= output[output.ndim - from_right];
        if (from_right > layout.ndim)
            continue;
        const size_t length = layout[layout.ndim - from_right];
        index += length == 1 ? 0 : coordinate * scale;
        scale *= length;
    }
    return input.get(index);
}

// Layouts of the inputs, cyclically used where a mode has more of them.
struct Form {
    TensorShape output;
    std::vector<TensorLayout> inputs;
};

std::vector<Form> forms(DType t) {
    const auto dense = [t](const TensorShape& shape) { return TensorLayout(shape, t); };
    return {
        {{37}, {dense({37})}},
        {{3, 13}, {dense({3, 13}), dense({1})}},
        {{3, 13}, {dense({1}), dense({3, 13})}},
        {{3, 13}, {dense({3, 13}), dense({1, 13})}},
        {{3, 13}, {dense({13}), dense({3, 13})}},
        {{3, 13}, {dense({3, 13}), dense({3, 1})}},
        {{3, 13}, {dense({3, 1}), dense({3, 13})}},
        {{3, 1}, {dense({3, 1}), dense({1, 1})}},
        {{2, 3, 5}, {dense({2, 3, 5}), dense({3, 1})}},
        {{2, 3, 5}, {dense({1, 3, 1}), dense({2, 3, 5})}},
        {{2, 3, 4}, {dense({2, 1, 1}), dense({2, 3, 4})}},
        {{2, 3, 4}, {dense({2, 1, 4}), dense({2, 3, 4})}},
        {{2, 3, 2, 5}, {dense({2, 3, 2, 5}), dense({3, 1, 5})}},
        {{2, 3, 2, 5}, {dense({2, 1, 2, 1}), dense({2, 3, 2, 5})}},
        {{3, 4}, {dense({3, 1}), dense({4})}},
        {{3, 4}, {dense({3, 4}), dense({4}), dense({1, 4}), dense({3, 4})}},
        {{3, 4}, {dense({4}), dense({3, 4}), dense({3, 4}), dense({1, 4})}},
        {{3, 4}, {strided({3, 4}, {1, 3}, t), dense({3, 4})}},
        {{3, 4}, {strided({3, 4}, {9, 2}, t), strided({1, 1}, {5, 5}, t)}},
        {{12}, {strided({12}, {3}, t), strided({12}, {-1}, t)}},
        {{1, 1}, {dense({1}), dense({1, 1})}},
    };
}

// Values whose products of three fit in 32 bits; divisors are not 0, shift counts small or huge.
void fill_inputs(std::vector<std::unique_ptr<Tensor>>& inputs, uint32_t mode, DType dtype,
                 std::mt19937& random) {
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (is_float(dtype)) {
            inputs[i]->fill_uniform(random, -1.5f, 1.5f);
        } else if (dtype == DType::Uint8()) {
            inputs[i]->fill_integers(random, i == 1 ? 1 : 0, mode == 32 || mode == 33 ? 40 : 255);
        } else {
            const int limit = dtype == DType::Int8() ? 127 : 1000;
            std::uniform_int_distribution<int> values(-limit, limit);
            const bool divisor = i == 1 && (mode == 17 || mode == 20);
            const bool count = i == 1 && (mode == 32 || mode == 33);
            inputs[i]->fill([&] {
                const int value = count ? values(random) % 40 : values(random);
                return divisor && value == 0 ? 1 : value;
            });
        }
    }
}

// The modes whose vector forms approximate; vector_math_test.cpp has their errors.
bool is_approximate(kern::HandleLevel level, uint32_t mode, DType dtype) {
    static const std::set<uint32_t> MODES = {6, 12, 14, 40};
    return level == ARMV7 && dtype == DType::Float32() && MODES.count(mode) != 0;
}

// `units` is the error that is allowed in units of the last place.
void expect_reference(uint32_t mode, const std::vector<std::unique_ptr<Tensor>>& inputs,
                      const Tensor& output, double units) {
    const DType dtype = output.layout().dtype;
    for (size_t i = 0; i < output.layout().element_count(); ++i) {
        double v[4] = {};
        for (size_t n = 0; n < inputs.size(); ++n)
            v[n] = broadcast_get(*inputs[n], output.layout(), i);
        const double got = output.get(i);
        if (is_float(dtype)) {
            const double wanted = reference_float(mode, v[0], v[1], v[2], v[3]);
            const double unit = dtype == DType::Float32() ? 0x1p-23 : 0x1p-10;
            // Cancelling forms lose some units of their terms, which are below 8 here.
            const double tolerance = unit * units * (4 + std::fabs(wanted));
            ASSERT_TRUE(std::isnan(wanted) ? std::isnan(got) : std::fabs(got - wanted) <= tolerance)
                << "mode " << mode << " " << dtype.name() << " of " << v[0] << " " << v[1] << " "
                << v[2] << ": " << got << " instead of " << wanted;
        } else {
            const auto word = [&](int n) { return static_cast<int64_t>(v[n]); };
            const int64_t exact = reference_int(mode, static_cast<int>(dtype.element_bytes() * 8),
                                                word(0), word(1), word(2), word(3));
            with_type(dtype, [&](auto tag) {
                if constexpr (std::is_integral<decltype(tag)>::value) {
                    ASSERT_EQ(output.at<decltype(tag)>(i), static_cast<decltype(tag)>(exact))
                        << "mode " << mode << " " << dtype.name() << " of " << v[0] << " " << v[1];
                }
            });
        }
    }
}

class ElementwiseModes : public testing::TestWithParam<uint32_t> {};

TEST_P(ElementwiseModes, EveryLevelDtypeAndFormGivesTheFormula) {
    const uint32_t mode = GetParam();
    const ModeTrait& trait = ModeTrait::of(static_cast<ElementwiseMode>(mode));
    ASSERT_EQ(trait.accepts(kern::DTypeCategory::FLOAT), takes_float(mode));
    ASSERT_EQ(trait.accepts(kern::DTypeCategory::INTEGER), takes_int(mode));
    EXPECT_EQ(trait.commutable, is_commutable(mode));
    std::mt19937 random(mode);
    for (DType dtype : number_types()) {
        if (!(is_float(dtype) ? takes_float(mode) : takes_int(mode)))
            continue;
        for (const Form& form : forms(dtype)) {
            std::vector<std::unique_ptr<Tensor>> inputs;
            std::vector<RawTensor> raw_inputs;
            TensorShape shape = form.output;
            for (uint32_t i = 0; i < trait.arity; ++i) {
                inputs.push_back(std::make_unique<Tensor>(form.inputs[i % form.inputs.size()]));
                raw_inputs.push_back(inputs.back()->raw());
            }
            fill_inputs(inputs, mode, dtype, random);
            const Tensor naive(shape, dtype);
            run(NAIVE, mode, raw_inputs, naive.raw());
            expect_reference(mode, inputs, naive, 2);
            for (kern::HandleLevel level : {FALLBACK, ARMV7}) {
                if (HasFatalFailure())
                    return;
                const Tensor output(shape, dtype);
                run(level, mode, raw_inputs, output.raw());
                if (is_approximate(level, mode, dtype)) {
                    expect_reference(mode, inputs, output, 64);
                    continue;
                }
                ASSERT_EQ(naive.bytes(), output.bytes())
                    << level_name(level) << ", mode " << mode << " " << dtype.name() << " "
                    << shape.to_string();
            }
            if (raw_inputs[0].layout.is_dense() && raw_inputs[0].layout.same_shape(shape)) {
                run(FALLBACK, mode, raw_inputs, raw_inputs[0]);
                ASSERT_EQ(inputs[0]->bytes(), naive.bytes()) << "in place, mode " << mode;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ElementwiseModes, testing::Range(0u, NR_MODES),
                         [](const testing::TestParamInfo<uint32_t>& mode) {
                             return ModeTrait::of(static_cast<ElementwiseMode>(mode.param)).name;
                         });

TEST(Elementwise, ExtremeValues) {
    constexpr int32_t LEAST = INT32_MIN, MOST = INT32_MAX;
    const struct {
        uint32_t mode;
        DType dtype;
        double x, y, result;
    } cases[] = {
        {0, DType::Float32(), NAN, 0, NAN},
        {1, DType::Int32(), LEAST, 0, LEAST},
        {1, DType::Int8(), -128, 0, -128},
        {11, DType::Int32(), LEAST, 0, LEAST},
        {12, DType::Float32(), -200, 0, 0},
        {12, DType::Float32(), 200, 0, 1},
        {15, DType::Float32(), NAN, 2, -2},
        {16, DType::Int32(), MOST, 1, LEAST},
        {17, DType::Int32(), -7, 2, -3},
        {17, DType::Int32(), LEAST, -1, LEAST},
        {17, DType::Int8(), -128, -1, -128},
        {17, DType::Float32(), -7, 2, -4},
        {18, DType::Float32(), NAN, 5, 5},
        {18, DType::Float32(), 5, NAN, NAN},
        {19, DType::Float32(), NAN, 5, 5},
        {19, DType::Float32(), 5, NAN, NAN},
        {20, DType::Int32(), LEAST, -1, 0},
        {21, DType::Int32(), LEAST, LEAST, 0},
        {21, DType::Int16(), -32768, -32768, 0},
        {24, DType::Int32(), LEAST, 1, MOST},
        {24, DType::Uint8(), 0, 1, 255},
        {25, DType::Float32(), NAN, 2, 0},
        {27, DType::Float16(), 60000, 0.5, INFINITY},
        {28, DType::Float32(), 100, 100, 100.693147f},
        // The 32-bit exponential is one unit off here.
        {28, DType::Float32(), 0, -67.25, 6.21864949e-30f},
        {32, DType::Int32(), 1, 31, LEAST},
        {32, DType::Int32(), -1, 32, 0},
        {32, DType::Int32(), 1, -1, 0},
        {33, DType::Int32(), LEAST, 32, -1},
        {33, DType::Int32(), -8, 1, -4},
        {37, DType::Float32(), NAN, 0, NAN},
        {42, DType::Float32(), 0.5, 0, 1},
        {42, DType::Float32(), 2.5, 0, 3},
        {42, DType::Float32(), -2.5, 0, -3},
        {43, DType::Int32(), LEAST, LEAST, MOST},
        {43, DType::Int16(), -32768, -32768, 32767},
        {43, DType::Int8(), -128, -128, 127},
        {43, DType::Int32(), LEAST, MOST, -static_cast<double>(MOST)},
    };
    for (const auto& c : cases) {
        const uint32_t arity = ModeTrait::of(static_cast<ElementwiseMode>(c.mode)).arity;
        for (kern::HandleLevel level : LEVELS) {
            Tensor x({20}, c.dtype), y({20}, c.dtype), out({20}, c.dtype);
            x.fill([&] { return c.x; });
            y.fill([&] { return c.y; });
            run(level, c.mode,
                arity == 1 ? std::vector<RawTensor>{x.raw()}
                           : std::vector<RawTensor>{x.raw(), y.raw()},
                out.raw());
            // Vectors may give a denormal number, or flush it, where the formula gives 0.
            for (size_t i : Sizes{0, 19})
                EXPECT_TRUE(out.get(i) == c.result ||
                            (std::isnan(out.get(i)) && std::isnan(c.result)) ||
                            (c.mode == 12 && std::fabs(out.get(i) - c.result) < 0x1p-126))
                    << "mode " << c.mode << " of " << c.x << ", " << c.y << ": " << out.get(i);
        }
    }
}

// Broadcasts that the fallback level walks by rows, and those that it leaves to the naive level.
TEST(Elementwise, BinaryFormsOfTheFallbackLevel) {
    struct Probe final : kern::fallback::ElementwiseImpl {
        using kern::fallback::ElementwiseImpl::ElementwiseImpl;
        BinaryRowKernel binary_row_kernel(kern::DTypeEnum dtype) const override {
            walks_rows = true;
            return kern::fallback::ElementwiseImpl::binary_row_kernel(dtype);
        }
        mutable bool walks_rows = false;
    };
    const struct {
        TensorShape x, y;
        bool walks_rows;
    } cases[] = {
        {{2, 3, 4}, {2, 3, 4}, true}, {{2, 3, 4}, {1}, true},        {{1}, {2, 3, 4}, true},
        {{2, 3, 4}, {4}, true},       {{2, 3, 4}, {3, 1}, true},     {{2, 3, 4}, {2, 1, 1}, true},
        {{3, 1}, {2, 3, 4}, true},    {{2, 3, 4}, {2, 1, 4}, false}, {{3, 1}, {1, 4}, false},
    };
    const auto handle = make_handle(FALLBACK);
    for (const auto& item : cases) {
        const Tensor x(item.x, DType::Float32()), y(item.y, DType::Float32());
        const Tensor output(kern::Elementwise::deduce_output_shape({item.x, item.y}),
                            DType::Float32());
        Probe probe(handle.get());
        probe.param().mode = ElementwiseMode::ADD;
        probe.exec({x.raw(), y.raw()}, output.raw());
        EXPECT_EQ(probe.walks_rows, item.walks_rows) << item.x.to_string() << item.y.to_string();
    }
}

TEST(Elementwise, OutputShape) {
    const auto deduce = &kern::Elementwise::deduce_output_shape;
    EXPECT_EQ(deduce({{2, 1, 3}, {4, 1}, {1}}).to_string(), "{2,4,3}");
    EXPECT_EQ(deduce({{1, 3}, {0, 3}}).to_string(), "{0,3}");
    EXPECT_DEATH(deduce({{2, 3}, {2}}), "");
}

TEST(Elementwise, WrongArgumentsStopTheProcess) {
    const DType f = DType::Float32(), i = DType::Int32();
    const Tensor x({2, 3}, f), column({2, 1}, f), n({2, 3}, i), empty({0, 3}, f);
    const uint32_t add = 16;
    EXPECT_DEATH(run(FALLBACK, add, {x.raw()}, x.raw()), "");
    EXPECT_DEATH(run(FALLBACK, add, {x.raw(), n.raw()}, x.raw()), "");
    EXPECT_DEATH(run(FALLBACK, add, {x.raw(), x.raw()}, n.raw()), "");
    EXPECT_DEATH(run(FALLBACK, add, {x.raw(), column.raw()}, column.raw()), "");
    EXPECT_DEATH(run(FALLBACK, 2, {n.raw()}, n.raw()), "");
    EXPECT_DEATH(run(FALLBACK, 32, {x.raw(), x.raw()}, x.raw()), "");
    EXPECT_DEATH(run(FALLBACK, 44, {x.raw(), x.raw()}, x.raw()), "");
    // Of two fused products, the pairs of factors must match.
    EXPECT_DEATH(run(FALLBACK, 36, {x.raw(), column.raw(), x.raw(), x.raw()}, x.raw()), "");
    for (kern::HandleLevel level : LEVELS) {
        EXPECT_DEATH(run(level, add, {empty.raw(), empty.raw()}, empty.raw()), "");
        Tensor zero({2, 3}, i);
        zero.fill([] { return 0; });
        EXPECT_DEATH(run(level, 17, {n.raw(), zero.raw()}, n.raw()), "");
        EXPECT_DEATH(run(level, 20, {n.raw(), zero.raw()}, n.raw()), "");
    }
}

}  // namespace
}  // namespace kern_test
