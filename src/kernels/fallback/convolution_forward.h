// Convolution by the packed product of filters and patches ("F"), or by the naive loops ("N"). The
// choice among algorithms, which the levels above extend with their own.
#pragma once

#include "kernels/naive/convolution_forward.h"
#include "kernels/operators/convolution_products.h"

namespace kern::fallback {

class ConvolutionForwardImpl : public naive::ConvolutionForwardImpl {
public:
    using naive::ConvolutionForwardImpl::ConvolutionForwardImpl;
    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& dst,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    Algorithms all_algorithms(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    const Algorithm* heuristic_algorithm(const TensorLayout& src, const TensorLayout& filter,
                                         const TensorLayout& dst, size_t workspace_limit) override;
    const char* algorithm_set_name() const override { return "F0"; }

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
    virtual Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size);
    virtual const Algorithm* heuristic_group_free(const ConvolutionSizeRecord& size,
                                                  size_t workspace_limit);

    // By what the level multiplies.
    virtual const ConvolutionProducts& products() const;

protected:
    // Those of a level's own algorithms that can run the record.
    static void append_usable(const Algorithm* const* begin, const Algorithm* const* end,
                              const ConvolutionSizeRecord& size, Algorithms& list);

private:
    ConvolutionSizeRecord size_of(const TensorLayout& src, const TensorLayout& filter,
                                  const TensorLayout& dst) const;
    // 8-bit integers into 32 bits, and floats with a stated accumulator: the naive operator's.
    bool is_left_to_naive() const;
    // The forced algorithm, or that of the last choice if it was for the same record, or a new one.
    const Algorithm* choose(const ConvolutionSizeRecord& size);

    ConvolutionSizeRecord m_chosen_for;
    const Algorithm* m_chosen = nullptr;
};

}  // namespace kern::fallback
