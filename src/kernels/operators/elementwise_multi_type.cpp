#include "kernels/operators/elementwise_multi_type.h"

#include "kernels/check.h"

namespace kern {
namespace {

using Mode = ElementwiseMultiType::Mode;

bool gives(Mode mode, DTypeEnum dtype) {
    switch (mode) {
        case Mode::MUL_ADD_TO_INT32:
            return dtype == DTypeEnum::INT32;
        case Mode::SHIFT_TO_INT16:
            return dtype == DTypeEnum::INT16;
        case Mode::QUANTISED_ADD:
        case Mode::QUANTISED_ADD_RELU:
            return dtype == DTypeEnum::QUANTIZED_S32 || dtype == DTypeEnum::QUANTIZED_S8 ||
                   dtype == DTypeEnum::QUANTIZED8_ASYMM;
        default:
            return dtype == DTypeEnum::INT8;
    }
}

}  // namespace

void ElementwiseMultiType::exec(const std::vector<RawTensor>& inputs, const RawTensor& output) {
    const TensorLayout& layout = output.layout;
    KERN_CHECK(layout.is_dense() && layout.ndim != 0);
    for (const RawTensor& input : inputs)
        KERN_CHECK(input.layout.dtype.valid());
    KERN_CHECK(layout.dtype.valid() && gives(m_param.mode, layout.dtype.enum_value()));
    switch (m_param.mode) {
#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity) \
    case Mode::NAME:                                      \
        KERN_CHECK(inputs.size() == arity);               \
        return method(BroadcastSet(inputs, layout), output);
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE
    }
    KERN_FAIL();
}

}  // namespace kern
