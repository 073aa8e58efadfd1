// Graphs through a file and back.
#include <map>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/conv_bias.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/mask_convolution.h"
#include "graph/opr/matrix_multiply.h"
#include "serialization/dump_context.h"
#include "tests/graph/node/workers.h"
#include "tests/serialization/file_graphs.h"

namespace orb {
namespace {

using namespace orb_test;

// The bytes of the operator's parameters, as a record would have them.
Bytes parameters_of(const GraphOperator& op) {
    Bytes bytes;
    const auto file = OutputFile::to_memory(bytes);
    const GraphDumpConfig config;
    DumpContext context(*file, config, GraphFileHeader().dtypes);
    OperatorRegistry::instance().find_by_type(op.type_record())->dump(context, op);
    return bytes;
}

// The operators by the name of their first output; those without a name of their own are left out.
std::map<std::string, const GraphOperator*> named_operators(const std::vector<GraphVar*>& outputs) {
    std::map<std::string, const GraphOperator*> operators;
    std::vector<OutputSpec> specs;
    for (GraphVar* var : outputs)
        specs.push_back({var, nullptr});
    outputs[0]->owner_graph().compile(specs)->iterate_operators([&](GraphOperator* op) {
        if (op->output(0)->has_name())
            operators[op->output(0)->name()] = op;
        return true;
    });
    return operators;
}

void check_random_graphs(const std::vector<CompNode>& nodes) {
    for (unsigned seed = 0; seed < 60 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const RandomFileGraph graph(seed, nodes);
        const std::vector<GraphVar*> outputs = graph.outputs();
        GraphDumpConfig config;
        config.var_names = VarNames::ALL;
        config.keep_priorities = seed % 2 == 0;
        config.check_names = false;
        const Bytes bytes = dumped(outputs, config);

        const GraphFileFacts facts = inspected(bytes);
        EXPECT_EQ(facts.end, bytes.size());
        EXPECT_EQ(graph_digest(*as_file(bytes), facts), facts.header.hash);

        const GraphLoadResult result = loaded(bytes);
        ASSERT_EQ(result.output_vars.size(), outputs.size());
        for (size_t i = 0; i < outputs.size(); ++i)
            EXPECT_EQ(result.output_var_map_id.at(outputs[i]->id()), result.output_vars[i]);
        for (const auto& [name, tensor] : graph.inputs()) {
            if (result.tensor_map.count(name) != 0)
                result.tensor_map.at(name)->copy_from(*tensor);
        }
        const auto before = named_operators(outputs);
        const auto after = named_operators(result.output_vars);
        ASSERT_EQ(before.size(), after.size());
        for (const auto& [name, op] : before) {
            const GraphOperator& other = *after.at(name);
            EXPECT_EQ(other.type_record(), op->type_record());
            EXPECT_EQ(other.priority(), config.keep_priorities ? op->priority() : 0);
            EXPECT_EQ(other.config().comp_nodes, op->config().comp_nodes);
            EXPECT_EQ(other.config().output_dtype, op->config().output_dtype);
            EXPECT_EQ(parameters_of(other), parameters_of(*op)) << name;
        }
        EXPECT_EQ(run_all(result.output_vars), run_all(outputs));
    }
}

TEST(RoundTrip, OfRandomGraphs) {
    check_random_graphs({node()});
}
TEST(RoundTrip, OfRandomGraphsOnSeveralNodes) {
    check_random_graphs({node(), worker_node(51), worker_node(51, 1), worker_node(52)});
}

// Parameters stand in the order of the page, and one row serves both names of an operator.
TEST(RoundTrip, ConvolutionsOfEitherName) {
    const auto graph = ComputeGraph::make();
    GraphVar* mask = SharedTensorInput::make(*graph, make_tensor<float>({2, 2}, {1, 2, 3, 4}));
    mask->name("mask");
    GraphVar* image = DimensionShuffle::make(mask, {-1, -1, 0, 1});
    GraphVar* bias = ConstantTensor::make_scalar(*graph, 1.0f, on_node());
    const kern::ConvolutionParam flat{
        kern::ConvolutionMode::CONVOLUTION,      20, 30, 4, 5, 6, 7, {}, {},
        kern::MatrixMulDataType::FLOAT_IO16_CO32};
    const kern::Convolution3DParam deep{{}, 10, 20, 30, 4, 5, 6, 7, 8, 9, {}, {}, {}};
    GraphVar* volume = DimensionShuffle::make(image, {0, 1, -1, 2, 3});
    const struct {
        GraphVar* var;
        const char* name;  // when it has been loaded
        std::vector<uint32_t> parameters;
    } rows[] = {
        {ConvolutionForward::make({image, image}, {flat}),
         "conv_fwdv2[",
         {1, 20, 30, 4, 5, 6, 7, 0, 0, 3}},
        {ConvBias::make(image, image, bias, {{flat, kern::Nonlinearity::TANH}, NameForm::V2}),
         "conv_bias[",
         {1, 20, 30, 4, 5, 6, 7, 0, 0, 3, 3}},
        {Convolution3DForward::make({volume, volume}, {deep, NameForm::V2}),
         "conv3d[",
         {0, 10, 20, 30, 4, 5, 6, 7, 8, 9, 0, 0, 0}},
        {MaskPropagate::make(mask, {10, 20, 3, 4, 2, 1, 5, 6}),
         "mask_propagate[",
         {10, 20, 3, 4, 2, 1, 5, 6}},
    };
    for (const auto& row : rows) {
        Bytes bytes(row.parameters.size() * sizeof(uint32_t));
        std::memcpy(bytes.data(), row.parameters.data(), bytes.size());
        EXPECT_EQ(parameters_of(*row.var->owner_operator()), bytes) << row.name;
        GraphDumpConfig config;
        config.var_names = VarNames::NONE;
        const auto result = loaded(dumped({row.var}, config));
        const GraphOperator& op = *result.output_vars[0]->owner_operator();
        EXPECT_EQ(op.type_record(), row.var->owner_operator()->type_record());
        EXPECT_EQ(op.name().rfind(row.name, 0), 0u) << op.name();
        EXPECT_EQ(parameters_of(op), bytes) << row.name;
    }
    EXPECT_NE(Convolution3DForward::make({volume, volume}, {deep}), rows[2].var);
}

// What makes a product of a parameter, and the two names.
struct Model {
    std::shared_ptr<ComputeGraph> graph = ComputeGraph::make();
    std::shared_ptr<DeviceTensorND> picture = make_tensor<float>({1, 2}, {3, 4});
    GraphVar* output = nullptr;

    explicit Model(CompNode where = node()) {
        GraphVar* input = SharedTensorInput::make(*graph, picture);
        GraphVar* weights = SharedTensorInput::make(
            *graph, make_tensor<float>({2, 2}, {1, 2, 3, 4}, where), {}, TensorRole::PARAMETER);
        input->name("picture");
        weights->name("weights");
        GraphVar* empty = SharedTensorInput::make(*graph, make_tensor<float>({0, 2}, {}, where), {},
                                                  TensorRole::PARAMETER);
        output = MatrixMultiply::make(input, weights, {}, on_node());
        output->name("feature");
        m_outputs = {output, empty};
    }
    Bytes bytes(const GraphDumpConfig& config = {}, GraphDumpResult* result = nullptr) const {
        return dumped(m_outputs, config, result);
    }

private:
    std::vector<GraphVar*> m_outputs;
};

TEST(RoundTrip, KeepsInputsParametersAndNames) {
    const Model model;
    EXPECT_EQ(run<float>(model.output), (std::vector<float>{15, 22}));  // the input has memory now
    GraphDumpResult told;
    const Bytes bytes = model.bytes({}, &told);
    EXPECT_EQ(told.nr_operators, 4u);
    EXPECT_EQ(told.tensor_value_bytes, 16u);
    EXPECT_EQ(told.inputs, std::vector<std::string>{"picture"});
    ASSERT_EQ(told.parameters.size(), 2u);
    EXPECT_EQ(told.parameters[0], "weights");

    const GraphLoadResult result = loaded(bytes);
    EXPECT_EQ(result.output_var_map.at("feature"), result.output_vars[0]);
    EXPECT_EQ(values_of<float>(*result.tensor_map.at("weights")), (std::vector<float>{1, 2, 3, 4}));
    const auto& picture = result.tensor_map.at("picture");
    EXPECT_TRUE(picture->shape().same_shape({1, 2}));
    EXPECT_EQ(picture->storage().use_count(), 0);
    fill<float>(*picture, {2, 2}, {1, 0, 0, 1});  // another number of rows
    EXPECT_EQ(run<float>(result.output_vars[0]), (std::vector<float>{1, 2, 3, 4}));
    // Written again, the parts are what they were.
    const GraphFileFacts facts = inspected(dumped(result.output_vars));
    ASSERT_EQ(facts.tensors.size(), 3u);
    EXPECT_EQ(facts.tensors[0].method, TensorMethod::INPUT);
    EXPECT_EQ(facts.tensors[1].method, TensorMethod::SHARED);
    EXPECT_EQ(facts.tensors[2].method, TensorMethod::SHARED);

    GraphDumpConfig bare;
    bare.keep_parameter_names = false;
    bare.var_names = VarNames::NONE;
    const GraphLoadResult nameless = loaded(model.bytes(bare));
    EXPECT_EQ(nameless.tensor_map.size(), 1u);
    EXPECT_TRUE(nameless.output_var_map.empty());
}

TEST(RoundTrip, LaterLoadsShareParameters) {
    const Bytes bytes = Model().bytes();
    GraphLoader loader(as_file(bytes));
    const GraphLoadResult first = loader.load();
    const GraphLoadResult second = loader.load({}, true);
    EXPECT_NE(first.graph, second.graph);
    EXPECT_EQ(first.tensor_map.at("weights"), second.tensor_map.at("weights"));
    EXPECT_NE(first.tensor_map.at("picture"), second.tensor_map.at("picture"));

    // The same graph has equal operators already.
    GraphLoadConfig into_first;
    into_first.graph = first.graph;
    const size_t nr_operators = first.graph->nr_operators();
    const GraphLoadResult merged = loader.load(into_first, true);
    EXPECT_EQ(merged.graph, first.graph);
    EXPECT_EQ(merged.graph->nr_operators(), nr_operators + 2);  // a new input, and what reads it

    // On another node they are read once more, and what its owner has moved is copied back.
    GraphLoadConfig elsewhere;
    elsewhere.node_mapper = [](const CompNode::Locator&) { return worker_node(53); };
    const GraphLoadResult third = loader.load(elsewhere, true);
    EXPECT_EQ(third.tensor_map.at("weights")->comp_node(), worker_node(53));
    const auto& weights = first.tensor_map.at("weights");
    *weights = *make_tensor<float>({2, 2}, {5, 6, 7, 8}, worker_node(54));
    const GraphLoadResult fourth = loader.load({}, true);
    EXPECT_NE(fourth.tensor_map.at("weights"), weights);
    EXPECT_EQ(fourth.tensor_map.at("weights")->comp_node(), node());
    EXPECT_EQ(values_of<float>(*fourth.tensor_map.at("weights")), (std::vector<float>{5, 6, 7, 8}));
}

// Parameters of a node lie in one piece of memory, each at the node's alignment.
TEST(RoundTrip, ParametersOfANodeAreOneBlock) {
    for (CompNode where : {CompNode::default_cpu(), node(), worker_node(55)}) {
        const auto graph = ComputeGraph::make();
        std::vector<GraphVar*> outputs;
        for (size_t length : {3u, 100u, 1u}) {
            std::vector<float> values(length, static_cast<float>(length));
            outputs.push_back(SharedTensorInput::make(
                *graph, make_tensor<float>({length}, values, where), {}, TensorRole::PARAMETER));
            outputs.back()->name("p" + std::to_string(length));
        }
        GraphLoadConfig config;
        config.node_mapper = [where](const CompNode::Locator&) { return where; };
        const GraphLoadResult result = loaded(dumped(outputs), config);
        const uint8_t* begin = result.tensor_map.at("p3")->raw_ptr();
        for (size_t length : {3u, 100u, 1u}) {
            const auto& tensor = *result.tensor_map.at("p" + std::to_string(length));
            EXPECT_EQ(values_of<float>(tensor),
                      std::vector<float>(length, static_cast<float>(length)));
            const bool is_together = tensor.storage().use_count() == 3;
            EXPECT_EQ(is_together, where != CompNode::default_cpu());
            if (is_together) {
                EXPECT_EQ(static_cast<size_t>(tensor.raw_ptr() - begin) % where.memory_alignment(),
                          0u);
            }
        }
    }
}

TEST(RoundTrip, ValueLoaderReadsInItsOwnWay) {
    const Bytes bytes = Model().bytes();
    size_t nr_passed_over = 0;
    GraphLoadConfig config;
    config.value_loader = [&](void* destination, const kern::TensorLayout& layout,
                              InputFile& file) {
        std::vector<float> values(layout.element_count());
        file.read(values.data(), values.size() * sizeof(float));
        for (float& value : values)
            value *= 10;
        if (destination)
            std::memcpy(destination, values.data(), values.size() * sizeof(float));
        else
            nr_passed_over += !values.empty();
    };
    GraphLoader loader(as_file(bytes));
    const GraphLoadResult result = loader.load(config);
    EXPECT_EQ(values_of<float>(*result.tensor_map.at("weights")),
              (std::vector<float>{10, 20, 30, 40}));
    loader.load(config, true);
    EXPECT_EQ(nr_passed_over, 1u);
}

// A load that ends half-way leaves nothing behind that a later one would take for a value.
TEST(RoundTrip, AfterALoadThatThrew) {
    const Bytes bytes = Model().bytes();
    GraphLoader loader(as_file(bytes));
    GraphLoadConfig config;
    config.value_loader = [](void*, const kern::TensorLayout&, InputFile&) { throw 1; };
    EXPECT_THROW(loader.load(config), int);
    EXPECT_EQ(values_of<float>(*loader.load({}, true).tensor_map.at("weights")),
              (std::vector<float>{1, 2, 3, 4}));
}

// What has no name of its own is not given one, but for inputs: those must be found.
TEST(RoundTrip, NamelessTensors) {
    const auto graph = ComputeGraph::make();
    const auto source = [&](TensorRole role) {
        return SharedTensorInput::make(*graph, make_tensor<float>({1}, {1}), {}, role);
    };
    GraphDumpResult told;
    const Bytes bytes = dumped(
        {source(TensorRole::INPUT), source(TensorRole::PARAMETER), source(TensorRole::INPUT)}, {},
        &told);
    EXPECT_EQ(told.inputs, (std::vector<std::string>{"input0", "input1"}));
    EXPECT_EQ(told.parameters, std::vector<std::string>{""});
    EXPECT_EQ(loaded(bytes).tensor_map.size(), 2u);
}

// Without values a file of a few bytes could ask for any memory: all of them together have a limit.
TEST(RoundTrip, TensorsWithoutValuesHaveALimitTogether) {
    const auto graph = ComputeGraph::make();
    std::vector<GraphVar*> inputs;
    for (int i = 0; i < 3; ++i)
        inputs.push_back(SharedTensorInput::make(
            *graph, std::make_shared<DeviceTensorND>(node(), kern::TensorShape{1000},
                                                     kern::DType::Float32())));
    const Bytes bytes = dumped(inputs);
    GraphLoadConfig config;
    for (const uint64_t limit : {12000u, 11999u}) {
        config.max_bytes_without_value = limit;
        const auto file = as_file(bytes);
        if (limit == 12000) {
            EXPECT_EQ(inspect_graph_file(*file, config).tensors.size(), 3u);
        } else {
            EXPECT_THROW(inspect_graph_file(*file, config), GraphFileError);
        }
    }
    // A parameter that has no value yet cannot be written.
    GraphVar* unset = SharedTensorInput::make(
        *graph,
        std::make_shared<DeviceTensorND>(node(), kern::TensorShape{1000}, kern::DType::Float32()),
        {}, TensorRole::PARAMETER);
    EXPECT_DEATH(dumped({unset}), "");
}

TEST(RoundTrip, GraphsOneAfterAnotherInAFile) {
    const Bytes one = Model().bytes();
    Bytes both = one;
    GraphDumper(OutputFile::to_memory(both)).dump({Model().output});
    const auto file = as_file(both);
    const GraphFileFacts facts = inspect_graph_file(*file);
    EXPECT_EQ(facts.end, one.size());
    const GraphFileFacts next = inspect_graph_file(*file);
    EXPECT_EQ(next.end, both.size());
    EXPECT_EQ(graph_digest(*file, next), next.header.hash);
    GraphLoader loader(as_file(both));
    loader.load();
    EXPECT_DEATH(loader.load(), "");  // another model
}

// Neither records nor their destruction may recurse.
TEST(RoundTrip, AChainTooLongForRecursion) {
    const auto graph = ComputeGraph::make();
    GraphVar* var = SharedTensorInput::make(*graph, make_tensor<float>({1}, {0}));
    var->name("x");
    GraphVar* one = ConstantTensor::make_scalar(*graph, 1.0f, on_node());
    constexpr size_t LENGTH = 100000 / SLOWER;  // too slow in an emulated sanitizer
    for (size_t i = 0; i < LENGTH; ++i)
        var = ElementwiseOperator::make({var, one}, kern::ElementwiseMode::ADD);
    const GraphLoadResult result = loaded(dumped({var}));
    EXPECT_EQ(result.graph->nr_operators(), LENGTH + 2);
    fill<float>(*result.tensor_map.at("x"), {1}, {0});
    EXPECT_EQ(run<float>(result.output_vars[0]), std::vector<float>{static_cast<float>(LENGTH)});
}

}  // namespace
}  // namespace orb
