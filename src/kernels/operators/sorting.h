// Argsort and TopK: the order of the elements of each row. Both compare by value and then by index,
// so their results are determined by the values. A NaN counts as larger than every number.
#pragma once

#include "kernels/handle.h"

namespace kern {

// Numbers never change. DESCENDING is exactly the reverse of ASCENDING: equal
// values come by falling index.
enum class ArgsortOrder : uint32_t { ASCENDING = 0, DESCENDING = 1 };

struct ArgsortParam {
    ArgsortOrder order = ArgsortOrder::ASCENDING;
};

class Argsort : public ParamOperator<ArgsortParam> {
public:
    using Order = ArgsortOrder;
    using ParamOperator::ParamOperator;

    // All dense and of shape {rows, length}: `src` and `dst` Float32, `indices` Int32. `dst`
    // may not be the memory of `src`.
    virtual void exec(const RawTensor& src, const RawTensor& dst, const RawTensor& indices,
                      const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst,
                                      const TensorLayout& indices) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst, const TensorLayout& indices,
                    size_t workspace_size);
};

// Numbers never change.
enum class TopKMode : uint32_t {
    KTH_VALUE = 0,  // the value at position |k| of the order alone
    UNORDERED = 1,  // the |k| first values and their indices, in no stated order
    ORDERED = 2,    // the same in order
};

struct TopKParam {
    TopKMode mode = TopKMode::KTH_VALUE;
};

class TopK : public ParamOperator<TopKParam> {
public:
    using Mode = TopKMode;
    struct Outputs {
        TensorLayout values;   // the data's dtype: {rows} for KTH_VALUE, otherwise {rows, |k|}
        TensorLayout indices;  // Int32 {rows, |k|}; without a shape for KTH_VALUE, which has none
    };

    using ParamOperator::ParamOperator;

    // `data` is dense {rows, length} of plain numbers. A positive `k` selects from the smallest on,
    // a negative one from the largest; |k| is from 1 to length. The outputs are dense. The
    // workspace needs no alignment.
    virtual void exec(int32_t k, const RawTensor& data, const RawTensor& values,
                      const RawTensor& indices, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(int32_t k, const TensorLayout& data,
                                      const TensorLayout& values, const TensorLayout& indices) = 0;

    Outputs deduce_outputs(int32_t k, const TensorLayout& data) const;

protected:
    void check_exec(int32_t k, const TensorLayout& data, const TensorLayout& values,
                    const TensorLayout& indices, size_t workspace_size);
};

}  // namespace kern
