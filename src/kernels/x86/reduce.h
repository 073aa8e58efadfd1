// Reduce with wide vectors for the squared norms of rows, which every inserted row passes through.
// Everything else runs at the fallback level, whose bits these are too.
#pragma once

#include "kernels/fallback/reduce.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {

class ReduceImpl final : public fallback::ReduceImpl {
public:
    // Uses the instruction set that is chosen now.
    explicit ReduceImpl(KernelHandle* handle)
        : fallback::ReduceImpl(handle), m_kernels(kernel_table(instruction_set())) {}
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;

private:
    const KernelTable& m_kernels;
};

}  // namespace kern::x86
