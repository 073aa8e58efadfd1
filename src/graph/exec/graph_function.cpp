#include "graph/exec/graph_function.h"

#include <algorithm>

#include "graph/memory/var_memory_manager.h"
#include "kernels/check.h"

namespace orb {

GraphFunction::GraphFunction(std::shared_ptr<ComputeGraph> graph,
                                   std::vector<GraphOperator*> operators,
                                   std::vector<GraphVar*> output_vars)
    : m_graph(std::move(graph)),
      m_operators(std::move(operators)),
      m_output_vars(std::move(output_vars)) {
    for (const GraphOperator* op : m_operators) {
        for (const GraphVar* var : op->output()) {
            const CompNode node = var->comp_node();
            if (std::find(m_comp_nodes.begin(), m_comp_nodes.end(), node) == m_comp_nodes.end())
                m_comp_nodes.push_back(node);
        }
    }
}

GraphFunction::~GraphFunction() {
    if (m_graph)
        m_graph->function_destroyed(this);
}

CompiledFunction& GraphFunction::execute() {
    check_not_finalized();
    KERN_CHECK(m_graph && m_graph->current_function() == this);
    wait();
    ++m_run_count;
    VarMemoryManager& memory = m_graph->memory_manager();
    const VarMemoryManager::BusyMark busy(memory);
    const std::lock_guard<std::mutex> run_lock(m_graph->run_mutex());
    // Cleared only after success: a plan that failed for lack of memory is made again.
    memory.allocate_static_memory(m_force_replan);
    m_force_replan = false;
    m_graph->events().before_run.signal({this});
    if (m_needs_init)
        build_env();
    m_exec_env.run();
    m_wait_needed = true;
    return *this;
}

void GraphFunction::build_env() {
    m_exec_env.clear();
    for (GraphOperator* op : m_operators)
        op->execute(m_exec_env);
    m_needs_init = false;
}

void GraphFunction::wait() {
    if (!m_wait_needed)
        return;
    for (CompNode node : m_comp_nodes)
        node.sync();
    m_wait_needed = false;
    m_graph->events().run_finished.signal({this, last_run_time()});
}

double GraphFunction::last_run_time() {
    KERN_CHECK(!m_wait_needed);
    return 0.0;
}

void GraphFunction::iterate_operators(
    const std::function<bool(GraphOperator*)>& function) const {
    for (GraphOperator* op : m_operators) {
        if (!function(op))
            return;
    }
}

void GraphFunction::clear_device_memory() {
    check_not_finalized();
    wait();
    m_graph->clear_device_memory();
}

void GraphFunction::retire() {
    wait();
    m_exec_env.clear();
    m_operators.clear();
    m_needs_init = true;
}

std::shared_ptr<void> GraphFunction::on_node_finalize() {
    wait();
    m_exec_env.clear();
    return nullptr;
}

}  // namespace orb
