// Graphs of all operators by chance, with plain evaluation of the same, element by element. All
// values are whole numbers of less than 2^24, so every order of additions gives the same bits.
#pragma once

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

namespace orb_test {

// The axes of a var, by name: their lengths change from run to run.
enum Axis { ONE, ROWS, COLUMNS, NR_AXES };
using Axes = std::array<Axis, 2>;

struct Arithmetic {
    kern::ElementwiseMode mode;
    size_t arity;
    float (*apply)(float, float, float);
};
inline const Arithmetic ARITHMETIC[] = {
    {kern::ElementwiseMode::MAX, 2, [](float a, float b, float) { return std::max(a, b); }},
    {kern::ElementwiseMode::ADD, 2, [](float a, float b, float) { return a + b; }},
    {kern::ElementwiseMode::MUL, 2, [](float a, float b, float) { return a * b; }},
    {kern::ElementwiseMode::NEGATE, 1, [](float a, float, float) { return -a; }},
    {kern::ElementwiseMode::FUSE_MUL_ADD3, 3, [](float a, float b, float c) { return a * b + c; }},
    {kern::ElementwiseMode::SUB, 2, [](float a, float b, float) { return a - b; }},
    {kern::ElementwiseMode::SUB, 2,
     [](float a, float b, float) { return a - b; }},  // the one that products fold
};

class RandomGraph {
public:
    // What no recording can have beside what all graphs have: dynamic vars, and sub-graphs that run
    // within an operator's step.
    enum class Kind { STATIC, ANY };

    struct Var {
        orb::GraphVar* var;
        Axes axes;
        float limit;  // of the values' magnitude
        std::function<float(size_t row, size_t column)> element;
        std::vector<float> values;
    };

    RandomGraph(unsigned seed, std::vector<orb::CompNode> nodes, Kind kind)
        : m_kind(kind), m_nodes(std::move(nodes)), m_random(seed) {
        for (const Axes axes : {Axes{ROWS, COLUMNS}, Axes{ROWS, ONE}, Axes{ONE, COLUMNS}}) {
            const kern::TensorShape shape{m_lengths[axes[0]], m_lengths[axes[1]]};
            m_inputs.push_back(
                make_tensor<float>(shape, std::vector<float>(shape.element_count()), m_nodes[0]));
            add(orb::SharedTensorInput::make(*m_graph, m_inputs.back()), axes, INPUT_LIMIT,
                [this](size_t, size_t) {
                    return static_cast<float>(below(2 * INPUT_LIMIT + 1)) - INPUT_LIMIT;
                });
        }
        orb::HostTensorND two(orb::CompNode::default_cpu(), {1, 1}, kern::DType::Float32());
        two.ptr<float>()[0] = 2;
        add(orb::ConstantTensor::make(*m_graph, two, on_node(m_nodes[0])), {ONE, ONE}, 2,
            [](size_t, size_t) { return 2.0f; });
        for (size_t nr_operators = 1 + below(30); nr_operators > 0; --nr_operators)
            add_operator();
    }

    orb::ComputeGraph& graph() { return *m_graph; }
    // Vars and inputs stay as they are, but for what is of the graph.
    void drop_graph() { m_graph.reset(); }
    const std::vector<Var>& vars() const { return m_vars; }
    kern::TensorShape shape_of(const Var& var) const {
        return {m_lengths[var.axes[0]], m_lengths[var.axes[1]]};
    }
    size_t below(size_t end) { return m_random() % end; }

    void draw_lengths() { m_lengths = {1, 1 + below(MAX_LENGTH), 1 + below(MAX_LENGTH)}; }
    // New values of the inputs, which are in other memory and have other strides now and then, and
    // what follows from them.
    void draw_values() {
        evaluate();
        set_inputs();
    }
    void draw_values_in_place() {
        evaluate();
        for (size_t i = 0; i < m_inputs.size(); ++i) {
            const auto values =
                make_tensor<float>(shape_of(m_vars[i]), m_vars[i].values, m_nodes[0]);
            m_inputs[i]->copy_from_fixlayout(*values);
            m_nodes[0].sync();
        }
    }
    // Lent memory is only read.
    bool inputs_are_unchanged() const {
        for (size_t i = 0; i < m_inputs.size(); ++i) {
            if (values_of<float>(*m_inputs[i]) != m_vars[i].values)
                return false;
        }
        return true;
    }

private:
    using Element = decltype(Var::element);
    static constexpr int INPUT_LIMIT = 3;
    static constexpr float EXACT_LIMIT = 1 << 24;
    static constexpr size_t MAX_LENGTH = 5;

    size_t any() { return below(m_vars.size()); }
    // Often one of the newest, so that chains grow.
    size_t any_recent() { return below(2) ? m_vars.size() - 1 - below(3) : any(); }

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
    orb::OperatorConfig somewhere() {
        orb::OperatorConfig config;
        config.comp_nodes = {m_nodes[below(m_nodes.size())]};
        return config;
    }

    void add(orb::GraphVar* var, Axes axes, float limit, Element element) {
        m_vars.push_back({var, axes, limit, std::move(element), {}});
    }

    void add_operator() {
        switch (m_kind == Kind::STATIC ? 2 + below(9) : below(11)) {
            case 0:
                return add_late_copy(any_recent());
            case 1:
                return add_sub_graph(any_recent());
            case 2:
                return add_view(any_recent());
            case 3:
                return add_reduction(any_recent());
            case 4:
                return add_conversion(any_recent());
            case 5:
            case 6:
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
        std::vector<orb::GraphVar*> vars;
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
        orb::GraphVar* var = orb::ElementwiseOperator::make(vars, arithmetic->mode, somewhere());
        if (m_kind == Kind::ANY && below(8) == 0)
            var->add_flag(orb::var_flag::DYNAMIC_STORAGE);
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
        orb::GraphVar* var = nullptr;
        if (below(2))
            var = orb::DimensionShuffle::make(
                orb::DimensionShuffle::make(source.var, {1, -1, 0}, 0, somewhere()), {0, 2}, 3,
                somewhere());
        else
            var = orb::DimensionShuffle::make(source.var, {1, 0});
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
            orb::DeviceTensorND(op.output_value(0)).copy_from_fixlayout(op.input_value(0));
        };
        add(TestOperator::make(*m_graph, {m_vars[in].var, m_lengths_var}, behaviour), axes,
            m_vars[in].limit, copy_of(in));
    }

    // Twice the input, by a graph of its own that an operator runs in its step.
    void add_sub_graph(size_t in) {
        const Var& source = m_vars[in];
        if (2 * source.limit > EXACT_LIMIT)
            return add_view(in);
        TestOperator::Behaviour behaviour;
        behaviour.key = m_vars.size();
        behaviour.node = somewhere().comp_nodes[0];
        behaviour.infer =
            shape_rule(orb::InferSource::DEPENDENT, [](kern::TensorShape& shape, const auto& deps) {
                shape = *deps[0].shape;
                return true;
            });
        const auto inner = make_tensor<float>({1, 1}, {0}, behaviour.node);
        const auto graph = m_graph->make_sub_graph();
        orb::GraphVar* input = orb::SharedTensorInput::make(*graph, inner);
        orb::GraphVar* sum =
            orb::ElementwiseOperator::make({input, input}, kern::ElementwiseMode::ADD);
        const std::shared_ptr<orb::CompiledFunction> function = graph->compile({{sum, nullptr}});
        behaviour.run = [inner, sum, function](TestOperator& op) {
            inner->reset(op.input_value(0).storage(), op.input_value(0).layout());
            function->execute().wait();
            orb::DeviceTensorND(op.output_value(0)).copy_from_fixlayout(sum->device_value());
        };
        add(TestOperator::make(*m_graph, {source.var}, behaviour), source.axes, 2 * source.limit,
            [this, in](size_t row, size_t column) { return 2 * at(in, row, column); });
    }

    void add_conversion(size_t in) {
        orb::GraphVar* ints = orb::TypeConvert::make(m_vars[in].var, kern::DType::Int32());
        add(orb::TypeConvert::make(ints, kern::DType::Float32()), m_vars[in].axes, m_vars[in].limit,
            copy_of(in));
    }

    void add_reduction(size_t in) {
        const kern::ReduceMode modes[] = {kern::ReduceMode::SUM, kern::ReduceMode::SUM_SQR,
                                          kern::ReduceMode::MAX};
        const kern::ReduceMode mode = modes[below(std::size(modes))];
        const float limit = MAX_LENGTH * m_vars[in].limit * m_vars[in].limit;
        if (limit > EXACT_LIMIT)
            return add_view(in);
        const size_t axis = below(2);
        Axes axes = m_vars[in].axes;
        const Axis reduced = axes[axis];
        axes[axis] = ONE;
        orb::GraphVar* var = orb::ReduceOperator::make(
            m_vars[in].var, {mode, static_cast<int>(axis), kern::ReduceDataType::DEFAULT});
        add(var, axes, limit, [this, in, mode, axis, reduced](size_t row, size_t column) {
            float result = mode == kern::ReduceMode::MAX ? at(in, row, column) : 0;
            for (size_t i = 0; i < m_lengths[reduced]; ++i) {
                const float x = axis == 0 ? at(in, i, column) : at(in, row, i);
                if (mode == kern::ReduceMode::MAX)
                    result = std::max(result, x);
                else
                    result += mode == kern::ReduceMode::SUM ? x : x * x;
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
        add(orb::MatrixMultiply::make(x.var, y.var, param, somewhere()),
            {x.axes[turn_a], y.axes[!turn_b]}, limit,
            [this, a, b, turn_a, turn_b, depth](size_t row, size_t column) {
                float sum = 0;
                for (size_t k = 0; k < m_lengths[depth]; ++k)
                    sum += (turn_a ? at(a, k, row) : at(a, row, k)) *
                           (turn_b ? at(b, column, k) : at(b, k, column));
                return sum;
            });
    }

    void set_inputs() {
        fill<float>(*m_lengths_tensor, {NR_AXES}, {m_lengths.begin(), m_lengths.end()});
        for (size_t i = 0; i < m_inputs.size(); ++i) {
            const kern::TensorShape shape = shape_of(m_vars[i]);
            const size_t kind = below(3);
            if (kind == 0) {  // part of something wider
                const orb::DeviceTensorND wide(m_nodes[0], {shape[0], shape[1] + 2},
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

    const Kind m_kind;
    std::vector<orb::CompNode> m_nodes;
    std::mt19937 m_random;
    std::shared_ptr<orb::ComputeGraph> m_graph = orb::ComputeGraph::make();
    std::array<size_t, NR_AXES> m_lengths{1, 2, 3};
    std::shared_ptr<orb::DeviceTensorND> m_lengths_tensor =
        make_tensor<float>({NR_AXES}, {1, 2, 3});
    orb::GraphVar* m_lengths_var = orb::SharedTensorInput::make(*m_graph, m_lengths_tensor);
    std::vector<std::shared_ptr<orb::DeviceTensorND>> m_inputs;
    std::vector<Var> m_vars;  // the inputs first
};

}  // namespace orb_test
