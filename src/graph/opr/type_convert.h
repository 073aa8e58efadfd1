// Conversion of elements to another dtype.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/type_cvt.h"

namespace orb {

struct TypeConvertParam {
    kern::DType dtype;
};
template <>
inline constexpr auto FIELDS<TypeConvertParam> = std::tuple{&TypeConvertParam::dtype};

class TypeConvert final : public KernelOperator<TypeConvert, kern::TypeCvt, TypeConvertParam> {
public:
    static const OperatorType TYPE;

    // The var itself when it has the dtype already.
    static GraphVar* make(GraphVar* var, kern::DType dtype, const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    bool can_compute_value() const override { return true; }
    void compute_value(const Tensors& inputs, const kern::RawTensor& output) const override;
    void forward(const Tensors& inputs, const Tensors& outputs, const kern::Workspace&) override;
    // The kernel reads every layout.
    void constrain_input_layouts(OperatorProperties&) const override {}

private:
    friend Base;
    friend KernelOperator;
    TypeConvert(const std::vector<GraphVar*>& inputs, const Param& param,
                const OperatorConfig& config);
    void configure(kern::TypeCvt&) const {}
};

}  // namespace orb
