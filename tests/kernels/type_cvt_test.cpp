// Conversions between all dtypes. Values of quantised types are the integers that they store.
#include "kernels/type_cvt.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32(), I32 = DType::Int32();

void convert(kern::HandleLevel level, const Tensor& src, const Tensor& dst) {
    const auto handle = make_handle(level);
    handle->create_operator<kern::TypeCvt>()->exec(src.raw(), dst.raw());
}

double convert(kern::HandleLevel level, DType from, DType to, double value) {
    const Tensor dst({11}, to);
    Tensor src({11}, from);
    src.fill([&] { return value; });
    convert(level, src, dst);
    EXPECT_EQ(dst.get(0), dst.get(10));  // body and tail
    return dst.get(10);
}

TEST(TypeCvt, ValuesThatDoNotFitAndHalves) {
    const DType i8 = DType::Int8();
    const DType s8 = DType::QuantizedS8(1), s8_half = DType::QuantizedS8(0.5f);
    const DType asymm = DType::Quantized8Asymm(1, 100), s32 = DType::QuantizedS32(1);
    const DType s32_half = DType::QuantizedS32(0.5f), asymm_2 = DType::Quantized8Asymm(2, 3);
    const struct {
        DType from, to;
        double value, result;
    } cases[] = {
        {F32, i8, -1.5, -1},
        {F32, I32, 2.99, 2},
        {F32, DType::Uint8(), -1, 255},
        {F32, i8, 300, 44},
        {F32, I32, 3e9, INT32_MAX},
        {F32, I32, -3e9, INT32_MIN},
        {F32, I32, NAN, 0},
        {I32, i8, 130, -126},
        {I32, DType::Int16(), 65537, 1},
        {DType::Uint8(), i8, 200, -56},
        {i8, DType::Uint8(), -1, 255},
        {F32, DType::Float16(), 1e6, INFINITY},
        {DType::Float16(), I32, -INFINITY, INT32_MIN},
        {I32, F32, 16777217, 16777216},
        {F32, s8, 200.5, 127},
        {F32, s8, -1000, -128},
        {F32, s8, 2.5, 3},
        {F32, s8, -2.5, -3},
        {F32, s8, 0.49999997, 0},
        {F32, s8_half, 1.25, 3},
        {F32, s8, NAN, 0},
        {F32, asymm, -0.5, 99},
        {F32, asymm, 154.5, 255},
        {F32, asymm, -101, 0},
        {F32, asymm, INFINITY, 255},
        {F32, asymm, NAN, 100},
        {F32, s32, 3e9, INT32_MAX},
        {F32, s32, -3e9, INT32_MIN},
        {F32, s32_half, -1.25, -3},
        {DType::Float16(), s8, -2.5, -3},
        {I32, s8_half, 7, 14},
        {DType::Int8(), asymm, -128, 0},
        {DType::Uint8(), asymm, 200, 255},
        {DType::Int16(), s32_half, -300, -600},
        {s8_half, F32, -3, -1.5},
        {s8_half, I32, -3, -1},
        {asymm, F32, 0, -100},
        {asymm, DType::Uint8(), 99, 255},
        {asymm_2, DType::Float16(), 250, 494},
        {s32_half, F32, INT32_MIN, -1073741824},
        {s32, DType::Int16(), 65537, 1},
        {s32, s8, 1000, 127},
        {s32_half, s8, 5, 3},
        {s32_half, s8, -5, -3},
        {s32_half, asymm, -5, 97},
        {s32, asymm, INT32_MAX, 255},
        {s32, asymm, INT32_MIN, 0},
        {s32_half, asymm_2, 2, 4},
        {asymm, s8_half, 103, 6},
        {asymm, asymm_2, 110, 8},
        {s8, s32_half, -128, -256},
        {DType::QuantizedS32(0), DType::QuantizedS8(0), 5, 0},  // no number at all
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS)
            EXPECT_EQ(convert(level, c.from, c.to, c.value), c.result)
                << c.from.name() << " " << c.to.name() << " " << c.value << " level "
                << level_name(level);
}

// Every pair, layouts dense and not, around the length of a vector step.
TEST(TypeCvt, EveryPairKeepsValuesThatFit) {
    const DType quantised[] = {DType::Quantized8Asymm(0.25f, 7), DType::QuantizedS32(0.5f),
                               DType::QuantizedS8(0.25f)};
    const auto real = [](DType dtype, double stored) {
        return dtype == DType::Quantized8Asymm(0.25f, 7) ? (stored - 7) / 4
               : dtype == DType::QuantizedS32(0.5f)      ? stored / 2
               : dtype == DType::QuantizedS8(0.25f)      ? stored / 4
                                                         : stored;
    };
    std::vector<DType> all = number_types();
    all.insert(all.end(), std::begin(quantised), std::end(quantised));
    for (DType from : all)
        for (DType to : all)
            for (const TensorLayout& layout :
                 {TensorLayout({1}, from), TensorLayout({8}, from), TensorLayout({3, 9}, from),
                  strided({3, 5}, {-1, 4}, from), strided({3, 7}, {9, 1}, from)})
                for (kern::HandleLevel level : LEVELS) {
                    double next = -1;  // whole numbers from 0 on
                    Tensor src(layout), dst(TensorLayout(layout, to));
                    src.fill([&] {
                        next = next < 27 ? next + 1 : 0;
                        return from == quantised[0] ? next * 4 + 7 : next / real(from, 1);
                    });
                    convert(level, src, dst);
                    for (size_t i = 0; i < layout.element_count(); ++i)
                        ASSERT_EQ(real(to, dst.get(i)), real(from, src.get(i)))
                            << from.name() << " " << to.name() << " level " << level_name(level);
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

TEST(TypeCvt, WrongArgumentsStopTheProcess) {
    const Tensor src({2}, F32), other({3}, F32), bytes({2}, DType::Byte());
    EXPECT_DEATH(convert(FALLBACK, src, other), "");
    EXPECT_DEATH(convert(FALLBACK, src, bytes), "");
    EXPECT_DEATH(convert(FALLBACK, src, Tensor(strided({2}, {2}, F32))), "");
}

}  // namespace
}  // namespace kern_test
