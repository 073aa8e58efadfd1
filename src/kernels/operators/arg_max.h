// Where the largest or the smallest element along an axis stands.
#pragma once

#include "kernels/handle.h"
#include "kernels/operators/axis_split.h"

namespace kern {

struct ArgSelectParam {
    int32_t axis = 0;
};

class ArgSelect : public ParamOperator<ArgSelectParam> {
public:
    using ParamOperator::ParamOperator;

    // Both dense; `src` holds plain numbers, `dst` is Int32 with length 1 on the axis and
    // equal lengths elsewhere. The first of equal elements wins. A line without an element beyond
    // the worst finite value of the dtype, such as one of NaN alone, gives -1.
    virtual void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size);
};

class ArgMax : public ArgSelect {
public:
    using ArgSelect::ArgSelect;
};

class ArgMin : public ArgSelect {
public:
    using ArgSelect::ArgSelect;
};

}  // namespace kern
