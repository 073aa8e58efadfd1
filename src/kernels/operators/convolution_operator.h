// The form that convolutions share in all directions: which operands there are, and the choice
// among several algorithms that may do. See convolution.h for shapes and names.
#pragma once

#include <vector>

#include "kernels/check.h"
#include "kernels/operators/convolution.h"

namespace kern {

// The chosen algorithm is the forced one, or else the first of the list, which the arguments alone
// determine, and never the number of images. Not thread-safe: the last choice is kept.
template <typename P, ConvolutionOperand OPERAND>
class ConvolutionOperator : public ParamOperator<P> {
public:
    using Algorithm = ConvolutionAlgorithm;
    using Algorithms = std::vector<const Algorithm*>;
    static constexpr ConvolutionOperand WRITTEN = OPERAND;

    using ParamOperator<P>::ParamOperator;

    // Writes the operand WRITTEN, of the dtype of MatrixMul::deduce_dtype, and reads the others,
    // which have one dtype. Floats of 16 bits are accumulated in 32 and rounded once; integer sums
    // wrap around.
    virtual void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& dst,
                      const Workspace& workspace) = 0;
    // Of the algorithm that `exec` takes.
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                                      const TensorLayout& dst) = 0;

    // What can run these arguments, the preferred one first. Never empty.
    virtual Algorithms all_algorithms(const TensorLayout& src, const TensorLayout& filter,
                                      const TensorLayout& dst) = 0;
    // The first of them that needs at most so many bytes; where none does, the process stops.
    virtual const Algorithm* heuristic_algorithm(const TensorLayout& src,
                                                 const TensorLayout& filter,
                                                 const TensorLayout& dst,
                                                 size_t workspace_limit) = 0;
    virtual const char* algorithm_set_name() const = 0;

    // Taken instead of a choice, for arguments that it can run; null for none. One of this level's
    // list.
    void force_algorithm(const Algorithm* algorithm) { m_forced = algorithm; }
    const Algorithm* forced_algorithm() const { return m_forced; }

    // Of the written operand, for the shapes of the others in their order: the smallest images.
    static TensorShape deduce_shape(const P& param, const TensorShape& first,
                                    const TensorShape& second) {
        static_assert(WRITTEN != ConvolutionOperand::FILTER, "filters of several sizes would fit");
        if constexpr (WRITTEN == ConvolutionOperand::DST)
            return convolved_shape(param, first, second);
        else
            return least_src_shape(param, first, second);
    }

protected:
    ConvolutionSizeRecord size_of(const TensorLayout& src, const TensorLayout& filter,
                                  const TensorLayout& dst) const {
        return convolution_size(this->m_param, src, filter, dst, WRITTEN);
    }
    static ConvolutionRunRecord run_of(const ConvolutionSizeRecord& size, const RawTensor& src,
                                       const RawTensor& filter, const RawTensor& dst,
                                       const Workspace& workspace) {
        ConvolutionRunRecord run(size);
        run.src = src.raw_ptr;
        run.filter = filter.raw_ptr;
        run.dst = dst.raw_ptr;
        run.workspace = workspace;
        return run;
    }

private:
    const Algorithm* m_forced = nullptr;
};

}  // namespace kern
