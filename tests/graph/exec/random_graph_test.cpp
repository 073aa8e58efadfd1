// Random graphs of all operators against plain evaluation, element by element. All values are whole
// numbers of less than 2^24, so every order of additions gives the same bits.
#include <algorithm>
#include <array>
#include <random>

#include "graph/opr/constant_tensor.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/type_convert.h"
#include "tests/graph/graph_test_util.h"
#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;
using Mode = kern::ElementwiseMode;
using kern::ReduceMode;

// The axes of a var, by name: their lengths change from run to run.
enum Axis { ONE, ROWS, COLUMNS, NR_AXES };
using Axes = std::array<Axis, 2>;

struct Arithmetic {
    Mode mode;
    size_t arity;
    float (*apply)(float, float, float);
};
const Arithmetic ARITHMETIC[] = {
    {Mode::MAX, 2, [](float a, float b, float) { return std::max(a, b); }},
    {Mode::ADD, 2, [](float a, float b, float) { return a + b; }},
    {Mode::MUL, 2, [](float a, float b, float) { return a * b; }},
    {Mode::NEGATE, 1, [](float a, float, float) { return -a; }},
    {Mode::FUSE_MUL_ADD3, 3, [](float a, float b, float c) { return a * b + c; }},
    {Mode::SUB, 2, [](float a, float b, float) { return a - b; }},
    {Mode::SUB, 2, [](float a, float b, float) { return a - b; }},  // the one that products fold
};

class RandomGraph {
public:
    RandomGraph(unsigned seed, std::vector<CompNode> nodes)
        : m_nodes(std::move(nodes)), m_random(seed) {
        for (const Axes axes : {Axes{ROWS, COLUMNS}, Axes{ROWS, ONE}, Axes{ONE, COLUMNS}}) {
            const kern::TensorShape shape{m_lengths[axes[0]], m_lengths[axes[1]]};
            m_inputs.push_back(
                make_tensor<float>(shape, std::vector<float>(shape.element_count()), m_nodes[0]));
            add(SharedTensorInput::make(*m_graph, m_inputs.back()), axes, INPUT_LIMIT,
                [this](size_t, size_t) {
                    return static_cast<float>(below(2 * INPUT_LIMIT + 1)) - INPUT_LIMIT;
                });
        }
        HostTensorND two(CompNode::default_cpu(), {1, 1}, kern::DType::Float32());
        two.ptr<float>()[0] = 2;
        add(ConstantTensor::make(*m_graph, two, on_node(m_nodes[0])), {ONE, ONE}, 2,
            [](size_t, size_t) { return 2.0f; });
        for (size_t nr_operators = 1 + below(20); nr_operators > 0; --nr_operators)
            add_operator();
    }

    ComputeGraph::Options& options() { return m_graph->options(); }

    // Compiles the last var and some others, and runs the function with other contents, memory and
    // shapes of the inputs in turn.
    void check_one_function() {
        std::vector<size_t> outputs{m_vars.size() - 1};
        for (size_t i = below(4); i > 0; --i)
            outputs.push_back(below(m_vars.size()));
        std::vector<std::vector<float>> results(outputs.size());
        std::vector<OutputSpec> specs;
        for (size_t i = 0; i < outputs.size(); ++i) {
            specs.push_back({m_vars[outputs[i]].var, nullptr});  // keeps its value
            if (below(3) > 0)
                specs.back().callback = take(results[i]);
        }
        const auto function = m_graph->compile(specs);
        for (int round = 0; round < 5; ++round) {
            if (below(8) == 0)
                function->clear_device_memory();
            if (below(2))
                m_lengths = {1, 1 + below(MAX_LENGTH), 1 + below(MAX_LENGTH)};
            evaluate();
            set_inputs();
            function->execute().wait();
            for (size_t i = 0; i < outputs.size(); ++i) {
                const Var& output = m_vars[outputs[i]];
                if (!specs[i].callback)
                    results[i] = values_of<float>(output.var->device_value());
                ASSERT_EQ(results[i], output.values)
                    << "round " << round << " of " << var_description({output.var});
                ASSERT_TRUE(output.var->shape().same_shape(shape_of(output)));
            }
            for (size_t i = 0; i < m_inputs.size(); ++i)  // lent memory is only read
                ASSERT_EQ(values_of<float>(*m_inputs[i]), m_vars[i].values);
        }
        function->execute();  // and goes while it runs
    }

private:
    using Element = std::function<float(size_t row, size_t column)>;
    struct Var {
        GraphVar* var;
        Axes axes;
        float limit;  // of the values' magnitude
        Element element;
        std::vector<float> values;
    };
    static constexpr int INPUT_LIMIT = 3;
    static constexpr float EXACT_LIMIT = 1 << 24;
    static constexpr size_t MAX_LENGTH = 5;

    size_t below(size_t end) { return m_random() % end; }
    size_t any() { return below(m_vars.size()); }
    // Often one of the newest, so that chains grow.
    size_t any_recent() { return below(2) ? m_vars.size() - 1 - below(3) : any(); }

    kern::TensorShape shape_of(const Var& var) const {
        return {m_lengths[var.axes[0]], m_lengths[var.axes[1]]};
    }
    // An axis of length 1 is repeated.
    float at(size_t index, size_t row, size_t column) const {
        const kern::TensorShape shape = shape_of(m_vars[index]);
        return m_vars[index].values[row % shape[0] * shape[1] + column % shape[1]];
    }
    Element copy_of(size_t index) const {
        return [this, index](size_t row, size_t column) { return at(index, row, column); };
    }
    void evaluate() {
        for (Var& var : m_vars) {
            var.values.clear();
            for (size_t i = 0; i < m_lengths[var.axes[0]]; ++i) {
                for (size_t j = 0; j < m_lengths[var.axes[1]]; ++j)
                    var.values.push_back(var.element(i, j));
            }
        }
    }
    OperatorConfig somewhere() {
        OperatorConfig config;
        config.comp_nodes = {m_nodes[below(m_nodes.size())]};
        return config;
    }

    void add(GraphVar* var, Axes axes, float limit, Element element) {
        m_vars.push_back({var, axes, limit, std::move(element), {}});
    }

    void add_operator() {
        switch (below(10)) {
            case 0:
                return add_view(any_recent());
            case 1:
                return add_late_copy(any_recent());
            case 2:
                return add_reduction(any_recent());
            case 3:
                return add_conversion(any_recent());
            case 4:
            case 5:
                return add_product(any_recent(), any());
            default:
                return add_arithmetic({any_recent(), any(), any()});
        }
    }

    void add_arithmetic(std::vector<size_t> operands) {
        float limits[3] = {};
        const auto choose = [&](const Arithmetic* arithmetic) {
            for (size_t i = 0; i < 3; ++i)
                limits[i] = i < arithmetic->arity ? m_vars[operands[i]].limit : 0;
            return arithmetic;
        };
        const Arithmetic* arithmetic = choose(&ARITHMETIC[below(std::size(ARITHMETIC))]);
        float limit = std::max(limits[0] * limits[1], limits[0] + limits[1]) + limits[2];
        if (limit > EXACT_LIMIT) {
            arithmetic = choose(&ARITHMETIC[0]);
            limit = std::max(limits[0], limits[1]);
        }
        operands.resize(arithmetic->arity);
        Axes axes{ONE, ONE};
        std::vector<GraphVar*> vars;
        for (size_t i : operands) {
            for (size_t axis = 0; axis < 2; ++axis) {
                const Axis other = m_vars[i].axes[axis];
                if (axes[axis] == ONE)
                    axes[axis] = other;
                else if (other != ONE && other != axes[axis])
                    return add_view(operands[0]);  // these do not broadcast
            }
            vars.push_back(m_vars[i].var);
        }
        GraphVar* var = ElementwiseOperator::make(vars, arithmetic->mode, somewhere());
        if (below(8) == 0)
            var->add_flag(var_flag::DYNAMIC_STORAGE);
        add(var, axes, limit, [this, arithmetic, operands](size_t row, size_t column) {
            float x[3] = {};
            for (size_t i = 0; i < operands.size(); ++i)
                x[i] = at(operands[i], row, column);
            return arithmetic->apply(x[0], x[1], x[2]);
        });
    }

    // A transpose, by way of a third axis now and then.
    void add_view(size_t in) {
        const Var& source = m_vars[in];
        GraphVar* var = nullptr;
        if (below(2))
            var = DimensionShuffle::make(
                DimensionShuffle::make(source.var, {1, -1, 0}, 0, somewhere()), {0, 2}, 3,
                somewhere());
        else
            var = DimensionShuffle::make(source.var, {1, 0});
        add(var, {source.axes[1], source.axes[0]}, source.limit,
            [this, in](size_t row, size_t column) { return at(in, column, row); });
    }

    // A copy whose shape is known only when the lengths have been read in the run.
    void add_late_copy(size_t in) {
        const Axes axes = m_vars[in].axes;
        auto behaviour = shape_from_value(m_lengths_var, [axes](const float* lengths) {
            return kern::TensorShape{static_cast<size_t>(lengths[axes[0]]),
                                     static_cast<size_t>(lengths[axes[1]])};
        });
        behaviour.key = m_vars.size();
        behaviour.run = [](TestOperator& op) {
            DeviceTensorND(op.output_value(0)).copy_from_fixlayout(op.input_value(0));
        };
        add(TestOperator::make(*m_graph, {m_vars[in].var, m_lengths_var}, behaviour), axes,
            m_vars[in].limit, copy_of(in));
    }

    void add_conversion(size_t in) {
        GraphVar* ints = TypeConvert::make(m_vars[in].var, kern::DType::Int32());
        add(TypeConvert::make(ints, kern::DType::Float32()), m_vars[in].axes, m_vars[in].limit,
            copy_of(in));
    }

    void add_reduction(size_t in) {
        const ReduceMode modes[] = {ReduceMode::SUM, ReduceMode::SUM_SQR, ReduceMode::MAX};
        const ReduceMode mode = modes[below(std::size(modes))];
        const float limit = MAX_LENGTH * m_vars[in].limit * m_vars[in].limit;
        if (limit > EXACT_LIMIT)
            return add_view(in);
        const size_t axis = below(2);
        Axes axes = m_vars[in].axes;
        const Axis reduced = axes[axis];
        axes[axis] = ONE;
        GraphVar* var = ReduceOperator::make(
            m_vars[in].var, {mode, static_cast<int>(axis), kern::ReduceDataType::DEFAULT});
        add(var, axes, limit, [this, in, mode, axis, reduced](size_t row, size_t column) {
            float result = mode == ReduceMode::MAX ? at(in, row, column) : 0;
            for (size_t i = 0; i < m_lengths[reduced]; ++i) {
                const float x = axis == 0 ? at(in, i, column) : at(in, row, i);
                if (mode == ReduceMode::MAX)
                    result = std::max(result, x);
                else
                    result += mode == ReduceMode::SUM ? x : x * x;
            }
            return result;
        });
    }

    void add_product(size_t a, size_t b) {
        kern::MatrixMul::Param param;
        const bool turn_a = param.transpose_a = below(2);
        const bool turn_b = param.transpose_b = below(2);
        const Var &x = m_vars[a], &y = m_vars[b];
        const float limit = MAX_LENGTH * x.limit * y.limit;
        const Axis depth = x.axes[!turn_a];
        if (depth != y.axes[turn_b] || limit > EXACT_LIMIT)
            return add_arithmetic({a, b, any()});
        add(MatrixMultiply::make(x.var, y.var, param, somewhere()),
            {x.axes[turn_a], y.axes[!turn_b]}, limit,
            [this, a, b, turn_a, turn_b, depth](size_t row, size_t column) {
                float sum = 0;
                for (size_t k = 0; k < m_lengths[depth]; ++k)
                    sum += (turn_a ? at(a, k, row) : at(a, row, k)) *
                           (turn_b ? at(b, column, k) : at(b, k, column));
                return sum;
            });
    }

    // The values that were drawn, in other memory and with other strides now and then.
    void set_inputs() {
        fill<float>(*m_lengths_tensor, {NR_AXES}, {m_lengths.begin(), m_lengths.end()});
        for (size_t i = 0; i < m_inputs.size(); ++i) {
            const kern::TensorShape shape = shape_of(m_vars[i]);
            const size_t kind = below(3);
            if (kind == 0) {  // part of something wider
                const DeviceTensorND wide(m_nodes[0], {shape[0], shape[1] + 2},
                                          kern::DType::Float32());
                const auto values = make_tensor<float>(shape, m_vars[i].values, m_nodes[0]);
                *m_inputs[i] = wide[{{}, {1, -1, {}}}];
                m_inputs[i]->copy_from_fixlayout(*values);
                m_nodes[0].sync();
            } else if (kind == 1 || !m_inputs[i]->storage().allow_realloc()) {
                *m_inputs[i] = *make_tensor<float>(shape, m_vars[i].values, m_nodes[0]);
            } else {
                fill<float>(*m_inputs[i], shape, m_vars[i].values);
            }
        }
    }

    std::vector<CompNode> m_nodes;
    std::mt19937 m_random;
    std::shared_ptr<ComputeGraph> m_graph = ComputeGraph::make();
    std::array<size_t, NR_AXES> m_lengths{1, 2, 3};
    std::shared_ptr<DeviceTensorND> m_lengths_tensor = make_tensor<float>({NR_AXES}, {1, 2, 3});
    GraphVar* m_lengths_var = SharedTensorInput::make(*m_graph, m_lengths_tensor);
    std::vector<std::shared_ptr<DeviceTensorND>> m_inputs;
    std::vector<Var> m_vars;  // the inputs first
};

void check(const std::vector<CompNode>& nodes, uint32_t record_level = 0) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        RandomGraph graph(seed, nodes);
        graph.options().record_level = record_level;
        for (int function = 0; function < 3 && !testing::Test::HasFailure(); ++function)
            graph.check_one_function();
    }
}

TEST(RandomGraphs, EqualPlainEvaluation) {
    check({node()});
}
TEST(RandomGraphs, OnSeveralNodes) {
    check({node(), worker_node(41), worker_node(42), worker_node(42, 1)});
}
TEST(RandomGraphs, RecordedOnAWorker) {
    check({worker_node(43)}, 1);
}

}  // namespace
}  // namespace orb
