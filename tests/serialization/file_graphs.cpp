#include "tests/serialization/file_graphs.h"

#include "graph/opr/arg_max.h"
#include "graph/opr/arg_min.h"
#include "graph/opr/argsort.h"
#include "graph/opr/batched_matrix_multiply.h"
#include "graph/opr/cond_take.h"
#include "graph/opr/constant_tensor.h"
#include "graph/opr/conv_bias.h"
#include "graph/opr/cumsum.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/inplace_add.h"
#include "graph/opr/mask_convolution.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/top_k.h"
#include "graph/opr/type_convert.h"

namespace orb_test {

using namespace orb;
using kern::DType;
using Mode = kern::ElementwiseMode;

namespace {

constexpr size_t SIZE = 3;

}  // namespace

RandomFileGraph::RandomFileGraph(unsigned seed, std::vector<CompNode> nodes)
    : m_random(seed), m_nodes(std::move(nodes)) {
    add_sources();
    for (size_t count = 3 + below(12); count != 0; --count) {
        GraphVar* var = make_operator();
        var->owner_operator()->priority(static_cast<int32_t>(below(9)) - 4);
        // A vector or a single row becomes a matrix again by the rows of the first input.
        m_vars.push_back(ElementwiseOperator::make({m_vars[0], var}, Mode::ADD, somewhere()));
        if (!m_vars.back()->has_name() && below(2))
            m_vars.back()->name("var " + std::to_string(count));
    }
}

std::vector<GraphVar*> RandomFileGraph::outputs() const {
    return {m_vars.back(), m_vars[m_vars.size() - 2], m_vars[m_vars.size() / 2]};
}

OperatorConfig RandomFileGraph::somewhere() {
    OperatorConfig config;
    // Inputs on several nodes leave it open where an operator runs.
    if (m_nodes.size() > 1 || below(2))
        config.comp_nodes = {m_nodes[below(m_nodes.size())]};
    return config;
}

std::shared_ptr<DeviceTensorND> RandomFileGraph::random_tensor() {
    std::vector<float> values(SIZE * SIZE);
    for (float& value : values)
        value = static_cast<float>(below(64)) / 8 - 4;
    return make_tensor<float>({SIZE, SIZE}, values, m_nodes[below(m_nodes.size())]);
}

void RandomFileGraph::add_sources() {
    for (const std::string name : {"left", "right"}) {
        m_inputs.emplace_back(name, random_tensor());
        m_vars.push_back(SharedTensorInput::make(*m_graph, m_inputs.back().second));
        m_vars.back()->name(name);
    }
    m_vars.push_back(SharedTensorInput::make(*m_graph, random_tensor(), {}, TensorRole::PARAMETER));
    HostTensorND value;
    const auto constant = random_tensor();
    value.copy_from(*constant);
    constant->comp_node().sync();
    m_vars.push_back(ConstantTensor::make(*m_graph, value, on_node(m_nodes[0])));
}

GraphVar* RandomFileGraph::make_operator() {
    GraphVar* source = any();
    const auto axis = static_cast<int32_t>(below(2));
    switch (below(15)) {
        case 0:
            return ElementwiseOperator::make({source}, below(2) ? Mode::EXP : Mode::TANH);
        case 1:
            return ElementwiseOperator::make({source, any(), any()}, Mode::FUSE_MUL_ADD3,
                                             somewhere());
        case 2:
            return make_reduction(source);
        case 3:
            return through_other_dtypes(source);
        case 4:
            return MatrixMultiply::make(
                source, any(), {below(2) == 1, below(2) == 1, kern::MatrixMulDataType::DEFAULT},
                somewhere());
        case 5: {
            const auto batch = [](GraphVar* var) {
                return DimensionShuffle::make(var, {-1, 0, 1});
            };
            return DimensionShuffle::make(
                BatchedMatrixMultiply::make(batch(source), batch(any()), {false, below(2) == 1},
                                            somewhere()),
                {2, 1}, 3);
        }
        case 6:
            return TypeConvert::make(ArgMax::make(source, {axis}), DType::Float32());
        case 7:
            return TypeConvert::make(ArgMin::make(source, {axis}), DType::Float32());
        case 8:
            return Argsort::make(source, {kern::ArgsortOrder::DESCENDING});
        case 9:
            return Cumsum::make(source, {axis, below(2) == 1, below(2) == 1});
        case 10: {
            GraphVar* taken = CondTake::make(
                source, any(), {kern::CondTakeMode::NOT_EQUAL, 1e30f, 0.25f}, somewhere());
            // How long it is only the run tells, so it is collapsed.
            return ReduceOperator::make(TypeConvert::make(taken, DType::Float32()),
                                        {kern::ReduceMode::SUM_SQR, 0, {}});
        }
        case 11: {
            const kern::TopKMode mode =
                below(2) ? kern::TopKMode::KTH_VALUE : kern::TopKMode::ORDERED;
            GraphVar* first = TopK::make(source, {mode, below(2) ? 2 : -2});
            return ReduceOperator::make(
                first, {kern::ReduceMode::MAX, mode == kern::TopKMode::KTH_VALUE ? 0 : 1, {}});
        }
        case 12: {
            const auto tensor = random_tensor();
            return InplaceAdd::make(
                SharedTensorInput::make(*m_graph, tensor, {}, TensorRole::PARAMETER),
                m_vars[below(4)], on_node(tensor->comp_node()));
        }
        case 13:
            return make_convolution(source);
        default:
            return ElementwiseOperator::make({source, any()}, below(2) ? Mode::SUB : Mode::MUL,
                                             somewhere());
    }
}

GraphVar* RandomFileGraph::make_reduction(GraphVar* source) {
    using kern::ReduceMode;
    const auto mode = static_cast<ReduceMode>(below(6));
    if (below(3) == 0) {
        HostTensorND target(CompNode::default_cpu(), {2}, DType::Int32());
        target.ptr<int32_t>()[0] = 1;
        target.ptr<int32_t>()[1] = SIZE;
        GraphVar* shape = ConstantTensor::make(*m_graph, target, on_node(m_nodes[0]));
        return ReduceOperator::make(source, {mode, -1, {}}, shape, somewhere());
    }
    const auto data_type =
        below(2) ? kern::ReduceDataType::DEFAULT : kern::ReduceDataType::FLOAT_O32;
    return ReduceOperator::make(source, {mode, static_cast<int32_t>(below(2)), data_type});
}

// Of images of SIZE x SIZE and a filter that is as large, padded so that the result is too.
GraphVar* RandomFileGraph::make_convolution(GraphVar* source) {
    const bool is_deep = below(3) == 0;
    const auto image = [is_deep](GraphVar* matrix) {
        return DimensionShuffle::make(matrix, is_deep ? std::vector<int32_t>{-1, -1, -1, 0, 1}
                                                      : std::vector<int32_t>{-1, -1, 0, 1});
    };
    kern::ConvolutionParam param;
    kern::Convolution3DParam deep;
    param.mode = deep.mode = static_cast<kern::ConvolutionMode>(below(2));
    param.pad_h = param.pad_w = deep.pad_h = deep.pad_w = SIZE / 2;
    const std::vector<GraphVar*> two{image(source), image(any())};
    const std::vector<GraphVar*> three{two[0], two[1], image(any())};
    const OperatorConfig config = somewhere();
    GraphVar* result = nullptr;
    switch (below(is_deep ? 3 : 6)) {
        case 0:
            result = is_deep ? Convolution3DForward::make(two, {deep}, config)
                             : ConvolutionForward::make(two, {param}, config);
            break;
        case 1:
            result = is_deep ? Convolution3DBackwardData::make(two, {deep}, config)
                             : ConvolutionBackwardData::make(three, {param}, config);
            break;
        case 2:
            result = is_deep ? Convolution3DBackwardFilter::make(three, {deep}, config)
                             : ConvolutionBackwardFilter::make(three, {param}, config);
            break;
        case 3: {
            HostTensorND bias(CompNode::default_cpu(), {1, 1, 1, 1}, DType::Float32());
            bias.ptr<float>()[0] = 0.25f;
            const auto nonlinearity = static_cast<kern::Nonlinearity>(below(6));
            result = ConvBias::make(two[0], two[1],
                                    ConstantTensor::make(*m_graph, bias, on_node(m_nodes[0])),
                                    {{param, nonlinearity}}, config);
            break;
        }
        case 4:
            result = MaskConvolution::make(two[0], two[1], any(), param, config);
            break;
        default:
            return MaskPropagate::make(source, {1, 1, 1, 1, SIZE, SIZE, 1, 1});
    }
    return is_deep ? DimensionShuffle::make(result, {3, 4}, 5)
                   : DimensionShuffle::make(result, {2, 3}, 4);
}

GraphVar* RandomFileGraph::through_other_dtypes(GraphVar* source) {
    const DType quantised[] = {DType::Quantized8Asymm(0.25f, 12), DType::QuantizedS8(0.125f),
                               DType::Float16(), DType::Int16()};
    if (below(2)) {
        GraphVar* a = TypeConvert::make(source, DType::QuantizedS8(0.25f));
        OperatorConfig config;
        config.output_dtype = DType::QuantizedS32(0.5f);
        GraphVar* product = MatrixMultiply::make(
            a, a, {false, false, kern::MatrixMulDataType::INT8_TO_INT32}, config);
        return TypeConvert::make(product, DType::Float32());
    }
    return TypeConvert::make(TypeConvert::make(source, quantised[below(std::size(quantised))]),
                             DType::Float32());
}

}  // namespace orb_test
