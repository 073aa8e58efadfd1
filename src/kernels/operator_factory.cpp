// The factory of operators, generated from the table of levels, and which level this machine takes.
#include "kernels/arm_common/convolution_forward.h"
#include "kernels/arm_common/elementwise.h"
#include "kernels/arm_common/elementwise_multi_type.h"
#include "kernels/arm_common/type_cvt.h"
#include "kernels/armv7/convolution_forward.h"
#include "kernels/armv7/matrix_mul.h"
#include "kernels/armv7/relayout.h"
#include "kernels/check.h"
#include "kernels/fallback/batched_matrix_mul.h"
#include "kernels/fallback/convolution_backward_data.h"
#include "kernels/fallback/convolution_forward.h"
#include "kernels/fallback/elementwise.h"
#include "kernels/fallback/elementwise_multi_type.h"
#include "kernels/fallback/matrix_mul.h"
#include "kernels/fallback/reduce.h"
#include "kernels/fallback/relayout.h"
#include "kernels/fallback/type_cvt.h"
#include "kernels/handle.h"
#include "kernels/naive/arg_max.h"
#include "kernels/naive/batched_matrix_mul.h"
#include "kernels/naive/cond_take.h"
#include "kernels/naive/conv_bias.h"
#include "kernels/naive/convolution_backward.h"
#include "kernels/naive/convolution_forward.h"
#include "kernels/naive/cumsum.h"
#include "kernels/naive/elementwise.h"
#include "kernels/naive/elementwise_multi_type.h"
#include "kernels/naive/mask_conv.h"
#include "kernels/naive/matrix_mul.h"
#include "kernels/naive/reduce.h"
#include "kernels/naive/relayout.h"
#include "kernels/naive/sorting.h"
#include "kernels/naive/type_cvt.h"
#if defined(__x86_64__)
#include "kernels/x86/convolution_forward.h"
#include "kernels/x86/cpu.h"
#include "kernels/x86/matrix_mul.h"
#include "kernels/x86/reduce.h"
#endif

namespace kern {

HandleLevel best_level() {
#if defined(__ARM_NEON)
    return HandleLevel::ARMV7;
#elif defined(__x86_64__)
    const bool has_x86 = x86::best_instruction_set() != x86::InstructionSet::NONE;
    return has_x86 ? HandleLevel::X86 : HandleLevel::FALLBACK;
#else
    return HandleLevel::FALLBACK;
#endif
}

#if defined(__x86_64__)
#define KERN_X86_CASE(Class) \
    case HandleLevel::X86:   \
        return std::make_unique<Class>(this);
#else
#define KERN_X86_CASE(Class)
#endif

#define KERN_OPERATOR(position, Operator, Naive, Fallback, ArmCommon, Armv7, X86Class) \
    template <>                                                                        \
    std::unique_ptr<Operator> KernelHandle::create_operator<Operator>() {              \
        switch (m_level) {                                                             \
            case HandleLevel::NAIVE:                                                   \
                return std::make_unique<Naive>(this);                                  \
            case HandleLevel::FALLBACK:                                                \
                return std::make_unique<Fallback>(this);                               \
            case HandleLevel::ARM_COMMON:                                              \
                return std::make_unique<ArmCommon>(this);                              \
            case HandleLevel::ARMV7:                                                   \
                return std::make_unique<Armv7>(this);                                  \
                KERN_X86_CASE(X86Class)                                                \
            default:                                                                   \
                KERN_FAIL();                                                           \
        }                                                                              \
    }
#include "kernels/operator_table.inc"
#undef KERN_OPERATOR
#undef KERN_X86_CASE

std::unique_ptr<Relayout> KernelHandle::create_shared_relayout() {
    if (m_level == HandleLevel::NAIVE)
        return std::make_unique<naive::RelayoutImpl>(this);
    return std::make_unique<fallback::RelayoutImpl>(this);
}

}  // namespace kern
