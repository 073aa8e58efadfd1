#include "graph/exec/graph_function.h"

#include <algorithm>

#include "graph/exec/replay_function.h"
#include "kernels/check.h"

namespace orb {

GraphFunction::GraphFunction(std::shared_ptr<ComputeGraph> graph,
                             std::vector<GraphOperator*> operators,
                             std::vector<GraphVar*> output_vars)
    : m_graph(std::move(graph)),
      m_operators(std::move(operators)),
      m_output_vars(std::move(output_vars)) {
    for (const GraphOperator* op : m_operators) {
        for (CompNode node : op->comp_nodes()) {
            if (std::find(m_comp_nodes.begin(), m_comp_nodes.end(), node) != m_comp_nodes.end())
                continue;
            m_comp_nodes.push_back(node);
            m_runs_inline &= node.is_inline();
        }
    }
}

GraphFunction::~GraphFunction() {
    end_run();
    m_graph->function_destroyed(this);
}

CompiledFunction& GraphFunction::execute() {
    check_not_finalized();
    KERN_CHECK(m_graph->current_function() == this);
    // A second thread waits here, not at the busy mark, where it would stop the process.
    const std::lock_guard<RunMutex> run_lock(m_graph->run_mutex());
    finish_run();
    ++m_run_count;
    m_last_run_time.reset();
    m_busy.emplace(m_graph->memory_manager());
    try {
        start_run();
    } catch (...) {
        end_run();
        m_last_run_time = 0.0;  // its events were not all recorded
        throw;
    }
    return *this;
}

void GraphFunction::start_run() {
    // Cleared only after success: a plan that failed for lack of memory is made again.
    const MemoryChange change = m_graph->memory_manager().allocate_static_memory(m_force_replan);
    m_force_replan = false;
    // A replay reads and writes the memory that was there when it was recorded.
    if (change != MemoryChange::NONE)
        m_recorder.reset();
    if (m_graph->options().events)
        m_graph->events().before_run.signal({this});
    if (m_needs_init)
        build_steps();
    m_wait_needed = true;
    if (m_graph->options().record_level == 0 || !m_can_be_recorded) {
        m_recorder.reset();
        m_steps.run();
        if (m_runs_inline)
            m_busy.reset();
        return;
    }
    if (!m_recorder)
        m_recorder = record();
    replay();
}

void GraphFunction::build_steps() {
    m_steps.clear();
    m_waits.emplace(m_operators);
    m_timer.reset();
    if (m_graph->options().timing)
        m_timer.emplace(m_comp_nodes);
    for (CompNode node : m_comp_nodes)
        m_steps.add_node(node);
    if (m_timer)
        m_timer->add_starts(m_steps);
    for (size_t i = 0; i < m_operators.size(); ++i) {
        m_steps.begin_operator(m_operators[i]);
        m_waits->add_waits(i, m_steps);
        m_operators[i]->execute(m_steps);
        m_waits->add_records(i, m_steps);
    }
    m_steps.begin_operator(nullptr);
    if (m_timer)
        m_timer->add_ends(m_steps);
    m_can_be_recorded = can_be_recorded();
    m_needs_init = false;
}

// A recording holds addresses, so everything must have its place before the run; and it runs in one
// thread, so there must be one order.
bool GraphFunction::can_be_recorded() const {
    if (m_comp_nodes.size() != 1 || m_runs_inline || m_graph->options().never_record)
        return false;
    return std::all_of(m_operators.begin(), m_operators.end(), [](const GraphOperator* op) {
        return std::all_of(op->output().begin(), op->output().end(),
                           [](const GraphVar* var) { return var->is_static_storage(); });
    });
}

// The plan is frozen meanwhile: the memory is marked busy, by a run or for a recording for good.
std::unique_ptr<TaskRecorder> GraphFunction::record() {
    const CompNode node = m_comp_nodes[0];
    node.sync();
    auto recorder = node.make_recorder();  // gives the node free if a step throws
    // Operators take the memory that they keep, which cannot be done while tasks are recorded.
    recorder->begin_dry_run();
    m_steps.run_here();
    recorder->end_dry_run();
    m_steps.run_here();
    recorder->stop();
    return recorder;
}

// What cannot be recorded still gives right results as a plain function, on every machine and node;
// to stop would only help a caller who would rather have none.
std::unique_ptr<CompiledFunction> GraphFunction::record_for_good() {
    if (!can_be_recorded())
        return nullptr;
    const std::lock_guard<RunMutex> run_lock(m_graph->run_mutex());
    VarMemoryManager& memory = m_graph->memory_manager();
    const VarMemoryManager::BusyMark frozen(memory);
    memory.allocate_static_memory(m_force_replan);
    build_steps();
    Recording recording;
    recording.recorder = record();
    recording.memory = memory.device_memory();
    recording.timer = std::move(m_timer);
    for (GraphOperator* op : m_operators) {
        op->hand_over(recording.kept);
        for (const GraphVar* var : op->output()) {
            if (var->has_device_value())
                recording.storages.push_back(var->device_value().storage());
        }
    }
    return std::make_unique<ReplayFunction>(std::move(recording));
}

void GraphFunction::replay() {
    m_comp_nodes[0].sync();
    m_recorder->replay();
    finish_run();
}

void GraphFunction::wait() {
    // Looked at first: handlers of a finished run may wait for it once more.
    if (!m_wait_needed)
        return;
    const std::lock_guard<RunMutex> run_lock(m_graph->run_mutex());
    finish_run();
}

void GraphFunction::finish_run() {
    if (!m_wait_needed)
        return;
    end_run();
    if (m_graph->options().events)
        m_graph->events().run_finished.signal({this, last_run_time()});
}

void GraphFunction::end_run() {
    if (m_wait_needed) {
        for (CompNode node : m_comp_nodes)
            node.sync();
        m_graph->wait_for_sub_graphs();
        for (GraphOperator* op : m_operators)
            op->on_finish();
    }
    m_wait_needed = false;
    m_busy.reset();
}

double GraphFunction::last_run_time() {
    KERN_CHECK(!m_wait_needed);
    if (!m_last_run_time)
        m_last_run_time = m_timer && m_run_count > 1 ? m_timer->longest() : 0.0;
    return *m_last_run_time;
}

void GraphFunction::iterate_operators(const std::function<bool(GraphOperator*)>& function) const {
    for (GraphOperator* op : m_operators) {
        if (!function(op))
            return;
    }
}

void GraphFunction::clear_device_memory() {
    check_not_finalized();
    m_graph->clear_device_memory();
}

void GraphFunction::drop_steps() {
    m_recorder.reset();
    m_steps.clear();
    m_waits.reset();
    m_timer.reset();
    m_needs_init = true;
}

void GraphFunction::retire() {
    bool was_running = false;
    {
        const std::lock_guard<RunMutex> run_lock(m_graph->run_mutex());
        was_running = m_wait_needed;
        end_run();
    }
    const double seconds = last_run_time();
    // First the steps, whose waits the vars must have forgotten before another function sets its
    // own.
    drop_steps();
    m_operators.clear();
    if (was_running && m_graph->options().events)
        m_graph->events().run_finished.signal({this, seconds});
}

std::shared_ptr<void> GraphFunction::on_node_finalize() {
    end_run();
    drop_steps();
    return nullptr;
}

}  // namespace orb
