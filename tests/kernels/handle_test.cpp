#include "kernels/handle.h"

#include <typeindex>
#include <typeinfo>

#include "kernels/armv7/matrix_mul.h"
#include "kernels/fallback/matrix_mul.h"
#include "kernels/naive/matrix_mul.h"
#include "kernels/naive/relayout.h"
#include "kernels/operators/arg_max.h"
#include "kernels/operators/batched_matrix_mul.h"
#include "kernels/operators/cond_take.h"
#include "kernels/operators/cumsum.h"
#include "kernels/operators/elementwise.h"
#include "kernels/operators/elementwise_multi_type.h"
#include "kernels/operators/reduce.h"
#include "kernels/operators/sorting.h"
#include "kernels/operators/type_cvt.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

TEST(Handle, LevelsAndTheirClasses) {
    const auto naive = make_handle(NAIVE);
    const auto fallback = make_handle(FALLBACK);
    EXPECT_EQ(naive->level(), NAIVE);
    EXPECT_EQ(fallback->level(), FALLBACK);
#if defined(__ARM_NEON)
    constexpr auto BEST = ARMV7;
#else
    const auto BEST = x86_levels().empty() ? FALLBACK : kern::HandleLevel::X86;
#endif
    EXPECT_EQ(kern::inplace_handle()->alignment_requirement(),
              BEST == kern::HandleLevel::X86 ? 64u : 32u);
    EXPECT_EQ(kern::make_handle(inline_computing(), 0)->level(), BEST);
    EXPECT_EQ(kern::inplace_handle()->level(), BEST);
    EXPECT_EQ(kern::make_handle(inline_computing(), 1)->level(), FALLBACK);
    EXPECT_EQ(kern::make_handle(inline_computing(), 2)->level(), NAIVE);
    const auto class_at = [](kern::HandleLevel level) {
        const auto handle = make_handle(level);
        const auto op = handle->create_operator<kern::MatrixMul>();
        const kern::MatrixMul& ref = *op;
        return std::type_index(typeid(ref));
    };
    EXPECT_EQ(class_at(NAIVE), typeid(kern::naive::MatrixMulImpl));
    EXPECT_EQ(class_at(FALLBACK), typeid(kern::fallback::MatrixMulImpl));
    EXPECT_EQ(class_at(ARMV7), typeid(kern::armv7::MatrixMulImpl));

    EXPECT_EQ(naive->image_pitch_alignment(), 1u);
    EXPECT_EQ(kern::make_handle({kern::Platform::OPENCL, nullptr}, 0), nullptr);
}

TEST(Handle, CallbacksSeeOperatorsAndTheEnd) {
    std::vector<kern::KernelOperator*> dead;
    bool ended = false;
    {
        const auto handle = make_handle(FALLBACK);
        handle->set_operator_destructor_callback([&](kern::KernelOperator* op) {
            EXPECT_FALSE(ended);
            dead.push_back(op);
        });
        handle->set_destructor([&] { ended = true; });
        EXPECT_EQ(handle->relayout_operator(), handle->relayout_operator());
        auto op = handle->create_operator<kern::MatrixMul>();
        kern::KernelOperator* address = op.get();
        op.reset();
        EXPECT_EQ(dead, std::vector<kern::KernelOperator*>{address});
    }
    EXPECT_EQ(dead.size(), 2u);  // and the cached relayout operator
    EXPECT_TRUE(ended);
}

// Stateless ones: tests of products run one on two threads.
template <typename... Operators>
std::vector<bool> thread_safe(kern::KernelHandle& handle) {
    return {handle.create_operator<Operators>()->is_thread_safe()...};
}

TEST(Handle, OnlyStatelessOperatorsAreThreadSafe) {
    for (kern::HandleLevel level : LEVELS) {
        const auto handle = make_handle(level);
        EXPECT_EQ((thread_safe<kern::MatrixMul, kern::Relayout>(*handle)),
                  std::vector<bool>(2, true));
        EXPECT_EQ(
            (thread_safe<kern::BatchedMatrixMul, kern::Elementwise, kern::ElementwiseMultiType,
                         kern::Reduce, kern::CondTake, kern::Cumsum, kern::ArgMax, kern::ArgMin,
                         kern::Argsort, kern::TypeCvt, kern::TopK>(*handle)),
            std::vector<bool>(11, false));
    }
}

TEST(Handle, OperatorMayNotOutliveIt) {
    EXPECT_DEATH(
        {
            // The handle's memory must stay readable for the check to be defined.
            alignas(kern::KernelHandle) static uint8_t memory[sizeof(kern::KernelHandle)];
            const auto dispatcher = std::make_shared<kern::InlineDispatcher>();
            auto* handle = new (memory)
                kern::KernelHandle({kern::Platform::CPU, dispatcher}, kern::HandleLevel::NAIVE);
            auto op = handle->create_operator<kern::MatrixMul>();
            handle->~KernelHandle();
            op.reset();
        },
        "");
}

TEST(Workspace, BundlePartsAreAlignedAndInside) {
    alignas(64) uint8_t memory[512];
    const kern::WorkspaceBundle sizes(nullptr, {1, 64, 65}, 64);
    EXPECT_EQ(sizes.total_size(), 64u + 64 + 128 + 64);
    const kern::WorkspaceBundle bundle(memory + 1, {1, 64, 65}, 64);
    EXPECT_EQ(bundle.get(0), memory + 64);
    EXPECT_EQ(bundle.get(2), memory + 192);
}

}  // namespace
}  // namespace kern_test
