// What load functions get of a parser's bytes, whether operators are made of them or only followed.
#pragma once

#include <string>

#include "serialization/graph_file_parser.h"

namespace orb {

class ParserContext : public OprLoadContext {
public:
    void read(void* buffer, size_t bytes) final { m_parser.source().read(buffer, bytes); }
    void read_more(void* buffer, size_t bytes) final { m_parser.source().read_more(buffer, bytes); }
    std::shared_ptr<const uint8_t> read_shared(size_t bytes) final {
        return m_parser.source().read_shared(bytes);
    }
    const GraphLoadConfig& config() const final { return m_config; }
    const std::string& tensor_name() const final { return m_tensor_name; }
    uint64_t bytes_left() const final { return m_parser.source().bytes_left(); }
    GraphFileError error(GraphFileFault fault) const final {
        return m_parser.source().error(fault);
    }

protected:
    // Both must outlive the context.
    ParserContext(GraphFileParser& parser, const GraphLoadConfig& config)
        : m_parser(parser), m_config(config) {}

    GraphFileParser& parser() { return m_parser; }
    TensorHeader read_tensor_header() {
        TensorHeader header = m_parser.read_tensor_header();
        m_tensor_name = header.name;
        return header;
    }
    // Of a tensor whose value must be there.
    TensorHeader read_valued_header() {
        TensorHeader header = read_tensor_header();
        if (!header.has_value)
            fail(GraphFileFault::VALUE);
        return header;
    }

private:
    GraphFileParser& m_parser;
    const GraphLoadConfig& m_config;
    std::string m_tensor_name;
};

}  // namespace orb
