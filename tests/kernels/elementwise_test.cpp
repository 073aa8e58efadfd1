// Every elementwise mode on every dtype and in every form of broadcast: naive gives the formula,
// and the other levels give what naive does.
#include "kernels/operators/elementwise.h"

#include <set>

#include "kernels/types/image_format.h"
#include "tests/kernels/elementwise_reference.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;
using kern::ModeTrait;
using Tensors = std::vector<std::unique_ptr<Tensor>>;

const std::set<uint32_t> COMMUTABLE_MODES = {16, 18, 19, 21, 28, 31, 37, 38, 39, 43};

bool is_float(DType dtype) {
    return dtype.category() == kern::DTypeCategory::FLOAT;
}

bool takes(uint32_t mode, DType dtype) {
    return is_float(dtype) ? float_formulas().count(mode) : int_formulas().count(mode);
}

void run(kern::HandleLevel level, uint32_t mode, const std::vector<RawTensor>& inputs,
         const RawTensor& output) {
    run_elementwise<kern::Elementwise>(level, static_cast<ElementwiseMode>(mode), inputs, output);
}

// Layouts of the inputs, cyclically used where a mode has more of them.
struct Form {
    TensorShape output;
    std::vector<TensorLayout> inputs;
    uint32_t arity = 0;  // only modes with so many inputs; 0: all
    const kern::TensorFormat* format = kern::default_format();
};

std::vector<Form> forms(DType t, size_t n) {
    const auto dense = [t](const TensorShape& shape) { return TensorLayout(shape, t); };
    const auto steps = static_cast<ptrdiff_t>(2 * n + 1);
    const TensorLayout matrix = dense({3, n}), image = dense({2, 3, n}), row = dense({n}),
                       column = dense({3, 1}), one = dense({1});
    // Rows of whole pixels, without padding.
    const TensorShape pixels{2, 3, n, 4};
    const kern::TensorFormat* format = kern::image_pack4_format(2, 4);
    const TensorLayout picture(pixels, t, format), pixel({1, 1, 1, 4}, t, format);
    return {
        {{n}, {row}},
        {{3, n}, {matrix, one}},
        {{3, n}, {one, matrix}},
        {{3, n}, {dense({1, 1}), matrix}},
        {{3, n}, {matrix, dense({1, n})}},
        {{3, n}, {row, matrix}},
        {{3, n}, {matrix, column}},
        {{3, n}, {column, matrix}},
        {{3, 1}, {column, dense({1, 1})}},
        {{2, 3, n}, {image, column}},
        {{2, 3, n}, {dense({1, 3, 1}), image}},
        {{2, 3, n}, {dense({2, 1, 1}), image}},
        {{2, 3, n}, {dense({2, 1, n}), image}},
        {{2, 3, 2, n}, {dense({2, 3, 2, n}), dense({3, 1, n})}},
        {{2, 3, 2, n}, {dense({2, 1, 2, 1}), dense({2, 3, 2, n})}},
        {{3, n}, {column, row}},
        {{3, n}, {matrix, row, dense({1, n}), matrix}},
        {{3, n}, {row, matrix, matrix, dense({1, n})}},
        {{3, n}, {matrix, matrix, matrix}, 3},
        {{3, n}, {one, matrix, matrix}, 3},
        {{3, n}, {matrix, dense({1, 1}), matrix}, 3},
        {{3, n}, {one, one, matrix}, 3},
        {{3, n}, {matrix, column, matrix}, 3},
        {{3, n}, {matrix, matrix, one}, 3},
        {{3, n}, {strided({3, n}, {1, 3}, t), matrix}},
        {{3, n}, {strided({3, n}, {steps, 2}, t), strided({1, 1}, {5, 5}, t)}},
        {{n}, {strided({n}, {3}, t), strided({n}, {-1}, t)}},
        {{1, 1}, {one, dense({1, 1})}},
        {pixels, {picture, pixel}, 2, format},
        {pixels, {pixel, picture}, 2, format},
        {pixels, {picture, {{1, 3, 1, 4}, t, format}}, 2, format},
    };
}

// Values whose products of three fit in 32 bits; divisors are not 0, shift counts small or huge.
void fill_moderately(const Tensors& inputs, uint32_t mode, DType dtype, std::mt19937& random) {
    for (size_t i = 0; i < inputs.size(); ++i) {
        const bool divisor = i == 1 && (mode == 17 || mode == 20);
        const bool count = i == 1 && (mode == 32 || mode == 33);
        if (is_float(dtype)) {
            inputs[i]->fill_uniform(random, -1.5f, 1.5f);
        } else if (dtype == DType::Uint8()) {
            inputs[i]->fill_integers(random, i == 1 ? 1 : 0, count ? 40 : 255);
        } else {
            const int limit = dtype == DType::Int8() ? 127 : 1000;
            std::uniform_int_distribution<int> values(-limit, limit);
            inputs[i]->fill([&] {
                const int value = count ? values(random) % 40 : values(random);
                return divisor && value == 0 ? 1 : value;
            });
        }
    }
}

// Integers of the whole range; floats with what is special among them, but no denormals, which the
// vectors of 32-bit Arm flush.
void fill_with_extremes(const Tensors& inputs, DType dtype, std::mt19937& random) {
    const double special[] = {NAN, INFINITY, -INFINITY, 0.0, -0.0, 1.0, -1.0, 1e30, -1e30};
    for (const auto& input : inputs)
        input->fill([&] {
            const auto value = static_cast<double>(static_cast<int32_t>(random()));
            if (is_float(dtype))
                return random() % 4 == 0 ? special[random() % 9] : value / 0x1p24;
            if (random() % 8 == 0)
                return -0x1p31;  // the smallest value; of narrow types its low bits are 0
            return random() % 8 == 0 ? static_cast<double>(random() % 2 ? INT32_MAX : -32896)
                                     : value;
        });
}

// The modes whose vector forms approximate; vector_math_test.cpp has their errors.
bool is_approximate(kern::HandleLevel level, uint32_t mode, DType dtype) {
    static const std::set<uint32_t> MODES = {6, 12, 14, 40};
    return level == ARMV7 && dtype == DType::Float32() && MODES.count(mode) != 0;
}

// Whether the formula does not overflow on any values.
bool fits_64_bits(uint32_t mode, DType dtype) {
    return dtype != DType::Int32() || (mode != 23 && mode != 26 && mode != 36);
}

// `units` is the error that is allowed in units of the last place.
void expect_reference(uint32_t mode, const Tensors& inputs, const Tensor& output, double units) {
    const DType dtype = output.layout().dtype;
    for (size_t i = 0; i < output.layout().element_count(); ++i) {
        double v[4] = {};
        for (size_t n = 0; n < inputs.size(); ++n)
            v[n] = broadcast_get(*inputs[n], output.layout(), i);
        const double got = output.get(i);
        if (is_float(dtype)) {
            const double wanted = float_formulas().at(mode)({v[0], v[1], v[2], v[3]});
            const double unit = dtype == DType::Float32() ? 0x1p-23 : 0x1p-10;
            // Cancelling forms lose some units of their terms, which are below 8 here.
            const double tolerance = unit * units * (4 + std::fabs(wanted));
            ASSERT_TRUE(got == wanted || (std::isnan(got) && std::isnan(wanted)) ||
                        (std::isfinite(wanted) && std::fabs(got - wanted) <= tolerance))
                << "mode " << mode << " " << dtype.name() << " of " << v[0] << " " << v[1] << " "
                << v[2] << ": " << got << " instead of " << wanted;
        } else {
            const auto word = [&](int n) { return static_cast<int64_t>(v[n]); };
            const int64_t exact = int_formulas().at(mode)(
                {word(0), word(1), word(2), word(3), static_cast<int>(dtype.element_bytes() * 8)});
            const Tensor wanted({1}, dtype);
            wanted.set(0, static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(exact))));
            ASSERT_EQ(got, wanted.get(0))
                << "mode " << mode << " " << dtype.name() << " of " << v[0] << " " << v[1];
        }
    }
}

// The same numbers and signs; with `near`, within some parts in 10^5.
void expect_same(uint32_t mode, const Tensor& wanted, const Tensor& got, bool near) {
    for (size_t i = 0; i < wanted.layout().element_count(); ++i) {
        const double w = wanted.get(i), g = got.get(i);
        ASSERT_TRUE((w == g && std::signbit(w) == std::signbit(g)) ||
                    (std::isnan(w) && std::isnan(g)) ||
                    (near && std::fabs(w - g) <= 3e-5 * (1 + std::fabs(w))))
            << "mode " << mode << " " << wanted.layout().dtype.name() << " "
            << wanted.layout().to_string() << " at " << i << ": " << g << " instead of " << w;
    }
}

// Every level, into memory of its own and in place of each input that allows it.
void expect_naive_at_every_level(uint32_t mode, const Tensors& inputs, const Tensor& naive) {
    std::vector<RawTensor> raw;
    for (const auto& input : inputs)
        raw.push_back(input->raw());
    for (kern::HandleLevel level : {FALLBACK, ARMV7}) {
        const bool near = is_approximate(level, mode, naive.layout().dtype);
        const Tensor output(naive.layout());
        run(level, mode, raw, output.raw());
        expect_same(mode, naive, output, near);
        for (size_t i = 0; i < raw.size() && !testing::Test::HasFatalFailure(); ++i) {
            if (!raw[i].layout.is_dense() || !raw[i].layout.same_shape(naive.layout()))
                continue;
            const std::string saved = inputs[i]->bytes();
            run(level, mode, raw, raw[i]);
            expect_same(mode, naive, *inputs[i], near);
            std::memcpy(raw[i].raw_ptr, saved.data(), saved.size());
        }
    }
}

class ElementwiseModes : public testing::TestWithParam<uint32_t> {};

TEST_P(ElementwiseModes, EveryLevelDtypeAndFormGivesTheFormula) {
    const uint32_t mode = GetParam();
    const ModeTrait& trait = ModeTrait::of(static_cast<ElementwiseMode>(mode));
    EXPECT_EQ(trait.commutable, COMMUTABLE_MODES.count(mode) != 0);
    const bool divides = mode == 17 || mode == 20;
    std::mt19937 random(mode);
    for (DType dtype : number_types()) {
        ASSERT_EQ(trait.accepts(dtype.category()), takes(mode, dtype));
        if (!takes(mode, dtype))
            continue;
        for (size_t n : Sizes{1, 2, 3, 4, 5, 8, 13, 16, 17, 33})
            for (const Form& form : forms(dtype, n)) {
                if (form.arity != 0 && form.arity != trait.arity)
                    continue;
                Tensors inputs;
                std::vector<RawTensor> raw;
                for (uint32_t i = 0; i < trait.arity; ++i) {
                    inputs.push_back(std::make_unique<Tensor>(form.inputs[i % form.inputs.size()]));
                    raw.push_back(inputs.back()->raw());
                }
                const Tensor naive(TensorLayout(form.output, dtype, form.format));
                fill_moderately(inputs, mode, dtype, random);
                run(NAIVE, mode, raw, naive.raw());
                expect_reference(mode, inputs, naive, 2);
                expect_naive_at_every_level(mode, inputs, naive);
                if (!divides && !is_approximate(ARMV7, mode, dtype)) {
                    fill_with_extremes(inputs, dtype, random);
                    run(NAIVE, mode, raw, naive.raw());
                    if (!is_float(dtype) && fits_64_bits(mode, dtype))
                        expect_reference(mode, inputs, naive, 0);
                    expect_naive_at_every_level(mode, inputs, naive);
                }
                if (HasFatalFailure())
                    return;
            }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ElementwiseModes, testing::Range(0u, NR_MODES),
                         [](const testing::TestParamInfo<uint32_t>& mode) {
                             return ModeTrait::of(static_cast<ElementwiseMode>(mode.param)).name;
                         });

TEST(Elementwise, ExtremeValues) {
    constexpr int32_t LEAST = INT32_MIN;
    const struct {
        uint32_t mode;
        DType dtype;
        double x, y, result;
    } cases[] = {
        {0, DType::Float32(), NAN, 0, NAN},
        {12, DType::Float32(), -200, 0, 0},
        {12, DType::Float32(), 200, 0, 1},
        {15, DType::Float32(), NAN, 2, -2},
        {17, DType::Int32(), -7, 2, -3},
        {17, DType::Int32(), LEAST, -1, LEAST},
        {17, DType::Int8(), -128, -1, -128},
        {17, DType::Float32(), -7, 2, -4},
        {18, DType::Float32(), NAN, 5, 5},
        {18, DType::Float32(), 5, NAN, NAN},
        {19, DType::Float32(), NAN, 5, 5},
        {19, DType::Float32(), 5, NAN, NAN},
        {20, DType::Int32(), LEAST, -1, 0},
        {25, DType::Float32(), NAN, 2, 0},
        {27, DType::Float16(), 60000, 0.5, INFINITY},
        {28, DType::Float32(), 100, 100, 100.693147f},
        // The 32-bit exponential is one unit off here.
        {28, DType::Float32(), 0, -67.25, 6.21864949e-30f},
        {32, DType::Int32(), 1, 31, LEAST},
        {37, DType::Float32(), NAN, 0, NAN},
        {42, DType::Float32(), 0.5, 0, 1},
        {42, DType::Float32(), 2.5, 0, 3},
        {42, DType::Float32(), -2.5, 0, -3},
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

TEST(Elementwise, OutputShape) {
    const auto deduce = &kern::Elementwise::deduce_output_shape;
    EXPECT_EQ(deduce({{2, 1, 3}, {4, 1}, {1}}).to_string(), "{2,4,3}");
    EXPECT_EQ(deduce({{1, 3}, {0, 3}}).to_string(), "{0,3}");
}

}  // namespace
}  // namespace kern_test
