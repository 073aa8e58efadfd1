#include "kernels/operators/reduce.h"

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
    run_operator<kern::Reduce>(level, {mode, 1, data_type}, src, dst);
}

// A stored element q means scale * (q - zero_point); only quantised types clamp to their range.
struct Type {
    DType dtype;
    double scale = 1;
    int zero_point = 0;
    double low = 0, high = 0;
    bool is_quantised() const { return low != high; }
};

const Type ASYMM = {DType::Quantized8Asymm(0.5f, 10), 0.5, 10, 0, 255};
const Type S8 = {DType::QuantizedS8(0.5f), 0.5, 0, -128, 127};
const Type S32 = {DType::QuantizedS32(0.25f), 0.25, 0, INT32_MIN, INT32_MAX};

// What each line along the middle axis gives.
std::vector<double> reference(ReduceMode mode, ReduceDataType data_type, const Tensor& src,
                              const Type& from, const Type& to) {
    std::vector<double> results;
    for_each_line(src.layout(), 1, [&](const std::vector<size_t>& line) {
        double result = 0;
        for (size_t i = 0; i < line.size(); ++i) {
            double x = (src.get(line[i]) - from.zero_point) * from.scale;
            x *= mode == ReduceMode::SUM_SQR ? x : 1;
            result = i == 0                        ? x
                     : mode == ReduceMode::PRODUCT ? result * x
                     : mode == ReduceMode::MIN     ? std::min(result, x)
                     : mode == ReduceMode::MAX     ? std::max(result, x)
                                                   : result + x;
        }
        if (mode == ReduceMode::MEAN)
            result /= static_cast<double>(line.size());
        if (mode == ReduceMode::MEAN && data_type == ReduceDataType::DEFAULT && to.is_quantised())
            result = std::trunc(result / from.scale) * from.scale;  // a mean of integers
        if (to.is_quantised())
            result = std::clamp(std::round(result / to.scale) + to.zero_point, to.low, to.high);
        results.push_back(result);
    });
    return results;
}

struct Case {
    Type from, to;
    ReduceDataType data_type = ReduceDataType::DEFAULT;
};

std::vector<Case> cases() {
    std::vector<Case> result = {{ASYMM, ASYMM},
                                {S8, S8},
                                {S32, S32},
                                {ASYMM, S32, ReduceDataType::QUINT_I8_O32},
                                {ASYMM, ASYMM, ReduceDataType::QUINT_I8_O32},
                                {ASYMM, S8, ReduceDataType::QUINT_I8_O32}};
    for (DType dtype : number_types())
        result.push_back({{dtype}, {dtype}});
    for (DType from : {DType::Float32(), DType::Float16()})
        for (DType to : {DType::Float32(), DType::Float16()})
            for (auto data_type : {ReduceDataType::FLOAT_O32, ReduceDataType::FLOAT_O16})
                result.push_back({{from}, {to}, data_type});
    return result;
}

// Small numbers, so that every order of additions gives the same bits; some sums and products of
// quantised ones saturate. A lone element is copied, whatever it is.
TEST(Reduce, EveryLevelModeAndDtypeIsExactOnSmallNumbers) {
    const Shape shapes[] = {{1, 1, 1},  {5, 1, 1},  {9, 7, 1},   {70, 5, 1}, {1, 20, 3},
                            {2, 6, 67}, {3, 1, 64}, {17, 20, 1}, {2, 3, 1},  {1, 33, 65}};
    std::mt19937 random(4);
    for (const Case& c : cases())
        for (uint32_t number = 0; number <= 5; ++number)
            for (const Shape& shape : shapes) {
                const auto mode = static_cast<ReduceMode>(number);
                const bool quantised = c.from.is_quantised(), product = mode == ReduceMode::PRODUCT;
                if (quantised && shape.length > 8)
                    continue;  // products of more halves have more bits than a float
                Tensor src(shape.src(), c.from.dtype);
                const int low = c.from.dtype == DType::Uint8() ? 0 : -1;
                if (quantised)
                    src.fill_integers(random, c.from.zero_point - (product ? 2 : 6),
                                      c.from.zero_point + (product ? 4 : 30));
                else
                    src.fill_integers(random, low, product ? 1 : 3);
                if (shape.length == 1 && c.from.dtype.category() == kern::DTypeCategory::FLOAT) {
                    src.set(shape.outer - 1, -INFINITY);
                    src.set(0, -0.0);
                }
                Tensor wanted(shape.dst(), c.to.dtype);
                wanted.fill_with(reference(mode, c.data_type, src, c.from, c.to));
                for (kern::HandleLevel level : LEVELS) {
                    const Tensor dst(shape.dst(), c.to.dtype);
                    run(level, mode, c.data_type, src, dst);
                    ASSERT_EQ(dst.bytes(), wanted.bytes())
                        << c.from.dtype.name() << " " << c.to.dtype.name() << " mode " << number
                        << " level " << level_name(level) << " " << shape.src().to_string();
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

// Halves round after every step or once; sums of bytes wrap; a mean of integers truncates.
TEST(Reduce, WorkingTypeDecidesWhatIsRounded) {
    const DType half = DType::Float16(), single = DType::Float32(), byte = DType::Int8();
    const struct {
        DType from, to;
        std::vector<double> line;
        ReduceMode mode;
        ReduceDataType data_type;
        double result;
    } cases[] = {
        {half, half, {2048, 0, 1, 0}, ReduceMode::SUM, ReduceDataType::DEFAULT, 2048},
        {half, single, {2048, 0, 1, 0}, ReduceMode::SUM, ReduceDataType::FLOAT_O32, 2049},
        {half, half, {60000, 60000, 1, 0}, ReduceMode::MEAN, ReduceDataType::FLOAT_O16, 30000},
        {byte, byte, std::vector<double>(300, 1), ReduceMode::SUM, ReduceDataType::DEFAULT, 44},
        {byte, byte, std::vector<double>(300, 1), ReduceMode::MEAN, ReduceDataType::DEFAULT, 0},
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS) {
            Tensor src({1, c.line.size()}, c.from);
            const Tensor dst({1, 1}, c.to);
            src.fill_with(c.line);
            run(level, c.mode, c.data_type, src, dst);
            EXPECT_EQ(dst.get(0), c.result) << &c - cases << " " << level_name(level);
        }
}

TEST(Reduce, WorkspaceHoldsTheConvertedCopies) {
    const DType half = DType::Float16();
    const auto type = ReduceDataType::DEFAULT, as_32 = ReduceDataType::FLOAT_O32,
               to_16 = ReduceDataType::FLOAT_O16, to_32 = ReduceDataType::QUINT_I8_O32;
    const struct {
        DType from, to;
        ReduceMode mode;
        ReduceDataType data_type;
        size_t naive, others;
    } cases[] = {
        {half, half, ReduceMode::SUM, type, 0, 0},
        {half, half, ReduceMode::SUM, as_32, 512 + 1536 + 512, 0},
        {half, DType::Float32(), ReduceMode::SUM, to_16, 512 + 1536, 0},
        {S8.dtype, S8.dtype, ReduceMode::MEAN, type, 2560, 2560},
        {S8.dtype, S8.dtype, ReduceMode::MAX, type, 0, 0},
        {S32.dtype, S32.dtype, ReduceMode::SUM, type, 0, 0},
        {S32.dtype, S32.dtype, ReduceMode::PRODUCT, type, 2560, 2560},
        {ASYMM.dtype, S32.dtype, ReduceMode::MIN, to_32, 2560, 2560},
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS)
            EXPECT_EQ(run_operator<kern::Reduce>(level, {c.mode, 1, c.data_type},
                                                 Tensor({3, 100}, c.from), Tensor({3, 1}, c.to)),
                      level == NAIVE ? c.naive : c.others)
                << c.from.name() << " level " << level_name(level);
}

}  // namespace
}  // namespace kern_test
