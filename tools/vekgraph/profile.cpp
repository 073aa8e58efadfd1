#include "vekgraph/profile.h"

#include <algorithm>

#include "graph/core/operator.h"
#include "vekgraph/graph_file.h"

namespace vekgraph {

void Profile::add(const orb::StepTime& step) {
    if (!step.op)
        return;  // of the function itself
    const std::lock_guard<std::mutex> lock(m_mutex);
    Sum& sum = m_sums[step.op];
    sum.node = step.node;
    ++sum.nr_steps;
    sum.seconds += step.end - step.begin;
}

void Profile::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sums.clear();
}

uint64_t Profile::nr_steps() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    uint64_t steps = 0;
    for (const auto& entry : m_sums)
        steps += entry.second.nr_steps;
    return steps;
}

std::vector<ProfileRow> Profile::rows() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<ProfileRow> rows;
    for (const auto& [op, sum] : m_sums)
        rows.push_back(
            {op->name(), title_of(*op), sum.node.to_string(), sum.nr_steps, sum.seconds});
    std::sort(rows.begin(), rows.end(), [](const ProfileRow& a, const ProfileRow& b) {
        return a.seconds != b.seconds ? a.seconds > b.seconds : a.name < b.name;
    });
    return rows;
}

}  // namespace vekgraph
