// Matrix products with AVX2 or AVX-512: Float32, and 8-bit integers into 32 bits. Everything else
// runs at the fallback level.
//
// A Float32 product is 16 partial sums, fused and then added as a tree (kernel_table.h). That order
// is the same for every size, form, place and instruction set, but not that of the levels below.
#pragma once

#include "kernels/fallback/matrix_mul.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {

class MatrixMulImpl final : public fallback::MatrixMulImpl {
public:
    // Uses the instruction set that is chosen now.
    explicit MatrixMulImpl(KernelHandle* handle);
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
    void exec_folded(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                     const std::vector<Epilogue>& epilogues, const Workspace& workspace) override;
    // A subtraction of an {M, 1}, then one of a {1, N}, or either alone; dense, of C's dtype.
    size_t nr_foldable(const TensorLayout& a, const TensorLayout& c,
                       const std::vector<Epilogue>& epilogues) const override;
    size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                              const TensorLayout& c) override;
    const KernelTable& kernels() const { return m_kernels; }

private:
    bool can_run_int8(const TensorLayout& a) const;

    const KernelTable& m_kernels;
};

}  // namespace kern::x86
