// `vekgraph draw`: the operators as boxes and the vars between them as arrows, in the dot language.
#include <fstream>
#include <iostream>

#include "common/failure.h"
#include "common/json.h"
#include "common/text.h"
#include "vekgraph/commands.h"
#include "vekgraph/graph_file.h"
#include "vekgraph/graphviz.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

using Facts = orb::GraphFileFacts;

// In a quoted string of the dot language, where a backslash and an ampersand begin escapes.
std::string escaped(const std::string& text) {
    std::string result;
    for (char c : tools::printable(text)) {
        if (c == '&') {
            result += "&amp;";
            continue;
        }
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result;
}

// The operators' tensors stand in the order of the operators.
class TensorWalk {
public:
    explicit TensorWalk(const Facts& facts) : m_tensors(facts.tensors) {}

    // The tensor of the operator, which comes behind the one asked for before; null for none.
    const orb::TensorFacts* of(uint64_t operator_index) {
        while (m_next < m_tensors.size() && m_tensors[m_next].operator_index < operator_index)
            ++m_next;
        const bool has_one =
            m_next < m_tensors.size() && m_tensors[m_next].operator_index == operator_index;
        return has_one ? &m_tensors[m_next] : nullptr;
    }

private:
    const std::vector<orb::TensorFacts>& m_tensors;
    size_t m_next = 0;
};

struct TensorLook {
    const char* word;
    const char* attributes;
};

TensorLook look_of(const orb::TensorFacts& tensor) {
    if (is_input(tensor))
        return {"input", "shape=ellipse, fillcolor=\"#cfe2f3\""};
    if (is_parameter(tensor))
        return {"parameter", "fillcolor=\"#d9ead3\""};
    return {"constant", "fillcolor=\"#eeeeee\""};
}

void write_operator(std::ostream& out, size_t index, const orb::OperatorFacts& op,
                    const orb::TensorFacts* tensor) {
    out << "  o" << index << " [label=\"";
    if (tensor) {
        const TensorLook look = look_of(*tensor);
        out << look.word << (tensor->header.name.empty() ? "" : " ") << escaped(tensor->header.name)
            << "\\n"
            << escaped(tensor_text(tensor->header.layout)) << "\", " << look.attributes;
    } else {
        out << escaped(title_of(op.head.record));
        if (op.head.output_dtype.valid())
            out << "\\nto " << escaped(dtype_text(op.head.output_dtype));
        out << '"';
    }
    out << "];\n";
}

// Which operator made each var.
std::vector<size_t> makers_of_vars(const Facts& facts) {
    std::vector<size_t> makers;
    for (size_t i = 0; i < facts.operators.size(); ++i)
        makers.insert(makers.end(), facts.operators[i].nr_outputs, i);
    return makers;
}

// An arrow names its var where the file does, and the place among several outputs otherwise.
std::string arrow_label(const Facts& facts, const std::vector<size_t>& makers, uint64_t var) {
    const std::string name = facts.var_name(var);
    const orb::OperatorFacts& maker = facts.operators[makers[static_cast<size_t>(var)]];
    if (!name.empty() || maker.nr_outputs == 1)
        return name;
    return "output " + std::to_string(var - maker.first_output);
}

void write_arrow(std::ostream& out, const Facts& facts, const std::vector<size_t>& makers,
                 uint64_t var, const std::string& target) {
    out << "  o" << makers[static_cast<size_t>(var)] << " -> " << target;
    const std::string label = arrow_label(facts, makers, var);
    if (!label.empty())
        out << " [label=\"" << escaped(label) << "\"]";
    out << ";\n";
}

void write_dot(std::ostream& out, const Facts& facts) {
    const std::vector<size_t> makers = makers_of_vars(facts);
    out << "digraph graph_file {\n"
           "  node [shape=box, style=filled, fillcolor=white, fontname=\"sans-serif\"];\n"
           "  edge [fontname=\"sans-serif\", fontsize=10];\n";
    TensorWalk tensors(facts);
    for (size_t i = 0; i < facts.operators.size(); ++i) {
        write_operator(out, i, facts.operators[i], tensors.of(i));
        for (uint64_t var : facts.operators[i].head.inputs)
            write_arrow(out, facts, makers, var, "o" + std::to_string(i));
    }
    for (size_t i = 0; i < facts.outputs.size(); ++i) {
        const std::string node = "r" + std::to_string(i);
        out << "  " << node << " [label=\"output " << i
            << "\", shape=ellipse, fillcolor=\"#fce5cd\"];\n";
        write_arrow(out, facts, makers, facts.outputs[i].var, node);
    }
    if (facts.stopped_at)
        out << "  rest [label=\"" << facts.header.nr_operators - facts.operators.size()
            << " operators that cannot be read\\nfrom byte " << facts.stopped_at->offset
            << " on\", style=dashed];\n";
    out << "}\n";
}

void write_json(std::ostream& out, const Facts& facts) {
    tools::JsonWriter json(out);
    json.begin_object();
    json.key("operators").begin_array();
    TensorWalk tensors(facts);
    for (size_t i = 0; i < facts.operators.size(); ++i) {
        const orb::OperatorFacts& op = facts.operators[i];
        json.begin_object();
        json.key("title").value(title_of(op.head.record));
        json.key("byte").value(op.head.offset);
        json.key("inputs").begin_array();
        for (uint64_t var : op.head.inputs)
            json.value(var);
        json.end_array();
        json.key("first_output").value(op.first_output);
        json.key("nr_outputs").value(uint64_t{op.nr_outputs});
        json.key("names").begin_array();
        for (const std::string& name : op.tail.names)
            json.value(name);
        json.end_array();
        if (const orb::TensorFacts* tensor = tensors.of(i)) {
            json.key("kind").value(look_of(*tensor).word);
            write_tensor_fields(json, tensor->header);
        }
        json.end_object();
    }
    json.end_array();
    json.key("outputs").begin_array();
    for (const orb::OutputRecord& output : facts.outputs)
        json.value(output.var);
    json.end_array();
    json.end_object();
    json.finish();
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

int draw(const FileOptions& file, const DrawOptions& options) {
    const std::string& output = options.output;
    const std::string picture = ends_with(output, ".svg")   ? "svg"
                                : ends_with(output, ".png") ? "png"
                                                            : "";
    const bool is_text = output.empty() || ends_with(output, file.json ? ".json" : ".dot");
    if (file.json ? !is_text : (!is_text && picture.empty()))
        throw tools::BadUse("--output: " + output + " does not end in " +
                            (file.json ? ".json" : ".dot, .svg or .png"));
    const Facts facts = inspect_what_is_known(file);
    const auto write = [&](std::ostream& out) {
        file.json ? write_json(out, facts) : write_dot(out, facts);
    };
    if (!picture.empty()) {
        draw_picture(picture, output, write);
    } else if (output.empty()) {
        write(std::cout);
    } else {
        std::ofstream out(output, std::ios::binary);
        write(out);
        if (!out.flush())
            throw tools::BadUse(output + ": cannot be written");
    }
    return 0;
}

}  // namespace vekgraph
