#include "kernels/reduce.h"

#include <numeric>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ReduceDataType;
using kern::ReduceMode;

struct Shape {
    size_t outer, length, inner;
    TensorShape src() const { return {outer, length, inner}; }
    TensorShape dst() const { return {outer, 1, inner}; }
};

void run(kern::HandleLevel level, ReduceMode mode, ReduceDataType data_type, const Tensor& src,
         const Tensor& dst) {
    run_operator<kern::Reduce>(level, kern::Reduce::Param{mode, 1, data_type}, src, dst);
}

// What each line along the middle axis gives.
std::vector<double> reference(ReduceMode mode, const Tensor& src) {
    std::vector<double> results;
    for_each_line(src.layout(), 1, [&](const std::vector<size_t>& line) {
        double result = src.get(line[0]) * (mode == ReduceMode::SUM_SQR ? src.get(line[0]) : 1);
        for (size_t i = 1; i < line.size(); ++i) {
            const double x = src.get(line[i]);
            result = mode == ReduceMode::SUM_SQR   ? result + x * x
                     : mode == ReduceMode::PRODUCT ? result * x
                     : mode == ReduceMode::MIN     ? std::min(result, x)
                     : mode == ReduceMode::MAX     ? std::max(result, x)
                                                   : result + x;
        }
        const auto length = static_cast<double>(line.size());
        results.push_back(mode == ReduceMode::MEAN ? result / length : result);
    });
    return results;
}

// Small whole numbers, so that every order of additions gives the same bits.
TEST(Reduce, EveryLevelModeAndDtypeIsExactOnSmallNumbers) {
    const Shape shapes[] = {{1, 1, 1},  {5, 1, 1},  {9, 7, 1},   {70, 5, 1}, {1, 20, 3},
                            {2, 6, 67}, {3, 1, 64}, {17, 20, 1}, {2, 3, 1},  {1, 33, 65}};
    std::mt19937 random(4);
    for (DType dtype : number_types()) {
        const bool is_float = dtype.category() == kern::DTypeCategory::FLOAT;
        for (uint32_t number = 0; number <= 5; ++number) {
            const auto mode = static_cast<ReduceMode>(number);
            for (const Shape& shape : shapes) {
                Tensor src(shape.src(), dtype);
                const int low = dtype == DType::Uint8() ? 0 : -1;
                src.fill_integers(random, low, mode == ReduceMode::PRODUCT ? 1 : 3);
                std::vector<std::pair<ReduceDataType, DType>> targets = {
                    {ReduceDataType::DEFAULT, dtype}};
                for (DType target : {DType::Float32(), DType::Float16()})
                    if (is_float)
                        targets.insert(targets.end(), {{ReduceDataType::FLOAT_O32, target},
                                                       {ReduceDataType::FLOAT_O16, target}});
                for (const auto& [data_type, target] : targets)
                    for (kern::HandleLevel level : LEVELS) {
                        const Tensor dst(shape.dst(), target);
                        run(level, mode, data_type, src, dst);
                        Tensor wanted(shape.dst(), target);
                        size_t next = 0;
                        const auto results = reference(mode, src);
                        wanted.fill([&] { return results[next++]; });
                        ASSERT_EQ(dst.bytes(), wanted.bytes())
                            << dtype.name() << " mode " << number << " level " << level_name(level)
                            << " " << shape.src().to_string();
                    }
            }
        }
    }
}

// The order of additions that each level promises, along rows as along columns. The norm of a row
// is added from left to right, so it does not depend on the rows beside it.
float halved_sum(const std::vector<float>& values, size_t low, size_t high, size_t leaf) {
    if (high - low <= leaf)
        return std::accumulate(values.begin() + static_cast<ptrdiff_t>(low),
                               values.begin() + static_cast<ptrdiff_t>(high), 0.0f);
    const size_t middle = low + (high - low) / 2;
    return halved_sum(values, low, middle, leaf) + halved_sum(values, middle, high, leaf);
}

TEST(Reduce, SumsKeepTheirOrderOfAdditions) {
    std::mt19937 random(5);
    std::vector<Shape> shapes = {{1, 4096, 1}, {11, 4097, 1}, {2, 10000, 5}, {2, 4097, 5}};
    for (size_t rows : Sizes{1, 7, 8, 9, 16, 75})
        for (size_t length : Sizes{1, 7, 8, 131, 5001})
            shapes.push_back({rows, length, 1});
    for (const Shape& shape : shapes) {
        Tensor src(shape.src(), DType::Float32());
        src.fill_uniform(random, -1, 1);
        for (ReduceMode mode : {ReduceMode::SUM, ReduceMode::SUM_SQR})
            for (kern::HandleLevel level : LEVELS) {
                const Tensor dst(shape.dst(), DType::Float32());
                run(level, mode, ReduceDataType::DEFAULT, src, dst);
                size_t nr = 0;
                for_each_line(shape.src(), 1, [&](const std::vector<size_t>& line) {
                    std::vector<float> values;
                    for (size_t i : line) {
                        const float x = src.at<float>(i);
                        values.push_back(mode == ReduceMode::SUM ? x : x * x);
                    }
                    EXPECT_EQ(dst.at<float>(nr++),
                              halved_sum(values, 0, values.size(), level == NAIVE ? 1 : 4096))
                        << level_name(level) << " " << shape.src().to_string();
                });
            }
    }
}

TEST(Reduce, WorkingTypeDecidesWhatIsRounded) {
    for (kern::HandleLevel level : LEVELS) {
        Tensor src({1, 4}, DType::Float16());
        const Tensor half({1, 1}, DType::Float16()), single({1, 1}, DType::Float32());
        src.set(0, 2048), src.set(1, 0), src.set(2, 1), src.set(3, 0);
        run(level, ReduceMode::SUM, ReduceDataType::DEFAULT, src, half);
        EXPECT_EQ(half.get(0), 2048);
        run(level, ReduceMode::SUM, ReduceDataType::FLOAT_O32, src, single);
        EXPECT_EQ(single.get(0), 2049);
        src.set(0, 60000), src.set(1, 60000);
        run(level, ReduceMode::MEAN, ReduceDataType::FLOAT_O16, src, half);
        EXPECT_EQ(half.get(0), 30000);

        // Sums of bytes wrap; a mean of integers truncates.
        Tensor bytes({1, 300}, DType::Int8());
        const Tensor byte({1, 1}, DType::Int8());
        bytes.fill([] { return 1; });
        run(level, ReduceMode::SUM, ReduceDataType::DEFAULT, bytes, byte);
        EXPECT_EQ(byte.get(0), 44);
        run(level, ReduceMode::MEAN, ReduceDataType::DEFAULT, bytes, byte);
        EXPECT_EQ(byte.get(0), 0);
    }
}

struct QuantisedType {
    DType dtype;
    float scale;
    int zero_point;
    double low, high;
};

const QuantisedType ASYMM = {DType::Quantized8Asymm(0.5f, 10), 0.5f, 10, 0, 255};
const QuantisedType S8 = {DType::QuantizedS8(0.5f), 0.5f, 0, -128, 127};
const QuantisedType S32 = {DType::QuantizedS32(0.25f), 0.25f, 0, INT32_MIN, INT32_MAX};

// The stored results by the real numbers that the elements stand for.
std::vector<double> quantised_reference(ReduceMode mode, ReduceDataType data_type,
                                        const Tensor& src, const QuantisedType& from,
                                        const QuantisedType& to) {
    Tensor real(src.layout(), DType::Float32());
    for (size_t i = 0; i < src.layout().element_count(); ++i)
        real.set(i, (src.get(i) - from.zero_point) * from.scale);
    std::vector<double> results = reference(mode, real);
    for (double& result : results) {
        if (mode == ReduceMode::MEAN && data_type == ReduceDataType::DEFAULT)
            result = std::trunc(result / from.scale) * from.scale;  // a mean of integers
        result = std::round(result / to.scale) + to.zero_point;
        result = std::min(std::max(result, to.low), to.high);
    }
    return results;
}

TEST(Reduce, EveryLevelAndModeOnQuantisedTypes) {
    const struct {
        const QuantisedType &from, &to;
        ReduceDataType data_type;
    } cases[] = {
        {ASYMM, ASYMM, ReduceDataType::DEFAULT},      {S8, S8, ReduceDataType::DEFAULT},
        {S32, S32, ReduceDataType::DEFAULT},          {ASYMM, S32, ReduceDataType::QUINT_I8_O32},
        {ASYMM, ASYMM, ReduceDataType::QUINT_I8_O32}, {ASYMM, S8, ReduceDataType::QUINT_I8_O32}};
    std::mt19937 random(7);
    for (const auto& c : cases)
        for (uint32_t number = 0; number <= 5; ++number)
            for (const Shape& shape : {Shape{3, 1, 1}, Shape{9, 7, 1}, Shape{2, 8, 3}})
                for (kern::HandleLevel level : LEVELS) {
                    const auto mode = static_cast<ReduceMode>(number);
                    Tensor src(shape.src(), c.from.dtype);
                    // Some sums and products saturate, all are exact in 32-bit floats.
                    const bool product = mode == ReduceMode::PRODUCT;
                    src.fill_integers(random, c.from.zero_point - (product ? 2 : 6),
                                      c.from.zero_point + (product ? 4 : 30));
                    const Tensor dst(shape.dst(), c.to.dtype);
                    run(level, mode, c.data_type, src, dst);
                    const auto wanted = quantised_reference(mode, c.data_type, src, c.from, c.to);
                    for (size_t i = 0; i < wanted.size(); ++i)
                        ASSERT_EQ(dst.get(i), wanted[i])
                            << c.from.dtype.name() << " " << c.to.dtype.name() << " mode " << number
                            << " " << shape.src().to_string() << " level " << level_name(level);
                }
}

TEST(Reduce, WorkspaceHoldsTheConvertedCopies) {
    const TensorShape src({3, 100}), dst({3, 1});
    const struct {
        DType from, to;
        ReduceMode mode;
        ReduceDataType data_type;
        size_t naive, fallback;
    } cases[] = {
        {DType::Float16(), DType::Float16(), ReduceMode::SUM, ReduceDataType::DEFAULT, 0, 0},
        {DType::Float16(), DType::Float16(), ReduceMode::SUM, ReduceDataType::FLOAT_O32,
         512 + 1536 + 512, 0},
        {DType::Float16(), DType::Float32(), ReduceMode::SUM, ReduceDataType::FLOAT_O16, 512 + 1536,
         0},
        {S8.dtype, S8.dtype, ReduceMode::MEAN, ReduceDataType::DEFAULT, 2560, 2560},
        {S8.dtype, S8.dtype, ReduceMode::MAX, ReduceDataType::DEFAULT, 0, 0},
        {S32.dtype, S32.dtype, ReduceMode::SUM, ReduceDataType::DEFAULT, 0, 0},
        {S32.dtype, S32.dtype, ReduceMode::PRODUCT, ReduceDataType::DEFAULT, 2560, 2560},
        {ASYMM.dtype, S32.dtype, ReduceMode::MIN, ReduceDataType::QUINT_I8_O32, 2560, 2560},
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS) {
            const auto handle = make_handle(level);
            const auto op = handle->create_operator<kern::Reduce>();
            op->param() = {c.mode, 1, c.data_type};
            EXPECT_EQ(op->workspace_in_bytes(TensorLayout(src, c.from), TensorLayout(dst, c.to)),
                      level == NAIVE ? c.naive : c.fallback)
                << c.from.name() << " level " << level_name(level);
        }
}

TEST(Reduce, LoneElementIsCopied) {
    for (ReduceMode mode :
         {ReduceMode::SUM, ReduceMode::PRODUCT, ReduceMode::MIN, ReduceMode::MAX, ReduceMode::MEAN})
        for (DType dtype : {DType::Float32(), DType::Float16()})
            for (kern::HandleLevel level : LEVELS) {
                Tensor src({9, 1, 2}, dtype);
                const Tensor dst({9, 1, 2}, dtype);
                bool zero = false;
                src.fill([&] { return (zero = !zero) ? -0.0 : -INFINITY; });
                run(level, mode, ReduceDataType::DEFAULT, src, dst);
                EXPECT_EQ(dst.bytes(), src.bytes()) << "mode " << static_cast<uint32_t>(mode);
            }
}

TEST(Reduce, WrongArgumentsStopTheProcess) {
    const DType f = DType::Float32(), i = DType::Int32();
    const Tensor src({2, 3}, f), dst({2, 1}, f), ints({2, 3}, i), int_dst({2, 1}, i);
    const auto sum = [](ReduceDataType data_type, const Tensor& from, const Tensor& to) {
        run(FALLBACK, ReduceMode::SUM, data_type, from, to);
    };
    EXPECT_DEATH(sum(ReduceDataType::FLOAT_IO16_CO32, src, dst), "");
    EXPECT_DEATH(sum(ReduceDataType::DEFAULT, src, int_dst), "");
    EXPECT_DEATH(sum(ReduceDataType::FLOAT_O32, ints, int_dst), "");
    EXPECT_DEATH(sum(ReduceDataType::QUINT_I8_O32, src, dst), "");
    EXPECT_DEATH(sum(ReduceDataType::DEFAULT, src, Tensor({1, 3}, f)), "");
    EXPECT_DEATH(sum(ReduceDataType::DEFAULT, Tensor(strided({2, 3}, {4, 1}, f)), dst), "");
    EXPECT_DEATH(sum(ReduceDataType::DEFAULT, Tensor({0, 3}, f), Tensor({0, 1}, f)), "");

    const auto handle = make_handle(NAIVE);
    const auto op = handle->create_operator<kern::Reduce>();
    const Tensor same({2, 3}, f), half({2, 1}, DType::Float16());
    std::vector<uint8_t> memory(4096);
    op->param() = {ReduceMode::SUM, 1, ReduceDataType::FLOAT_O32};
    op->exec(src.raw(), half.raw(), {memory.data(), memory.size()});
    EXPECT_DEATH(op->exec(src.raw(), half.raw(), {memory.data(), 0}), "");
    for (int32_t axis : {-1, 2}) {
        op->param().axis = axis;
        EXPECT_DEATH(op->exec(src.raw(), same.raw(), {memory.data(), memory.size()}), "");
    }
}

}  // namespace
}  // namespace kern_test
