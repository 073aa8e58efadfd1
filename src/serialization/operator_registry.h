// Which operator an id in a graph file stands for, and how its parameters are read and written.
// `instance` is filled at first use and only read then, from any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "serialization/contexts.h"

namespace orb {

using OperatorDump = std::function<void(OprDumpContext&, const GraphOperator&)>;
// Null for no operator, which stops the process.
using OperatorLoad = std::function<GraphOperator*(OprLoadContext&, const std::vector<GraphVar*>&,
                                                  const OperatorConfig&)>;
using OperatorCopyRecord = std::function<GraphVar*(
    const GraphOperator&, const std::vector<GraphVar*>&, const OperatorConfig&)>;
// Reads the parameters without making the operator, and gives the number of outputs that are not
// volatile. `fail`s where the operator would not take so many inputs.
using OperatorFollow = std::function<size_t(OprLoadContext&, size_t nr_inputs)>;

struct OperatorRecord {
    const OperatorType* type = nullptr;  // null for older forms, and for what is not available
    uint64_t persist_id = 0;
    std::string name;  // tells apart those that share the reserved id, otherwise empty
    OperatorDump dump;
    OperatorLoad load;
    OperatorCopyRecord copy;
    OperatorFollow follow;
    const char* title = "";  // for people
};

class OperatorRegistry {
public:
    // Shared by types without an id of their own: their records begin with the name.
    static constexpr uint64_t RESERVED_ID = 0x1844d7e32fc15038;

    OperatorRegistry() = default;
    OperatorRegistry(const OperatorRegistry&) = delete;
    OperatorRegistry& operator=(const OperatorRegistry&) = delete;

    static const OperatorRegistry& instance();

    // An id that is there already, or that a word of this target cannot tell from one, stops the
    // process, except for the reserved one, whose records come without a `load`. So does a record
    // without a type that has a `dump` or `copy`. A type without a `copy` is copied through its
    // `dump` and `load`.
    void add(OperatorRecord record);
    void set_copy(const OperatorType* type, OperatorCopyRecord copy);
    // For a record of the reserved id.
    void set_load(const std::string& name, OperatorLoad load, OperatorFollow follow);

    // Null for none.
    const OperatorRecord* find_by_id(uint64_t id) const;
    const OperatorRecord* find_by_type(const OperatorType* type) const;
    // In the order in which they were added.
    const std::deque<OperatorRecord>& records() const { return m_records; }

private:
    OperatorRecord& store(OperatorRecord record);
    void add_type(OperatorRecord& record);
    void add_named(OperatorRecord record);
    const OperatorRecord& named(OprLoadContext& context) const;

    std::deque<OperatorRecord> m_records;  // never moved
    std::deque<OperatorRecord> m_named;    // of the reserved id
    std::unordered_map<size_t, const OperatorRecord*> m_by_id;
    std::unordered_map<const OperatorType*, OperatorRecord*> m_by_type;
};

// Writes the operator's record to memory and reads it with the new inputs, which must take all of
// it.
GraphVar* copy_through_record(const OperatorRecord& record, const GraphOperator& op,
                              const std::vector<GraphVar*>& inputs, const OperatorConfig& config);

}  // namespace orb
