// A function that has been recorded for good: its run is the list of kernel calls that one run of a
// graph has made. It needs neither the graph nor its operators; it keeps the memory, constants
// and inputs included, that these calls work on, and the kernels that they run. So inputs can be
// changed in place only: a tensor that the graph's source is given later is never seen, nor is
// another shape. Functions whose memory it shares, such as later ones of its graph, must not run
// at the same time: that stops the process.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "graph/core/compiled_function.h"
#include "graph/core/run_mutex.h"
#include "graph/exec/run_timer.h"
#include "graph/memory/device_memory.h"
#include "graph/node/task_recorder.h"

namespace orb {

// What a recording is made of. The tasks go first and the rest after them.
struct Recording {
    // Vars live here, as may those of other graphs in their runs.
    std::shared_ptr<DeviceMemory> memory;
    std::vector<DeviceTensorStorage> storages;  // of all vars
    std::vector<std::shared_ptr<void>> kept;    // what the operators have handed over
    std::optional<RunTimer> timer;
    std::unique_ptr<TaskRecorder> recorder;  // stopped
};

class ReplayFunction final : public CompiledFunction {
public:
    explicit ReplayFunction(Recording recording) : m_recording(std::move(recording)) {}

    // The run has ended on return. Nobody is told of it: the events are the graph's.
    CompiledFunction& execute() override;
    void wait() override {}
    double last_run_time() override;
    // There are no operators any more, nor vars.
    void iterate_operators(const std::function<bool(GraphOperator*)>&) const override {}
    const std::vector<GraphVar*>& output_vars() const override { return m_output_vars; }
    size_t get_run_id() const override { return m_run_count; }
    // The memory is part of the recording: stops the process.
    void clear_device_memory() override;

protected:
    std::shared_ptr<void> on_node_finalize() override;

private:
    Recording m_recording;
    RunMutex m_run_mutex;
    const std::vector<GraphVar*> m_output_vars;
    size_t m_run_count = 1;
};

}  // namespace orb
