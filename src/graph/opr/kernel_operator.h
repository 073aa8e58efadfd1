// The base of operators that forward to one kernel. A class says what it makes (in its
// constructor), the shape of each output, the kernel's scratch memory and the call; inference, the
// workspace output and the life of the kernel are here.
#pragma once

#include <memory>
#include <vector>

#include "graph/node/comp_node_env.h"
#include "graph/opr/param_operator.h"

namespace orb {

// What does not depend on the kernel.
class ForwardingOperator : public SingleNodeOperator {
protected:
    using SingleNodeOperator::SingleNodeOperator;
    using Layouts = std::vector<kern::TensorLayout>;
    using Tensors = std::vector<kern::RawTensor>;

    // Outputs with content, named "o0" and so on when they are more than one.
    void add_outputs(const std::vector<kern::DType>& dtypes);
    void add_workspace();

    // From the inputs that `inference_deps` names: all shapes, if it is not overridden. Only asked
    // for outputs that the graph allocates.
    virtual kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) = 0;
    virtual std::vector<InferDep> inference_deps() const;
    // Bytes of scratch memory. The first form asks the second with contiguous layouts.
    virtual size_t workspace_size(const std::vector<InferInput>& inputs);
    virtual size_t query_workspace(const Layouts& inputs, const Layouts& outputs);
    virtual void forward(const Tensors& inputs, const Tensors& outputs,
                         const kern::Workspace& workspace) = 0;

    // Whether `compute_value` can be asked for the first output.
    virtual bool can_compute_value() const { return false; }
    // The first output of values on the host, in the calling thread.
    virtual void compute_value(const Tensors& inputs, const kern::RawTensor& output) const;

    void register_output_inference() override;
    // All inputs contiguous.
    void constrain_input_layouts(OperatorProperties& properties) const override;
    void run_on_node() override;

    size_t nr_content_outputs() const { return output().size() - (m_has_workspace ? 1 : 0); }
    // Nothing when the operator has none.
    kern::Workspace workspace() const;

private:
    void add_value_rule();

    bool m_has_workspace = false;
    Tensors m_inputs, m_outputs;  // of the current run; their memory is kept
};

template <typename Derived, typename Kernel, typename ParamRecord = typename Kernel::Param>
class KernelOperator : public ParamOperator<Derived, ParamRecord, ForwardingOperator> {
public:
    void hand_over(std::vector<std::shared_ptr<void>>& kept) override {
        ForwardingOperator::hand_over(kept);
        kept.push_back(std::shared_ptr<Kernel>(std::move(m_kernel)));
    }

protected:
    using Base = ParamOperator<Derived, ParamRecord, ForwardingOperator>;
    using Base::Base;
    using typename ForwardingOperator::Layouts;
    using typename ForwardingOperator::Tensors;

    // The kernel that the node's tasks run; made at first use, with the operator's parameters.
    Kernel& kernel() { return made(m_kernel); }
    // One for questions about scratch memory, which the inference manager asks one at a time while
    // a worker may run the other.
    Kernel& query_kernel() { return made(m_query_kernel); }
    // Hidden by classes whose record is not the kernel's.
    void configure(Kernel& kernel) const { kernel.param() = this->param(); }

    void release_node_resources() override {
        Base::release_node_resources();
        m_kernel.reset();
        m_query_kernel.reset();
    }

private:
    Kernel& made(std::unique_ptr<Kernel>& place) {
        if (!place) {
            place = this->comp_node().env().kernel_handle().template create_operator<Kernel>();
            static_cast<const Derived*>(this)->configure(*place);
        }
        return *place;
    }

    std::unique_ptr<Kernel> m_kernel;
    std::unique_ptr<Kernel> m_query_kernel;
};

}  // namespace orb
