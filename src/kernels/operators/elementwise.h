// One formula applied to each element of one to four inputs that are broadcast to the output shape.
#pragma once

#include <cstdint>
#include <vector>

#include "kernels/handle.h"

namespace kern {

// The numbers never change; the formulas stand in `elementwise_modes.inc`.
enum class ElementwiseMode : uint32_t {
#define KERN_ELEMENTWISE_MODE(number, name, ...) name = number,
#include "kernels/operators/elementwise_modes.inc"
#undef KERN_ELEMENTWISE_MODE
};

// What a mode takes. The fused products FUSE_MUL_ADD3 and FUSE_MUL_ADD4 are marked for neither kind
// of number and take both.
struct ModeTrait {
    uint32_t arity;
    bool commutable;
    bool allow_int;
    bool allow_float;
    const char* name;

    // Stops the process on a mode that does not exist.
    static const ModeTrait& of(ElementwiseMode mode);
    static uint32_t count();  // of the modes, which are numbered from 0

    constexpr bool accepts(DTypeCategory category) const {
        const bool unmarked = !allow_int && !allow_float;
        switch (category) {
            case DTypeCategory::FLOAT:
                return allow_float || unmarked;
            case DTypeCategory::INTEGER:
                return allow_int || unmarked;
            default:
                return false;
        }
    }
};

struct ElementwiseParam {
    ElementwiseMode mode{};
};

class Elementwise : public ParamOperator<ElementwiseParam> {
public:
    using ParamOperator::ParamOperator;

    // All tensors have one dtype; the output is dense, not empty, and every input can be broadcast
    // to its shape. The output may be the memory of an input of the same layout.
    virtual void exec(const std::vector<RawTensor>& inputs, const RawTensor& output) = 0;

    // Shapes align on the right; lengths of a pair must be equal or one of them 1.
    static TensorShape deduce_output_shape(const std::vector<TensorShape>& inputs);

protected:
    void check_exec(const std::vector<RawTensor>& inputs, const RawTensor& output) const;
};

}  // namespace kern
