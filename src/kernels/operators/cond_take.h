// Takes the elements at which a mask passes a test, in order.
#pragma once

#include <functional>

#include "kernels/handle.h"

namespace kern {

// Numbers never change. EQUAL and NOT_EQUAL on float masks mean nearer to the value
// than `eps`, and not so.
enum class CondTakeMode : uint32_t {
    EQUAL = 0,
    NOT_EQUAL = 1,
    LESS = 2,
    LESS_EQUAL = 3,
    GREATER = 4,
    GREATER_EQUAL = 5,
};

struct CondTakeParam {
    CondTakeMode mode = CondTakeMode::EQUAL;
    float value = 1;
    float eps = 1e-6f;  // above zero
};

class CondTake : public ParamOperator<CondTakeParam> {
public:
    struct Outputs {
        RawTensor data;     // the selected elements, in one axis
        RawTensor indices;  // their Int32 positions in row-major order
    };
    // Memory for a dense tensor; runs in the calling thread. The shape may have no elements.
    using OutputAllocator = std::function<RawTensor(DType, const TensorShape&)>;

    using ParamOperator::ParamOperator;

    // `data` and `mask` are dense and of one shape, the mask of plain numbers. Waits for all
    // tasks of the dispatcher, because the outputs are allocated only once their length is known;
    // they are filled by a further task. The workspace is aligned to 4 bytes.
    virtual Outputs exec(const RawTensor& data, const RawTensor& mask, const Workspace& workspace,
                         const OutputAllocator& output_allocator) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& data, const TensorLayout& mask) = 0;

protected:
    void check_exec(const TensorLayout& data, const TensorLayout& mask, size_t workspace_size);
};

}  // namespace kern
