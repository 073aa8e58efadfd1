#include "vekgraph/graph_run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>

#include "common/failure.h"
#include "graph/exec/graph_function.h"
#include "serialization/graph_loader.h"
#include "vekgraph/graph_file.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

class Stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_start = Clock::now();
};

// Tells a person who waits how many runs there were; nobody else.
class ProgressLine {
public:
    explicit ProgressLine(uint64_t nr_runs)
        : m_nr_runs(nr_runs), m_is_wanted(::isatty(STDERR_FILENO) == 1) {}
    ~ProgressLine() {
        if (m_was_shown)
            std::cerr << "\r\x1b[K" << std::flush;
    }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(uint64_t nr_done) {
        constexpr double INTERVAL = 0.25;
        if (!m_is_wanted || m_since_shown.seconds() < INTERVAL)
            return;
        std::cerr << "\rrun " << nr_done << " of " << m_nr_runs << std::flush;
        m_was_shown = true;
        m_since_shown = Stopwatch();
    }

private:
    uint64_t m_nr_runs;
    bool m_is_wanted;
    bool m_was_shown = false;
    Stopwatch m_since_shown;
};

void set_inputs(const orb::GraphLoadResult& graph, const std::vector<InputArray>& inputs) {
    for (const InputArray& input : inputs) {
        orb::DeviceTensorND& tensor = *graph.tensor_map.at(input.name);
        const orb::HostTensorND host = tensor_of(input);
        tensor.copy_from(host);
        tensor.comp_node().sync();  // `host` must outlive the copy
    }
}

void check_outputs(const orb::GraphLoadResult& graph, const RunOptions& options) {
    if (graph.output_vars.empty())
        throw tools::BadFile("the graph has no outputs to run for");
    bool is_inline = true;
    for (const orb::GraphVar* var : graph.output_vars) {
        is_inline &= var->comp_node().is_inline();
        if (!options.output_folder.empty() && !element_type_of(var->dtype()))
            throw tools::BadFile("an output has elements of type " + dtype_text(var->dtype()) +
                                 ", for which .npy files have no form");
    }
    if (options.record && is_inline)
        throw tools::BadUse("--record needs a node with a worker, such as --node cpu0");
}

// Keeps what the outputs are in the first run.
class OutputKeeper {
public:
    explicit OutputKeeper(size_t nr_outputs) : m_outputs(nr_outputs) {}

    orb::OutputCallback callback_for(size_t index) {
        return [this, index](const orb::DeviceTensorND& value) {
            if (m_is_keeping)
                m_outputs[index] = array_of(value);
        };
    }
    std::vector<OutputArray> take() {
        m_is_keeping = false;
        return std::move(m_outputs);
    }

private:
    std::vector<OutputArray> m_outputs;
    bool m_is_keeping = true;
};

std::string inferred_shape(orb::GraphVar* var) {
    orb::InferenceManager& manager = var->owner_graph().inference_manager();
    return is_static(manager.shape_kind(var)) ? manager.shape_of_var(var).to_string() : "{?}";
}

// Operator by operator, so that the first one that cannot take its inputs is known by name. The run
// finds the shapes there.
void infer_shapes(const orb::CompiledFunction& function, ChildProgress& progress) {
    function.iterate_operators([&progress](orb::GraphOperator* op) {
        std::string inputs;
        for (orb::GraphVar* var : op->input())
            inputs += (inputs.empty() ? " of " : ", ") + inferred_shape(var);
        progress.note_subject(title_of(*op) + " " + op->name() + inputs);
        for (orb::GraphVar* var : op->output())
            inferred_shape(var);
        return true;
    });
}

double timed_run(orb::CompiledFunction& function) {
    const Stopwatch watch;
    function.execute().wait();
    return watch.seconds();
}

void run_again(orb::CompiledFunction& function, uint64_t nr_runs, RunResult& result) {
    ProgressLine line(nr_runs);
    for (uint64_t i = 1; i < nr_runs; ++i) {
        result.more_seconds.push_back(timed_run(function));
        line.show(i + 1);
    }
    std::sort(result.more_seconds.begin(), result.more_seconds.end());
}

}  // namespace

RunResult run_graph(const FileOptions& file, const RunOptions& options,
                    const std::vector<InputArray>& inputs, ChildProgress& progress) {
    RunResult result;
    progress.stage = ChildProgress::LOADING;
    const Stopwatch load_watch;
    orb::GraphLoader loader(watched(open_input(file.path), progress));
    const orb::GraphLoadResult graph = loader.load(load_config(file));
    result.load_seconds = load_watch.seconds();

    progress.stage = ChildProgress::COMPILING;
    check_outputs(graph, options);
    set_inputs(graph, inputs);
    graph.graph->options().record_level = options.record ? 1 : 0;
    Profile profile;
    OutputKeeper keeper(graph.output_vars.size());
    std::vector<orb::OutputSpec> wanted;
    for (size_t i = 0; i < graph.output_vars.size(); ++i)
        wanted.push_back({graph.output_vars[i], keeper.callback_for(i)});
    const auto function = graph.graph->compile(wanted);

    progress.stage = ChildProgress::INFERRING;
    infer_shapes(*function, progress);
    progress.stage = ChildProgress::RUNNING;
    // A recording has no steps of its own, so that their number tells whether there is one.
    if (options.profile || options.record)
        static_cast<orb::GraphFunction&>(*function).step_hook(
            [&profile](const orb::StepTime& step) { profile.add(step); });
    result.first_seconds = timed_run(*function);
    result.outputs = keeper.take();
    if (options.nr_runs > 1 && options.profile)
        profile.clear();
    run_again(*function, options.nr_runs, result);
    result.was_recorded = options.record && profile.nr_steps() == 0;
    if (options.profile)
        result.profile = profile.rows();
    return result;
}

}  // namespace vekgraph
