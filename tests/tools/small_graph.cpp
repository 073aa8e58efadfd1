// Writes a small graph to the path given: x [2, 3] times the parameter w [3, 2], plus a constant;
// the sum, and as 8-bit integers under a name that no file should have.
#include <cstring>
#include <memory>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/shared_tensor_input.h"
#include "graph/opr/type_convert.h"
#include "serialization/graph_dumper.h"

int main(int argc, char** argv) {
    auto file = argc == 2 ? orb::OutputFile::create(argv[1]) : nullptr;
    if (!file)
        return 1;
    const orb::CompNode node = orb::CompNode::default_cpu();
    const float weights[3][2] = {{1, 2}, {3, 4}, {5, 6}};
    const auto x = std::make_shared<orb::DeviceTensorND>(node, kern::TensorShape{2, 3},
                                                         kern::DType::Float32());
    const auto w = std::make_shared<orb::DeviceTensorND>(node, kern::TensorShape{3, 2},
                                                         kern::DType::Float32());
    std::memcpy(w->raw_ptr(), weights, sizeof(weights));
    const auto graph = orb::ComputeGraph::make();
    orb::GraphVar* input = orb::SharedTensorInput::make(*graph, x);
    input->name("x=\"&\\\n");
    orb::GraphVar* weight = orb::SharedTensorInput::make(*graph, w, {}, orb::TensorRole::PARAMETER);
    weight->name("w");
    orb::OperatorConfig on_node;
    on_node.comp_nodes = {node};
    orb::GraphVar* product = orb::MatrixMultiply::make(input, weight, {});
    orb::GraphVar* sum = orb::ElementwiseOperator::make(
        {product, orb::ConstantTensor::make_scalar(*graph, 1.0f, on_node)},
        kern::ElementwiseMode::ADD);
    orb::GraphVar* rounded = orb::TypeConvert::make(sum, kern::DType::Int8());
    sum->name("sum");
    rounded->name("../rounded");
    orb::GraphDumper(std::move(file)).dump({sum, rounded});
    return 0;
}
