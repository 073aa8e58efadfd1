// Graphs in memory as files, and a source of random ones.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "graph/core/compiled_function.h"
#include "serialization/graph_dumper.h"
#include "serialization/graph_inspector.h"
#include "serialization/graph_loader.h"
#include "tests/graph/graph_test_util.h"

namespace orb_test {

using Bytes = std::vector<uint8_t>;

inline Bytes dumped(const std::vector<orb::GraphVar*>& vars,
                    const orb::GraphDumpConfig& config = {},
                    orb::GraphDumpResult* result = nullptr) {
    Bytes bytes;
    const auto told = orb::GraphDumper(orb::OutputFile::to_memory(bytes)).dump(vars, config);
    EXPECT_EQ(told.total_bytes, bytes.size());
    if (result)
        *result = told;
    return bytes;
}

inline std::unique_ptr<orb::InputFile> as_file(const Bytes& bytes) {
    return orb::InputFile::from_memory(bytes.data(), bytes.size());
}

inline orb::GraphLoadResult loaded(const Bytes& bytes, const orb::GraphLoadConfig& config = {}) {
    return orb::GraphLoader(as_file(bytes)).load(config);
}

inline orb::GraphFileFacts inspected(const Bytes& bytes) {
    const auto file = as_file(bytes);
    return orb::inspect_graph_file(*file);
}

// The bytes of each var's value, and its dtype's number in front.
inline std::vector<Bytes> run_all(const std::vector<orb::GraphVar*>& vars) {
    std::vector<Bytes> values(vars.size());
    std::vector<orb::OutputSpec> specs;
    for (size_t i = 0; i < vars.size(); ++i) {
        specs.push_back({vars[i], [&values, i](const orb::DeviceTensorND& tensor) {
                             orb::HostTensorND host;
                             host.copy_from(tensor);
                             tensor.comp_node().sync();
                             const auto size = host.dtype().byte_size(host.shape().element_count());
                             values[i].push_back(static_cast<uint8_t>(host.dtype().enum_value()));
                             if (size != 0)
                                 values[i].insert(values[i].end(), host.raw_ptr(),
                                                  host.raw_ptr() + size);
                         }});
    }
    vars[0]->owner_graph().compile(specs)->execute().wait();
    return values;
}

// A graph over all operators that a file can hold, with whatever a file keeps of them.
class RandomFileGraph {
public:
    RandomFileGraph(unsigned seed, std::vector<orb::CompNode> nodes);

    std::vector<orb::GraphVar*> outputs() const;
    // By the names of the inputs' vars.
    const std::vector<std::pair<std::string, std::shared_ptr<orb::DeviceTensorND>>>& inputs()
        const {
        return m_inputs;
    }

private:
    size_t below(size_t end) { return m_random() % end; }
    orb::GraphVar* any() { return m_vars[below(2) ? m_vars.size() - 1 - below(3) : below(4)]; }
    orb::OperatorConfig somewhere();
    std::shared_ptr<orb::DeviceTensorND> random_tensor();
    void add_sources();
    orb::GraphVar* make_operator();
    orb::GraphVar* make_convolution(orb::GraphVar* source);
    orb::GraphVar* make_reduction(orb::GraphVar* source);
    orb::GraphVar* through_other_dtypes(orb::GraphVar* source);

    std::mt19937 m_random;
    std::vector<orb::CompNode> m_nodes;
    std::shared_ptr<orb::ComputeGraph> m_graph = orb::ComputeGraph::make();
    std::vector<std::pair<std::string, std::shared_ptr<orb::DeviceTensorND>>> m_inputs;
    std::vector<orb::GraphVar*> m_vars;  // Float32 matrices {SIZE, SIZE}
};

}  // namespace orb_test
