// Matrix product with packed panels for Float32, and by whole rows for very short integer products.
// Everything else runs at the naive level, whose bits all paths here have.
#pragma once

#include "kernels/naive/matrix_mul.h"

namespace kern::fallback {

class MatrixMulImpl : public naive::MatrixMulImpl {
public:
    using naive::MatrixMulImpl::MatrixMulImpl;
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                              const TensorLayout& c) override;

    enum class Path {
        ROWS,  // a very short integer product by whole rows: the first choice at this level and
               // above
        FLOAT,
        NAIVE,
    };
    // What `exec` does with arguments of these layouts.
    Path path(const TensorLayout& a, const TensorLayout& c) const;

protected:
    // The float product, which a level above may replace. `exec` has checked the arguments.
    virtual void exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                            const Workspace& workspace);
    virtual bool can_run_float(const TensorLayout& a) const;
    virtual size_t float_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const;

private:
    void exec_rows(const RawTensor& a, const RawTensor& b, const RawTensor& c);
    bool can_accumulate_rows(const TensorLayout& a, const TensorLayout& c) const;
};

}  // namespace kern::fallback
