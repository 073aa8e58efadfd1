// Operators on integers of several widths and on quantised numbers: one rule per mode, in numbers
// that hold everything, against every level.
#include "kernels/elementwise_multi_type.h"

#include <cmath>

#include "kernels/arm_common/elementwise_multi_type.h"
#include "tests/kernels/elementwise_reference.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using Mode = kern::ElementwiseMultiType::Mode;

// Shift counts lie around all widths; other integers take all values of their type, and often few
// bits, so that sums of floats have ties.
void fill(const Tensor& tensor, bool is_count, std::mt19937& random) {
    const DType dtype = tensor.layout().dtype;
    for (size_t i = 0; i < tensor.layout().element_count(); ++i) {
        const auto word = static_cast<int32_t>(random());
        if (dtype == DType::Float32())
            tensor.set(i, word % 64 / 4.0);
        else if (is_count)
            tensor.set(i, word % 36);
        else if (word % 16 == 0)
            tensor.set(i, -std::ldexp(1.0, static_cast<int>(8 * dtype.element_bytes()) - 1));
        else
            tensor.set(i, word % 16 == 1 ? INT32_MAX : word >> (random() % 32));
    }
}

double clamp(double value, double least, double most) {
    return value < least ? least : value > most ? most : value;
}

double clamp_to_int(double value, int bits) {
    return clamp(value, -std::ldexp(1.0, bits - 1), std::ldexp(1.0, bits - 1) - 1);
}

double shifted(double x, double count) {
    if (count < 0 || count >= 32)
        return x < 0 ? -1 : 0;
    return std::round(std::ldexp(x, -static_cast<int>(count)));
}

// The low bits of a whole number, as a signed one.
double wrapped(int64_t value, int bits) {
    const int64_t range = int64_t{1} << bits;
    const int64_t low = ((value % range) + range) % range;
    return static_cast<double>(low >= range / 2 ? low - range : low);
}

double high_product(double x, double y, int bits) {
    const auto product = static_cast<int64_t>(x) * static_cast<int64_t>(y);
    const int64_t unit = int64_t{1} << (bits - 1);
    const int64_t raised = product + unit / 2;
    const int64_t below = raised % unit < 0 ? 1 : 0;
    return clamp_to_int(static_cast<double>(raised / unit - below), bits);
}

struct Case {
    Mode mode;
    std::vector<DType> inputs;
    DType output;
};

// The real values are added in Float32, and the sum is rounded to the output's scale.
double quantised_sum(const Case& c, const double (&v)[4]) {
    const auto real = [&](int i) {
        return static_cast<float>(v[i]) *
               c.inputs[static_cast<size_t>(i)].param<kern::QuantizedS8Param>().scale;
    };
    float sum = real(0) + real(1);
    if (c.mode == Mode::QUANTISED_ADD_RELU && sum < 0)
        sum = 0;
    const auto units = [&](float scale) { return std::round(static_cast<double>(sum / scale)); };
    switch (c.output.enum_value()) {
        case kern::DTypeEnum::QUANTIZED8_ASYMM: {
            const auto& param = c.output.param<kern::Quantized8AsymmParam>();
            return clamp(units(param.scale) + param.zero_point, 0, 255);
        }
        case kern::DTypeEnum::QUANTIZED_S8:
            return clamp_to_int(units(c.output.param<kern::QuantizedS8Param>().scale), 8);
        default:
            return clamp_to_int(units(c.output.param<kern::QuantizedS32Param>().scale), 32);
    }
}

double reference(const Case& c, const double (&v)[4]) {
    const auto whole = [&](int i) { return static_cast<int64_t>(v[i]); };
    switch (c.mode) {
        case Mode::MUL_ADD_TO_INT32:
            return wrapped(whole(0) * whole(1) + whole(2), 32);
        case Mode::MUL_ADD_TO_INT8: {
            const float product = static_cast<float>(v[0]) * static_cast<float>(v[1]);
            const float sum = product + static_cast<float>(v[2]);
            return clamp_to_int(std::nearbyint(static_cast<double>(sum)), 8);
        }
        case Mode::SHIFT_TO_INT8:
            return clamp_to_int(shifted(v[0], v[1]), 8);
        case Mode::SHIFT_TO_INT16:
            return clamp_to_int(shifted(v[0], v[1]), 16);
        case Mode::ADD_MUL_SHIFT_INT16:
        case Mode::ADD_MUL_SHIFT_INT32: {
            const int bits = c.mode == Mode::ADD_MUL_SHIFT_INT16 ? 16 : 32;
            const double sum = wrapped(whole(0) + whole(1), bits);
            return clamp_to_int(shifted(high_product(sum, v[2], bits), v[3]), 8);
        }
        default:
            return quantised_sum(c, v);
    }
}

std::vector<Case> cases() {
    const DType f = DType::Float32(), i8 = DType::Int8(), i16 = DType::Int16(),
                i32 = DType::Int32();
    std::vector<Case> result = {{Mode::MUL_ADD_TO_INT32, {i16, i32, i32}, i32},
                                {Mode::MUL_ADD_TO_INT8, {i16, f, f}, i8},
                                {Mode::MUL_ADD_TO_INT8, {i32, f, f}, i8}};
    for (DType count : {i8, i16, i32}) {
        result.push_back({Mode::ADD_MUL_SHIFT_INT16, {i16, i16, i16, count}, i8});
        result.push_back({Mode::ADD_MUL_SHIFT_INT32, {i32, i32, i32, count}, i8});
        for (DType x : {i8, i16, i32}) {
            result.push_back({Mode::SHIFT_TO_INT8, {x, count}, i8});
            result.push_back({Mode::SHIFT_TO_INT16, {x, count}, i16});
        }
    }
    const std::vector<DType> quantised = {
        DType::QuantizedS8(0.5f),          DType::QuantizedS8(0.3f),
        DType::Quantized8Asymm(0.7f, 130), DType::Quantized8Asymm(2.0f, 3),
        DType::QuantizedS32(0.1f),         DType::QuantizedS32(1e-9f)};
    for (Mode mode : {Mode::QUANTISED_ADD, Mode::QUANTISED_ADD_RELU}) {
        for (DType output : quantised)
            result.push_back(
                {mode, {DType::QuantizedS8(0.25f), DType::QuantizedS8(0.75f)}, output});
    }
    return result;
}

struct Form {
    TensorShape output;
    std::vector<TensorShape> inputs;  // the last one for the inputs that are left
};

std::vector<Form> forms() {
    std::vector<Form> result;
    for (size_t n : Sizes{1, 7, 8, 9, 16, 33}) {
        result.push_back({{n}, {{n}}});
        result.push_back({{3, n}, {{3, n}, {1}}});
        result.push_back({{3, n}, {{1}, {3, n}}});
    }
    result.push_back({{3, 5}, {{3, 5}, {3, 1}}});
    result.push_back({{3, 5}, {{5}, {3, 5}}});
    result.push_back({{2, 3, 5}, {{2, 1, 5}, {3, 1}, {1}, {5}}});
    return result;
}

void run(kern::HandleLevel level, Mode mode, const std::vector<RawTensor>& inputs,
         const RawTensor& output) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::ElementwiseMultiType>();
    op->param().mode = mode;
    op->exec(inputs, output);
}

TEST(ElementwiseMultiType, EveryLevelModeDtypeAndFormGivesTheRule) {
    std::mt19937 random(7);
    for (const Case& c : cases()) {
        for (const Form& form : forms()) {
            std::vector<std::unique_ptr<Tensor>> tensors;
            std::vector<RawTensor> inputs;
            for (size_t i = 0; i < c.inputs.size(); ++i) {
                const TensorShape& shape = form.inputs[std::min(i, form.inputs.size() - 1)];
                tensors.push_back(std::make_unique<Tensor>(shape, c.inputs[i]));
                const bool shifts = c.inputs.back().category() == kern::DTypeCategory::INTEGER &&
                                    c.mode != Mode::MUL_ADD_TO_INT32;
                fill(*tensors.back(), shifts && i + 1 == c.inputs.size(), random);
                inputs.push_back(tensors.back()->raw());
            }
            for (kern::HandleLevel level : LEVELS) {
                const Tensor output(form.output, c.output);
                run(level, c.mode, inputs, output.raw());
                for (size_t i = 0; i < form.output.element_count(); ++i) {
                    double v[4] = {};
                    for (size_t n = 0; n < inputs.size(); ++n)
                        v[n] = broadcast_get(*tensors[n], form.output, i);
                    ASSERT_EQ(output.get(i), reference(c, v))
                        << level_name(level) << " mode " << static_cast<int>(c.mode) << " "
                        << c.inputs[0].name() << " to " << c.output.name() << " of " << v[0] << " "
                        << v[1] << " " << v[2] << " " << v[3];
                }
            }
        }
    }
}

TEST(ElementwiseMultiType, FormsWithVectors) {
    const TensorLayout dense({3, 8}, DType::Int8()), scalar({1}, DType::Int8()),
        column({3, 1}, DType::Int8()), gaps = strided({3, 8}, {9, 1}, DType::Int8());
    const auto has_form = [&](Mode mode, const TensorLayout& x, const TensorLayout& y) {
        const std::vector<RawTensor> inputs = {{nullptr, x}, {nullptr, y}};
        return kern::arm_common::has_vector_form(mode, kern::BroadcastSet(inputs, dense));
    };
    for (Mode mode : {Mode::SHIFT_TO_INT8, Mode::SHIFT_TO_INT16, Mode::QUANTISED_ADD,
                      Mode::QUANTISED_ADD_RELU}) {
        const bool sum = mode == Mode::QUANTISED_ADD || mode == Mode::QUANTISED_ADD_RELU;
        EXPECT_TRUE(has_form(mode, dense, scalar));
        EXPECT_EQ(has_form(mode, dense, dense), sum);
        EXPECT_EQ(has_form(mode, scalar, dense), sum);
        EXPECT_FALSE(has_form(mode, scalar, scalar));
        EXPECT_FALSE(has_form(mode, dense, column));
        EXPECT_FALSE(has_form(mode, gaps, scalar));
    }
}

TEST(ElementwiseMultiType, WrongArgumentsStopTheProcess) {
    const Tensor i8({2, 3}, DType::Int8()), i16({2, 3}, DType::Int16()),
        i32({2, 3}, DType::Int32()), s8({2, 3}, DType::QuantizedS8(1)), u8({2, 3}, DType::Uint8()),
        four({4}, DType::Int8());
    const Tensor empty({0, 3}, DType::Int8()), gaps(strided({2, 3}, {5, 1}, DType::Int8()));
    const struct {
        Mode mode;
        std::vector<RawTensor> inputs;
        RawTensor output;
    } calls[] = {
        {Mode::SHIFT_TO_INT8, {i16.raw()}, i8.raw()},
        {Mode::SHIFT_TO_INT8, {u8.raw(), i8.raw()}, i8.raw()},
        {Mode::SHIFT_TO_INT8, {i16.raw(), i8.raw()}, i16.raw()},
        {Mode::SHIFT_TO_INT8, {i16.raw(), four.raw()}, i8.raw()},
        {Mode::SHIFT_TO_INT8, {empty.raw(), empty.raw()}, empty.raw()},
        {Mode::SHIFT_TO_INT8, {i16.raw(), i8.raw()}, gaps.raw()},
        {Mode::MUL_ADD_TO_INT32, {i32.raw(), i32.raw(), i32.raw()}, i32.raw()},
        {Mode::QUANTISED_ADD, {s8.raw(), i8.raw()}, s8.raw()},
        {Mode::QUANTISED_ADD, {s8.raw(), s8.raw()}, i8.raw()},
        {static_cast<Mode>(8), {i16.raw(), i8.raw()}, i8.raw()},
    };
    for (kern::HandleLevel level : {NAIVE, FALLBACK, ARMV7}) {
        run(level, Mode::SHIFT_TO_INT8, {i16.raw(), i8.raw()}, i8.raw());
        for (const auto& call : calls)
            EXPECT_DEATH(run(level, call.mode, call.inputs, call.output), "")
                << level_name(level) << " " << &call - calls;
    }
}

}  // namespace
}  // namespace kern_test
