// Collapses one axis of a tensor to length 1.
#pragma once

#include <cstdint>

#include "kernels/handle.h"
#include "kernels/operators/axis_split.h"

namespace kern {

// Numbers never change.
enum class ReduceMode : uint32_t { SUM = 0, SUM_SQR = 1, PRODUCT = 2, MIN = 3, MAX = 4, MEAN = 5 };

enum class ReduceDataType : uint32_t {
    DEFAULT = 0,          // accumulate and store in the input's dtype
    FLOAT_IO16_CO32 = 1,  // not implemented: stops the process
    FLOAT_O32 = 2,        // float in and out, Float32 as the working dtype
    FLOAT_O16 = 3,        // as FLOAT_O32
    QUINT_I8_O32 = 4,     // Quantized8Asymm input
};

struct ReduceParam {
    ReduceMode mode = ReduceMode::SUM;
    int32_t axis = 0;
    ReduceDataType data_type = ReduceDataType::DEFAULT;
};

class Reduce : public ParamOperator<ReduceParam> {
public:
    using ParamOperator::ParamOperator;

    // Both layouts dense, of the same ndim; `dst` has length 1 on the axis and equal lengths
    // elsewhere. An axis of length 1 is copied, except by SUM_SQR. Results that a quantised `dst`
    // cannot hold saturate; a quantised mean with DEFAULT truncates toward zero.
    // Each level combines elements in an order of its own. So float results of two levels may
    // differ in the last bits, and a MIN or MAX of a line with a NaN, which loses every comparison
    // as first operand and wins it as second, in the value.
    virtual void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size);
    // What elements are converted to before they are combined.
    DType working_dtype(DType src) const;
};

}  // namespace kern
