// How long each operator took, from what the runtime tells of its steps.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "graph/exec/step_list.h"

namespace vekgraph {

struct ProfileRow {
    std::string name;
    std::string title;
    std::string node;
    uint64_t nr_steps = 0;
    double seconds = 0;
};

class Profile {
public:
    // From the thread that ran the step.
    void add(const orb::StepTime& step);
    void clear();
    uint64_t nr_steps() const;
    // The longest first. The operators must still be there.
    std::vector<ProfileRow> rows() const;

private:
    struct Sum {
        orb::CompNode node;
        uint64_t nr_steps = 0;
        double seconds = 0;
    };

    mutable std::mutex m_mutex;
    std::unordered_map<const orb::GraphOperator*, Sum> m_sums;
};

}  // namespace vekgraph
