// Conversions between all dtypes. Values of quantised types are the integers that they store.
#include "kernels/operators/type_cvt.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32(), I32 = DType::Int32();

void convert(kern::HandleLevel level, const Tensor& src, const Tensor& dst) {
    const auto handle = make_handle(level);
    handle->create_operator<kern::TypeCvt>()->exec(src.raw(), dst.raw());
}

// One number per stored element: (stored - zero_point) * scale.
struct Type {
    DType dtype;
    double least, most;  // of integers
    bool is_quantised = false;
    double scale = 1, zero_point = 0;
};

// Scales are powers of two, so that every quotient is exact, or 0: no number at all.
const Type TYPES[] = {{F32, 0, 0},
                      {DType::Float16(), 0, 0},
                      {I32, INT32_MIN, INT32_MAX},
                      {DType::Int16(), INT16_MIN, INT16_MAX},
                      {DType::Int8(), INT8_MIN, INT8_MAX},
                      {DType::Uint8(), 0, UINT8_MAX},
                      {DType::QuantizedS8(1), INT8_MIN, INT8_MAX, true, 1},
                      {DType::QuantizedS8(0.5f), INT8_MIN, INT8_MAX, true, 0.5},
                      {DType::QuantizedS32(1), INT32_MIN, INT32_MAX, true, 1},
                      {DType::QuantizedS32(0.5f), INT32_MIN, INT32_MAX, true, 0.5},
                      {DType::QuantizedS32(0), INT32_MIN, INT32_MAX, true, 0},
                      {DType::Quantized8Asymm(1, 100), 0, UINT8_MAX, true, 1, 100},
                      {DType::Quantized8Asymm(2, 3), 0, UINT8_MAX, true, 2, 3}};

double as_float(double value) {
    return static_cast<double>(static_cast<float>(value));
}

// Quantised types take the nearest number they have, ties away from zero; plain integers keep the
// low bits of what is truncated to 32; all but plain integers go through a float.
double converted(const Type& from, const Type& to, double stored) {
    const bool from_int = !from.is_quantised && from.most != 0;
    const bool to_int = !to.is_quantised && to.most != 0;
    double real = stored;
    if (!from_int || !to_int)
        real = as_float(as_float(stored - from.zero_point) * from.scale);
    if (to.is_quantised) {
        const double units = real / to.scale;
        const double nearest = std::isnan(units) ? 0 : std::round(units);
        return std::min(std::max(nearest + to.zero_point, to.least), to.most);
    }
    const Tensor result({1}, to.dtype);
    if (to_int && std::isnan(real))
        real = 0;
    result.set(0, to_int ? std::min(std::max(std::trunc(real), -0x1p31), 0x1p31 - 1) : real);
    return result.get(0);
}

// Every pair, layouts dense and not, around the length of a vector step; values that fit, ties,
// and what does not fit.
TEST(TypeCvt, EveryPairAndLevel) {
    const double special[] = {NAN,   INFINITY, -INFINITY,  3e9,           -3e9,       1e6,
                              -1.5,  2.5,      -2.5,       2.99,          0.49999997, 154.5,
                              -1000, 300,      2147483647, -2147483648.0, 16777217,   65537};
    std::mt19937 random(3);
    for (const Type& from : TYPES)
        for (const Type& to : TYPES)
            for (const TensorLayout& layout :
                 {TensorLayout({1}, from.dtype), TensorLayout({8}, from.dtype),
                  TensorLayout({3, 29}, from.dtype), strided({3, 5}, {-1, 4}, from.dtype),
                  strided({3, 7}, {9, 1}, from.dtype)}) {
                Tensor src(layout);
                src.fill([&] {
                    double value = random() % 2 ? special[random() % 18]
                                                : static_cast<int>(random() % 512) / 2.0 - 128;
                    if (from.most != 0)
                        value = std::isnan(value)
                                    ? from.zero_point
                                    : std::min(std::max(value, from.least), from.most);
                    return value;
                });
                for (kern::HandleLevel level : LEVELS) {
                    const Tensor dst(TensorLayout(layout, to.dtype));
                    convert(level, src, dst);
                    for (size_t i = 0; i < layout.element_count(); ++i) {
                        const double got = dst.get(i), wanted = converted(from, to, src.get(i));
                        ASSERT_TRUE(got == wanted || (std::isnan(got) && std::isnan(wanted)))
                            << from.dtype.name() << " " << to.dtype.name() << " of " << src.get(i)
                            << " level " << level_name(level) << ": " << got << " not " << wanted;
                    }
                }
            }
}

// The vector loop multiplies by the ratio of the scales. Where that is exact it gives what the
// naive level gives, halves included; elsewhere it may be one step off within rounding of a half.
TEST(TypeCvt, VectorLoopDiffersOnlyWithinRoundingOfAHalf) {
    const struct {
        float src, dst;
        bool exact, differs;
    } scales[] = {{1, 4, true, false},       {0.5f, 1, true, false},  {3, 6, true, false},
                  {0.1f, 0.6f, false, true}, {1, 0.7f, false, false}, {0.1f, 0.3f, false, false}};
    constexpr int RANGE = 700;
    for (const auto& s : scales)
        for (DType to : {DType::QuantizedS8(s.dst), DType::Quantized8Asymm(s.dst, 131)}) {
            Tensor src({2 * RANGE + 3}, DType::QuantizedS32(s.src));
            int next = -RANGE;
            src.fill([&] { return next++; });
            const Tensor plain(TensorLayout(src.layout(), to)),
                vector(TensorLayout(src.layout(), to));
            convert(NAIVE, src, plain);
            convert(ARMV7, src, vector);
            int different = 0;
            for (size_t i = 0; i < src.layout().element_count(); ++i) {
                const double exact = src.get(i) * static_cast<double>(s.src) / s.dst;
                const double to_half = std::fabs(std::fabs(exact - std::trunc(exact)) - 0.5);
                const double allowed = !s.exact && to_half < 4 * 6e-8 * std::fabs(exact) ? 1 : 0;
                ASSERT_LE(std::fabs(plain.get(i) - vector.get(i)), allowed) << src.get(i);
                different += plain.get(i) != vector.get(i);
            }
            // Where the two formulas do differ, this also shows that the vector loop is what ran.
            EXPECT_EQ(different > 0, s.differs) << s.src << " " << s.dst;
        }
}

}  // namespace
}  // namespace kern_test
