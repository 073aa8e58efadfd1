#include "graph/exec/step_list.h"

#include <algorithm>
#include <chrono>

#include "graph/node/comp_node_env.h"
#include "kernels/check.h"

namespace orb {
namespace {

double now() {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(since_start).count();
}

}  // namespace

void StepList::add_node(CompNode node) {
    m_nodes.push_back({"comp_node_dispatch:" + node.to_string(), node, {}});
}

void StepList::add_node_task(CompNode node, StepTask task) {
    const auto found = std::find_if(m_nodes.begin(), m_nodes.end(),
                                    [node](const NodeSteps& list) { return list.node == node; });
    KERN_CHECK(found != m_nodes.end());
    found->steps.push_back(m_steps.size());
    m_steps.push_back({node, node.is_inline(), m_current_operator, std::move(task)});
}

void StepList::add_host_task(StepTask task) {
    m_steps.push_back({CompNode(), true, m_current_operator, std::move(task)});
}

void StepList::clear() {
    m_steps.clear();
    m_nodes.clear();
    m_current_operator = nullptr;
}

void StepList::run() const {
    if (m_is_paused)
        return;
    for (const Step& step : m_steps) {
        if (!step.node.valid()) {
            step.task();
            continue;
        }
        kern::CpuDispatcher& dispatcher = step.node.env().dispatcher();
        if (step.is_inline)
            dispatcher.submit([this, &step] { run_step(step); });
        else
            dispatcher.submit([this, &step] { run_on_worker(step); });
    }
}

// What the step gives to its node is due at once.
void StepList::run_on_worker(const Step& step) const {
    const kern::DispatcherStep in_place(step.node.env().dispatcher());
    run_step(step);
}

void StepList::run_step(const Step& step) const {
    if (!m_hook) {
        step.task();
        return;
    }
    const double begin = now();
    step.task();
    m_hook({step.op, step.node, begin, now()});
}

void StepList::run_here() const {
    for (const Step& step : m_steps)
        step.task();
}

}  // namespace orb
