#include "serialization/operator_registry.h"

#include <algorithm>
#include <utility>

#include "kernels/check.h"
#include "serialization/byte_forms.h"
#include "serialization/operator_table.h"

namespace orb {

const OperatorRegistry& OperatorRegistry::instance() {
    // Never destroyed: graphs may be written in destructors that run at exit.
    static const OperatorRegistry& registry = []() -> const OperatorRegistry& {
        auto& made = *new OperatorRegistry;
        add_all_operators(made);
        return made;
    }();
    return registry;
}

void OperatorRegistry::add(OperatorRecord record) {
    if (record.persist_id == RESERVED_ID) {
        add_named(std::move(record));
        return;
    }
    KERN_CHECK(record.name.empty());
    KERN_CHECK(record.type || (!record.dump && !record.copy));
    OperatorRecord& stored = store(std::move(record));
    if (stored.type)
        add_type(stored);
}

OperatorRecord& OperatorRegistry::store(OperatorRecord record) {
    OperatorRecord& stored = m_records.emplace_back(std::move(record));
    KERN_CHECK(m_by_id.emplace(static_cast<size_t>(stored.persist_id), &stored).second);
    return stored;
}

void OperatorRegistry::add_type(OperatorRecord& record) {
    KERN_CHECK(m_by_type.emplace(record.type, &record).second);
    if (!record.copy) {
        record.copy = [&record](const GraphOperator& op, const std::vector<GraphVar*>& inputs,
                                const OperatorConfig& config) {
            return copy_through_record(record, op, inputs, config);
        };
    }
}

void OperatorRegistry::add_named(OperatorRecord record) {
    KERN_CHECK(record.type && !record.load && !record.name.empty());
    if (!find_by_id(RESERVED_ID)) {
        OperatorRecord shared;
        shared.persist_id = RESERVED_ID;
        shared.title = "operators told by name";
        shared.load = [this](OprLoadContext& context, const std::vector<GraphVar*>& inputs,
                             const OperatorConfig& config) {
            return named(context).load(context, inputs, config);
        };
        shared.follow = [this](OprLoadContext& context, size_t nr_inputs) {
            return named(context).follow(context, nr_inputs);
        };
        store(std::move(shared));
    }
    add_type(m_named.emplace_back(std::move(record)));
}

void OperatorRegistry::set_copy(const OperatorType* type, OperatorCopyRecord copy) {
    const auto found = m_by_type.find(type);
    KERN_CHECK(found != m_by_type.end());
    found->second->copy = std::move(copy);
}

void OperatorRegistry::set_load(const std::string& name, OperatorLoad load, OperatorFollow follow) {
    const auto found = std::find_if(m_named.begin(), m_named.end(),
                                    [&name](const auto& record) { return record.name == name; });
    KERN_CHECK(found != m_named.end());
    found->load = std::move(load);
    found->follow = std::move(follow);
}

// Of the name with which the record begins.
const OperatorRecord& OperatorRegistry::named(OprLoadContext& context) const {
    const std::string name = read_string(context);
    for (const OperatorRecord& record : m_named) {
        if (record.name == name && record.load)
            return record;
    }
    context.fail(GraphFileFault::UNKNOWN_OPERATOR);
}

const OperatorRecord* OperatorRegistry::find_by_id(uint64_t id) const {
    const auto found = m_by_id.find(static_cast<size_t>(id));
    return found != m_by_id.end() && found->second->persist_id == id ? found->second : nullptr;
}

const OperatorRecord* OperatorRegistry::find_by_type(const OperatorType* type) const {
    const auto found = m_by_type.find(type);
    return found == m_by_type.end() ? nullptr : found->second;
}

}  // namespace orb
