// What dump functions get while a file is written: the sink, which also makes the digest, and the
// tables by which tensors name their nodes and dtypes.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "graph/core/hash.h"
#include "serialization/contexts.h"
#include "serialization/graph_dumper.h"
#include "serialization/graph_file_header.h"

namespace orb {

// The nodes in the order in which their texts were written, as a reader counts them.
class WrittenNodes {
public:
    // The node's place, if it has one below the limit. Otherwise its text must be written, and
    // takes the next place.
    std::optional<size_t> find(const std::string& text, size_t limit) const;
    void add(const std::string& text);

private:
    std::unordered_map<std::string, size_t> m_first_place;
    size_t m_count = 0;
};

class DumpContext final : public OprDumpContext {
public:
    DumpContext(OutputFile& file, const GraphDumpConfig& config,
                const std::array<uint8_t, NR_LISTED_DTYPES>& dtypes);

    void write(const void* buffer, size_t bytes) override;
    void dump_tensor(const std::string& given_name, const DeviceTensorND& tensor,
                     TensorMethod method) override;
    const GraphDumpConfig& config() const override { return m_config; }

    // For what is not part of the digest.
    void write_unhashed(const void* buffer, size_t bytes) { m_file.write(buffer, bytes); }
    void write_config_nodes(const std::vector<CompNode>& nodes);
    uint64_t digest() const { return graph_hash_of(m_hasher.digest()); }
    uint64_t nr_shared_tensors() const { return m_nr_shared; }
    // Names of tensors, and bytes of values, so far.
    GraphDumpResult& result() { return m_result; }

private:
    unsigned dtype_code(kern::DType dtype) const;
    void write_tensor_node(const std::string& node);
    void write_value(const DeviceTensorND& tensor);
    void note_tensor(const std::string& name, TensorMethod method);

    OutputFile& m_file;
    const GraphDumpConfig& m_config;
    std::array<uint8_t, NR_LISTED_DTYPES> m_dtypes;
    Hasher m_hasher;
    WrittenNodes m_nodes;
    uint64_t m_nr_shared = 0;
    GraphDumpResult m_result;
};

}  // namespace orb
