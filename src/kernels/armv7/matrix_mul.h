// Matrix product for 32-bit Arm: Float32 by the blocked routine of float_product.h, signed bytes by
// int8_product.h (which alone may differ from the naive level: see there) and, into 16 bits, by
// int8_to_int16_product.h. What has no routine here runs at the fallback level.
#pragma once

#include "kernels/fallback/matrix_mul.h"

namespace kern::armv7 {

class MatrixMulImpl : public fallback::MatrixMulImpl {
public:
    using fallback::MatrixMulImpl::MatrixMulImpl;
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                              const TensorLayout& c) override;

    enum class IntegerPath { INT8_TO_INT16, INT8, FALLBACK };
    // What `exec` does with arguments of these layouts; the fallback level has its own paths.
    IntegerPath integer_path(const TensorLayout& a, const TensorLayout& c) const;

protected:
    void exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                    const Workspace& workspace) override;
    size_t float_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const override;
    // The product into 32 bits. `exec` has checked the arguments.
    virtual void exec_int8(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                           const Workspace& workspace);
    virtual size_t int8_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const;
    virtual bool can_run_int8() const;
};

}  // namespace kern::armv7
