// The choice among the algorithms of a convolution, forward or backward, above naive: forced,
// remembered or found anew, for the record of one group, and the run of every group with it.
#pragma once

#include "kernels/naive/convolution_backward.h"
#include "kernels/naive/convolution_forward.h"
#include "kernels/operators/convolution_products.h"

namespace kern::fallback {

// `Naive` is the operator's class at the naive level.
template <typename Naive>
class ConvolutionChoice : public Naive {
public:
    using Naive::Naive;
    using typename Naive::Algorithm;
    using typename Naive::Algorithms;

    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& dst,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    Algorithms all_algorithms(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    const Algorithm* heuristic_algorithm(const TensorLayout& src, const TensorLayout& filter,
                                         const TensorLayout& dst, size_t workspace_limit) override;

    // The same of records. The algorithm is chosen for the record of one group, and each group
    // runs it in turn, in the same workspace.
    virtual void exec_run(const ConvolutionRunRecord& run);
    virtual size_t workspace_of_size(const ConvolutionSizeRecord& size);
    virtual Algorithms all_algorithms_of_size(const ConvolutionSizeRecord& size);
    virtual const Algorithm* heuristic_of_size(const ConvolutionSizeRecord& size,
                                               size_t workspace_limit);

    // The same of records of one group.
    virtual void exec_group_free(const ConvolutionRunRecord& run);
    virtual size_t workspace_group_free(const ConvolutionSizeRecord& size);
    // A level puts its own algorithms, those that can run the record, before those of the level
    // below.
    virtual Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) = 0;
    virtual const Algorithm* heuristic_group_free(const ConvolutionSizeRecord& size,
                                                  size_t workspace_limit);

    // By what the level multiplies.
    virtual const ConvolutionProducts& products() const = 0;

protected:
    // Those of a level's own algorithms that can run the record.
    static void append_usable(const Algorithm* const* begin, const Algorithm* const* end,
                              const ConvolutionSizeRecord& size, Algorithms& list);

private:
    ConvolutionSizeRecord record_of(const TensorLayout& src, const TensorLayout& filter,
                                    const TensorLayout& dst) const;
    // 8-bit integers into 32 bits, and floats with a stated accumulator: the naive operator's. So
    // are questions about operands without elements, which no operator computes.
    bool is_left_to_naive(const TensorLayout& src, const TensorLayout& filter,
                          const TensorLayout& dst) const;
    // The forced algorithm, or that of the last choice if it was for the same record, or a new one.
    const Algorithm* choose(const ConvolutionSizeRecord& size);

    ConvolutionSizeRecord m_chosen_for;
    const Algorithm* m_chosen = nullptr;
};

extern template class ConvolutionChoice<naive::ConvolutionForwardImpl>;
extern template class ConvolutionChoice<naive::ConvolutionBackwardDataImpl>;

// Images of two spatial axes, one group, no dilation; the latter all Float32.
bool is_plain(const ConvolutionSizeRecord& size);
bool is_plain_float32(const ConvolutionSizeRecord& size);

}  // namespace kern::fallback
