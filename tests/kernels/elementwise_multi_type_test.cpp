// Operators on integers of several widths and on quantised numbers: every level against one formula
// per mode. Values are whole numbers or, of Float32, quarters: doubles hold them exactly.
#include "kernels/operators/elementwise_multi_type.h"

#include <cmath>
#include <functional>

#include "kernels/arm_common/elementwise_multi_type.h"
#include "tests/kernels/elementwise_reference.h"

namespace kern_test {
namespace {

using Mode = kern::ElementwiseMultiType::Mode;

const DType F32 = DType::Float32(), I8 = DType::Int8(), I16 = DType::Int16(), I32 = DType::Int32();

double clamp(double value, double least, double most) {
    return value < least ? least : value > most ? most : value;
}

double clamp_to_bits(double value, int bits) {
    return clamp(value, -std::ldexp(1.0, bits - 1), std::ldexp(1.0, bits - 1) - 1);
}

// x >> count, rounded to nearest; a count out of range leaves the sign.
double shifted(double x, double count) {
    if (count < 0 || count >= 32)
        return x < 0 ? -1 : 0;
    return std::round(std::ldexp(x, -static_cast<int>(count)));
}

// What the low bits of a whole number mean as a signed one.
int64_t wrapped(int64_t value, int bits) {
    const int64_t half = int64_t{1} << (bits - 1);
    return ((value + half) & (2 * half - 1)) - half;
}

struct Case {
    Mode mode;
    std::vector<DType> inputs;
    DType output;
    std::function<double(const Inputs<double>&)> formula;
    bool shifts = false;  // by the last input
};

std::vector<Case> integer_cases() {
    using In = const Inputs<double>&;
    const auto whole = [](double value) { return static_cast<int64_t>(value); };
    const auto mul_add = [=](In v) {
        return static_cast<double>(wrapped(whole(v.x) * whole(v.y) + whole(v.z), 32));
    };
    const auto float_mul_add = [](In v) {
        const float product = static_cast<float>(v.x) * static_cast<float>(v.y);
        const float sum = product + static_cast<float>(v.z);
        return clamp_to_bits(std::nearbyint(static_cast<double>(sum)), 8);
    };
    const auto add_mul_shift = [=](int bits) {
        return [=](In v) {
            const int64_t sum = wrapped(whole(v.x) + whole(v.y), bits);
            const int64_t product = rounded_high_product({sum, whole(v.z), 0, 0, bits});
            return clamp_to_bits(shifted(static_cast<double>(product), v.w), 8);
        };
    };
    const auto shift = [](int bits) {
        return [=](In v) { return clamp_to_bits(shifted(v.x, v.y), bits); };
    };
    std::vector<Case> result = {{Mode::MUL_ADD_TO_INT32, {I16, I32, I32}, I32, mul_add},
                                {Mode::MUL_ADD_TO_INT8, {I16, F32, F32}, I8, float_mul_add},
                                {Mode::MUL_ADD_TO_INT8, {I32, F32, F32}, I8, float_mul_add}};
    for (DType n : {I8, I16, I32}) {
        result.push_back(
            {Mode::ADD_MUL_SHIFT_INT16, {I16, I16, I16, n}, I8, add_mul_shift(16), true});
        result.push_back(
            {Mode::ADD_MUL_SHIFT_INT32, {I32, I32, I32, n}, I8, add_mul_shift(32), true});
        for (DType x : {I8, I16, I32}) {
            result.push_back({Mode::SHIFT_TO_INT8, {x, n}, I8, shift(8), true});
            result.push_back({Mode::SHIFT_TO_INT16, {x, n}, I16, shift(16), true});
        }
    }
    return result;
}

// The real values are added in Float32, and the sum is rounded to the output's scale.
std::vector<Case> quantised_cases() {
    const struct {
        DType dtype;
        float scale;
        double zero_point, least, most;
    } outputs[] = {{DType::QuantizedS8(0.5f), 0.5f, 0, -128, 127},
                   {DType::QuantizedS8(0.3f), 0.3f, 0, -128, 127},
                   {DType::Quantized8Asymm(0.7f, 130), 0.7f, 130, 0, 255},
                   {DType::Quantized8Asymm(2.0f, 3), 2.0f, 3, 0, 255},
                   {DType::QuantizedS32(0.1f), 0.1f, 0, INT32_MIN, INT32_MAX},
                   {DType::QuantizedS32(1e-9f), 1e-9f, 0, INT32_MIN, INT32_MAX}};
    std::vector<Case> result;
    for (const auto& out : outputs)
        for (Mode mode : {Mode::QUANTISED_ADD, Mode::QUANTISED_ADD_RELU}) {
            const auto formula = [=](const Inputs<double>& v) {
                float sum = static_cast<float>(v.x) * 0.25f + static_cast<float>(v.y) * 0.75f;
                if (mode == Mode::QUANTISED_ADD_RELU && sum < 0)
                    sum = 0;
                const double units = std::round(static_cast<double>(sum / out.scale));
                return clamp(units + out.zero_point, out.least, out.most);
            };
            const DType x = DType::QuantizedS8(0.25f), y = DType::QuantizedS8(0.75f);
            result.push_back({mode, {x, y}, out.dtype, formula});
        }
    return result;
}

// Shift counts lie around all widths; other integers take all values of their type, and often few
// bits, so that sums of floats have ties.
void fill(Tensor& tensor, bool is_count, std::mt19937& random) {
    const DType dtype = tensor.layout().dtype;
    tensor.fill([&]() -> double {
        const auto word = static_cast<int32_t>(random());
        if (dtype == F32)
            return word % 64 / 4.0;
        if (is_count)
            return word % 36;
        if (word % 16 == 0)
            return -std::ldexp(1.0, static_cast<int>(8 * dtype.element_bytes()) - 1);
        return word % 16 == 1 ? INT32_MAX : word >> (random() % 32);
    });
}

struct Form {
    TensorShape output;
    std::vector<TensorShape> inputs;  // the last one for the inputs that are left
};

std::vector<Form> forms() {
    std::vector<Form> result = {{{3, 5}, {{3, 5}, {3, 1}}},
                                {{3, 5}, {{5}, {3, 5}}},
                                {{2, 3, 5}, {{2, 1, 5}, {3, 1}, {1}, {5}}}};
    for (size_t n : Sizes{1, 7, 8, 9, 16, 33})
        for (const Form& form :
             {Form{{n}, {{n}}}, Form{{3, n}, {{3, n}, {1}}}, Form{{3, n}, {{1}, {3, n}}}})
            result.push_back(form);
    return result;
}

void expect_formula(const Case& c, const Form& form, std::mt19937& random) {
    std::vector<std::unique_ptr<Tensor>> tensors;
    std::vector<RawTensor> inputs;
    for (size_t i = 0; i < c.inputs.size(); ++i) {
        const TensorShape& shape = form.inputs[std::min(i, form.inputs.size() - 1)];
        tensors.push_back(std::make_unique<Tensor>(shape, c.inputs[i]));
        fill(*tensors.back(), c.shifts && i + 1 == c.inputs.size(), random);
        inputs.push_back(tensors.back()->raw());
    }
    for (kern::HandleLevel level : LEVELS) {
        const Tensor output(form.output, c.output);
        run_elementwise<kern::ElementwiseMultiType>(level, c.mode, inputs, output.raw());
        for (size_t i = 0; i < form.output.element_count(); ++i) {
            double v[4] = {};
            for (size_t n = 0; n < inputs.size(); ++n)
                v[n] = broadcast_get(*tensors[n], form.output, i);
            ASSERT_EQ(output.get(i), c.formula({v[0], v[1], v[2], v[3]}))
                << level_name(level) << " mode " << static_cast<int>(c.mode) << " "
                << c.inputs[0].name() << " to " << c.output.name() << " of " << v[0] << " " << v[1]
                << " " << v[2] << " " << v[3];
        }
    }
}

TEST(ElementwiseMultiType, EveryLevelModeDtypeAndFormGivesTheFormula) {
    std::mt19937 random(7);
    for (const std::vector<Case>& cases : {integer_cases(), quantised_cases()})
        for (const Case& c : cases)
            for (const Form& form : forms())
                expect_formula(c, form, random);
}

TEST(ElementwiseMultiType, FormsWithVectors) {
    const TensorLayout dense({3, 8}, I8), scalar({1}, I8), column({3, 1}, I8),
        gaps = strided({3, 8}, {9, 1}, I8);
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

}  // namespace
}  // namespace kern_test
