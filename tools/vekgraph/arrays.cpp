#include "vekgraph/arrays.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "common/failure.h"
#include "common/text.h"
#include "vekgraph/graph_file.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

std::vector<const orb::TensorHeader*> inputs_of(const orb::GraphFileFacts& facts) {
    std::vector<const orb::TensorHeader*> inputs;
    std::set<std::string> names;
    for (const orb::TensorFacts& tensor : facts.tensors) {
        if (!is_input(tensor))
            continue;
        const std::string place = "the input at byte " + std::to_string(tensor.header.offset);
        if (tensor.header.name.empty())
            throw tools::BadFile(place + " has no name to give it a value by");
        if (!names.insert(tensor.header.name).second)
            throw tools::BadFile(place + " has the name of another, " + tensor.header.name);
        inputs.push_back(&tensor.header);
    }
    return inputs;
}

struct InputWord {
    size_t input;
    std::string path;
};

// Names and paths may both have an equals sign, so the inputs decide where the name ends.
InputWord split(const std::string& word, const std::vector<const orb::TensorHeader*>& inputs) {
    for (size_t end = word.find('='); end != std::string::npos; end = word.find('=', end + 1)) {
        for (size_t i = 0; i < inputs.size(); ++i) {
            if (inputs[i]->name.size() == end && word.compare(0, end, inputs[i]->name) == 0)
                return {i, word.substr(end + 1)};
        }
    }
    std::string names;
    for (const orb::TensorHeader* input : inputs)
        names += (names.empty() ? "" : ", ") + input->name;
    throw tools::BadUse("--input: " + word +
                        " does not begin with NAME= of an input; the file has " +
                        (names.empty() ? "none" : names));
}

InputArray read_input(const orb::TensorHeader& input, const std::string& path) {
    InputArray result{input.name, input.layout.dtype, npy::read(path)};
    const auto type = element_type_of(result.dtype);
    if (!type || *type != result.array.type)
        throw tools::BadUse(path + " has elements of type " + npy::name_of(result.array.type) +
                            ", but the input " + input.name + " takes " + dtype_text(result.dtype));
    const size_t rank = result.array.shape.size();
    if (rank == 0 || rank > kern::TensorShape::MAX_NDIM)
        throw tools::BadUse(path + " has " + std::to_string(rank) +
                            " axes, and a tensor has 1 to " +
                            std::to_string(kern::TensorShape::MAX_NDIM));
    return result;
}

}  // namespace

std::vector<InputArray> read_inputs(const orb::GraphFileFacts& facts,
                                    const std::vector<std::string>& words) {
    const auto inputs = inputs_of(facts);
    std::vector<std::optional<InputArray>> arrays(inputs.size());
    for (const std::string& word : words) {
        const auto [index, path] = split(word, inputs);
        if (arrays[index])
            throw tools::BadUse("--input: " + inputs[index]->name + " is given twice");
        arrays[index] = read_input(*inputs[index], path);
    }
    std::vector<InputArray> result;
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (!arrays[i])
            throw tools::BadUse("--input: the input " + inputs[i]->name + " is missing; it takes " +
                                tensor_text(inputs[i]->layout) + " or another shape");
        result.push_back(std::move(*arrays[i]));
    }
    return result;
}

orb::HostTensorND tensor_of(const InputArray& input) {
    orb::HostTensorND tensor(orb::CompNode::default_cpu(), kern::TensorShape(input.array.shape),
                             input.dtype);
    if (!input.array.bytes.empty())
        std::memcpy(tensor.raw_ptr(), input.array.bytes.data(), input.array.bytes.size());
    return tensor;
}

OutputArray array_of(const orb::DeviceTensorND& value) {
    const kern::TensorLayout& layout = value.layout();
    OutputArray result{layout.dtype, layout, {}};
    if (layout.dtype.is_low_bit() || layout.is_empty())
        return result;
    orb::HostTensorND contiguous;
    contiguous.copy_from(value);
    value.comp_node().sync();
    const uint8_t* source = contiguous.raw_ptr();
    result.bytes.assign(source, source + layout.dtype.byte_size(layout.element_count()));
    return result;
}

std::optional<npy::ElementType> element_type_of(kern::DType dtype) {
    switch (dtype.enum_value()) {
        case kern::DTypeEnum::FLOAT32:
            return npy::ElementType::FLOAT32;
        case kern::DTypeEnum::FLOAT16:
            return npy::ElementType::FLOAT16;
        case kern::DTypeEnum::UINT8:
        case kern::DTypeEnum::BYTE:
        case kern::DTypeEnum::QUANTIZED8_ASYMM:
            return npy::ElementType::UINT8;
        case kern::DTypeEnum::INT8:
        case kern::DTypeEnum::QUANTIZED_S8:
            return npy::ElementType::INT8;
        case kern::DTypeEnum::INT16:
            return npy::ElementType::INT16;
        case kern::DTypeEnum::INT32:
        case kern::DTypeEnum::QUANTIZED_S32:
            return npy::ElementType::INT32;
        default:
            return std::nullopt;
    }
}

std::vector<std::string> output_file_names(const std::vector<std::string>& names) {
    std::vector<std::string> files;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string index = std::to_string(i);
        std::string stem = names[i].empty() ? "output-" + index : tools::safe_file_name(names[i]);
        while (std::find(files.begin(), files.end(), stem + ".npy") != files.end())
            stem += "-" + index;
        files.push_back(stem + ".npy");
    }
    return files;
}

}  // namespace vekgraph
