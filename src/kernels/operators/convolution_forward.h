// dst = src convolved with filter, image by image, group by group. See convolution.h for shapes.
#pragma once

#include <vector>

#include "kernels/operators/convolution.h"

namespace kern {

// Several algorithms may do: the chosen one is the forced one, or else the first of the list, which
// the arguments alone determine, and never the number of images. Not thread-safe: the last choice
// is kept.
class ConvolutionForward : public ParamOperator<ConvolutionParam> {
public:
    using Algorithm = ConvolutionAlgorithm;
    using Algorithms = std::vector<const Algorithm*>;

    using ParamOperator::ParamOperator;

    // dst has the dtype of MatrixMul::deduce_dtype. Floats of 16 bits are accumulated in 32 and
    // rounded once; integer sums wrap around. Naive adds the products of one output in the order of
    // the filter's memory into one accumulator, and those that would meet the padding are left out;
    // algorithms that fill the padding in multiply zeros there, which differs only where a filter
    // holds an infinity or a NaN. Bits other than naive's: x86, "WINOGRAD".
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

    static TensorShape deduce_shape(const Param& param, const TensorShape& src,
                                    const TensorShape& filter) {
        return convolved_shape(param, src, filter);
    }

protected:
    ConvolutionSizeRecord check_exec(const RawTensor& src, const RawTensor& filter,
                                     const RawTensor& dst, const Workspace& workspace);

private:
    const Algorithm* m_forced = nullptr;
};

}  // namespace kern
