#include "serialization/graph_file_error.h"

namespace orb {
namespace {

const char* text_of(GraphFileFault fault) {
    switch (fault) {
        case GraphFileFault::IO:
            return "the system cannot read or write here";
        case GraphFileFault::TRUNCATED:
            return "the file ends inside a field";
        case GraphFileFault::MAGIC:
            return "this is not a graph file";
        case GraphFileFault::FEATURES:
            return "a reserved feature bit is set";
        case GraphFileFault::ZERO_HASH:
            return "the graph hash is 0";
        case GraphFileFault::OTHER_HASH:
            return "the graph hash is not that of the first load";
        case GraphFileFault::NUMBER:
            return "a number has more than 64 bits";
        case GraphFileFault::STRING:
            return "a string is longer than 1048576 bytes";
        case GraphFileFault::COUNT:
            return "a count is larger than the rest of the file can hold";
        case GraphFileFault::INDEX:
            return "an index is outside its table";
        case GraphFileFault::NODE:
            return "a node cannot be loaded";
        case GraphFileFault::DTYPE:
            return "a data type is not known, or its scale is not finite and positive";
        case GraphFileFault::SHAPE:
            return "a shape has no or too many axes, or is too large";
        case GraphFileFault::VALUE:
            return "a tensor has no value, or is too large to be without one";
        case GraphFileFault::UNKNOWN_OPERATOR:
            return "the operator's id is not known";
        case GraphFileFault::UNAVAILABLE_OPERATOR:
            return "the operator is known, but not available";
        case GraphFileFault::OPERATOR:
            return "the operator does not take these inputs or parameters";
        case GraphFileFault::END_MARK:
            return "the record does not end with its mark";
        case GraphFileFault::SHARED_COUNT:
            return "the shared tensors are not as many as the header says";
    }
    return "";
}

}  // namespace

GraphFileError::GraphFileError(GraphFileFault fault, uint64_t offset,
                               std::optional<uint64_t> record)
    : m_fault(fault), m_offset(offset), m_record(record), m_text("byte " + std::to_string(offset)) {
    if (record)
        m_text += ", operator " + std::to_string(*record);
    m_text += std::string(": ") + text_of(fault);
}

}  // namespace orb
