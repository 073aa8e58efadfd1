// The first elements of each row of a matrix by their order: "o0" the values, "o1" where they
// stood, as Int32. The mode that gives the value at one position alone has one output.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/sorting.h"

namespace orb {

// The kernel's mode, and its argument.
struct TopKParam {
    kern::TopK::Mode mode = kern::TopK::Mode::KTH_VALUE;
    int32_t k = 1;  // from the smallest on; a negative one from the largest
};
template <>
inline constexpr auto FIELDS<TopKParam> = std::tuple{&TopKParam::mode, &TopKParam::k};

class TopK final : public KernelOperator<TopK, kern::TopK, TopKParam> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param);
    static size_t nr_outputs(const Param& param);

    // Plain numbers {rows, length}; |k| is from 1 to length. Gives "o0".
    static GraphVar* make(GraphVar* source, const Param& param, const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    friend KernelOperator;
    void configure(kern::TopK& kernel) const;
    TopK(const std::vector<GraphVar*>& inputs, const Param& param, const OperatorConfig& config);
};

}  // namespace orb
