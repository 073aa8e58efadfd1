#include "kernels/cond_take.h"

#include "tests/kernels/dispatchers.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::CondTake;
using kern::CondTakeMode;

const DType F32 = DType::Float32(), I32 = DType::Int32();

struct Taken {
    std::vector<double> data, indices;
};

// Runs the operator with outputs that end at an unmapped page.
Taken take(kern::KernelHandle& handle, const CondTake::Param& param, const Tensor& data,
           const Tensor& mask) {
    const auto op = handle.create_operator<CondTake>();
    op->param() = param;
    const size_t bytes = op->workspace_in_bytes(data.layout(), mask.layout());
    EXPECT_EQ(bytes, (data.layout().element_count() + 1) * 4);
    const GuardedBuffer workspace(bytes);
    std::vector<std::unique_ptr<Tensor>> made;
    const auto outputs = op->exec(data.raw(), mask.raw(), {workspace.data(), bytes},
                                  [&](DType dtype, const TensorShape& shape) {
                                      made.push_back(std::make_unique<Tensor>(shape, dtype));
                                      return made.back()->raw();
                                  });
    handle.sync();
    EXPECT_EQ(outputs.data.layout.dtype, data.layout().dtype);
    EXPECT_EQ(outputs.indices.layout.dtype, I32);
    Taken taken;
    for (size_t i = 0; i < outputs.data.layout.element_count(); ++i) {
        taken.data.push_back(made[0]->get(i));
        taken.indices.push_back(made[1]->get(i));
    }
    return taken;
}

bool passes(const CondTake::Param& param, double x, bool is_float) {
    const bool equal =
        is_float ? std::fabs(x - static_cast<double>(param.value)) < static_cast<double>(param.eps)
                 : x == static_cast<double>(param.value);
    switch (param.mode) {
        case CondTakeMode::EQUAL:
            return equal;
        case CondTakeMode::NOT_EQUAL:
            return !equal;
        case CondTakeMode::LESS:
            return x < param.value;
        case CondTakeMode::LESS_EQUAL:
            return x <= param.value;
        case CondTakeMode::GREATER:
            return x > param.value;
        default:
            return x >= param.value;
    }
}

TEST(CondTake, EveryModeAndDtype) {
    std::mt19937 random(12);
    const DType data_types[] = {F32, DType::Int16(), DType::QuantizedS8(0.5f)};
    for (DType mask_type : number_types())
        for (DType data_type : data_types)
            for (uint32_t mode = 0; mode <= 5; ++mode)
                for (float value : {0.0f, 1.0f, 1.5f, 100.0f})
                    for (kern::HandleLevel level : LEVELS) {
                        const bool is_float = mask_type.category() == kern::DTypeCategory::FLOAT;
                        const CondTake::Param param{static_cast<CondTakeMode>(mode), value, 0.75f};
                        Tensor data({5, 7}, data_type), mask({5, 7}, mask_type);
                        data.fill_integers(random, -50, 50);
                        mask.fill_integers(random, 0, 3);
                        if (is_float)
                            mask.set(3, NAN);
                        const auto handle = make_handle(level);
                        const Taken taken = take(*handle, param, data, mask);
                        Taken wanted;
                        for (size_t i = 0; i < 35; ++i)
                            if (passes(param, mask.get(i), is_float)) {
                                wanted.data.push_back(data.get(i));
                                wanted.indices.push_back(static_cast<double>(i));
                            }
                        ASSERT_EQ(taken.data, wanted.data) << mask_type.name() << " mode " << mode;
                        ASSERT_EQ(taken.indices, wanted.indices);
                    }
}

// Integers beyond what a float holds are still told apart.
TEST(CondTake, LargeIntegersCompareExactly) {
    Tensor data({3}, F32), mask({3}, I32);
    int next = 16777215;
    data.fill([] { return 1; });
    mask.fill([&] { return ++next; });
    const auto handle = make_handle(FALLBACK);
    const auto indices = [&](CondTakeMode mode) {
        return take(*handle, {mode, 16777216.0f, 1}, data, mask).indices;
    };
    EXPECT_EQ(indices(CondTakeMode::EQUAL), std::vector<double>{0});
    EXPECT_EQ(indices(CondTakeMode::GREATER), (std::vector<double>{1, 2}));
}

TEST(CondTake, WaitsForTheCountOnAQueuedDispatcher) {
    const auto handle = kern::make_handle_of_level(
        {kern::Platform::CPU, std::make_shared<ThreadDispatcher>()}, FALLBACK);
    Tensor data({4}, F32), mask({4}, DType::Int8());
    int next = 0;
    data.fill([&] { return next++ * 10; });
    mask.fill([&] { return next++ % 2; });
    const Taken taken = take(*handle, {CondTakeMode::EQUAL, 1, 1}, data, mask);
    EXPECT_EQ(taken.data, (std::vector<double>{10, 30}));
    EXPECT_EQ(taken.indices, (std::vector<double>{1, 3}));
}

TEST(CondTake, WrongArgumentsStopTheProcess) {
    const auto handle = make_handle(FALLBACK);
    const Tensor data({2, 3}, F32), mask({2, 3}, I32);
    const CondTake::Param good;
    EXPECT_DEATH(take(*handle, {CondTakeMode::LESS, 1, 0}, data, mask), "");
    EXPECT_DEATH(take(*handle, {CondTakeMode::LESS, 1, NAN}, data, mask), "");
    EXPECT_DEATH(take(*handle, {static_cast<CondTakeMode>(6), 1, 1}, data, mask), "");
    EXPECT_DEATH(take(*handle, good, data, Tensor({3, 2}, I32)), "");
    EXPECT_DEATH(take(*handle, good, data, Tensor({2, 3}, DType::QuantizedS8(1))), "");
    EXPECT_DEATH(take(*handle, good, Tensor(strided({2, 3}, {4, 1}, F32)), mask), "");
}

}  // namespace
}  // namespace kern_test
