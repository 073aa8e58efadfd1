#include "kernels/operators/cond_take.h"

#include "tests/kernels/dispatchers.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::CondTake;
using kern::CondTakeMode;

const DType F32 = DType::Float32(), I32 = DType::Int32();

bool passes(const CondTake::Param& param, double x, bool is_float) {
    const auto value = static_cast<double>(param.value), eps = static_cast<double>(param.eps);
    const bool equal = is_float ? std::fabs(x - value) < eps : x == value;
    switch (param.mode) {
        case CondTakeMode::EQUAL:
            return equal;
        case CondTakeMode::NOT_EQUAL:
            return !equal;
        case CondTakeMode::LESS:
            return x < value;
        case CondTakeMode::LESS_EQUAL:
            return x <= value;
        case CondTakeMode::GREATER:
            return x > value;
        default:
            return x >= value;
    }
}

// Outputs end at an unmapped page.
void expect_taken(kern::KernelHandle& handle, const CondTake::Param& param, const Tensor& data,
                  const Tensor& mask) {
    SCOPED_TRACE(mask.layout().dtype.name() + std::string(" mode ") +
                 std::to_string(static_cast<uint32_t>(param.mode)));
    const auto op = handle.create_operator<CondTake>();
    op->param() = param;
    const size_t count = data.layout().element_count();
    const size_t bytes = op->workspace_in_bytes(data.layout(), mask.layout());
    EXPECT_EQ(bytes, (count + 1) * 4);
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
    const bool is_float = mask.layout().dtype.category() == kern::DTypeCategory::FLOAT;
    size_t nr = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!passes(param, mask.get(i), is_float))
            continue;
        ASSERT_LT(nr, outputs.data.layout.element_count());
        ASSERT_EQ(made[0]->get(nr), data.get(i));
        ASSERT_EQ(made[1]->get(nr++), i);
    }
    ASSERT_EQ(nr, outputs.data.layout.element_count());
}

TEST(CondTake, EveryModeAndDtype) {
    std::mt19937 random(12);
    const DType data_types[] = {F32, DType::Int16(), DType::QuantizedS8(0.5f)};
    for (DType mask_type : number_types())
        for (DType data_type : data_types)
            for (uint32_t mode = 0; mode <= 5; ++mode)
                for (float value : {0.0f, 1.0f, 1.5f, 100.0f})
                    for (kern::HandleLevel level : LEVELS) {
                        Tensor data({5, 7}, data_type), mask({5, 7}, mask_type);
                        data.fill_integers(random, -50, 50);
                        mask.fill_integers(random, 0, 3);
                        if (mask_type.category() == kern::DTypeCategory::FLOAT)
                            mask.set(3, NAN);
                        expect_taken(*make_handle(level),
                                     {static_cast<CondTakeMode>(mode), value, 0.75f}, data, mask);
                    }
}

// Integers beyond what a float holds are still told apart; what is taken is known only once the
// queue has run.
TEST(CondTake, LargeIntegersOnAQueuedDispatcher) {
    Tensor data({3}, F32), mask({3}, I32);
    data.fill_with({10, 20, 30});
    mask.fill_with({16777216, 16777217, 16777218});
    const auto handle = kern::make_handle_of_level(
        {kern::Platform::CPU, std::make_shared<HoldingDispatcher>()}, FALLBACK);
    for (CondTakeMode mode : {CondTakeMode::EQUAL, CondTakeMode::GREATER})
        expect_taken(*handle, {mode, 16777216.0f, 1}, data, mask);
}

}  // namespace
}  // namespace kern_test
