#include "graph/exec/replay_function.h"

#include <utility>

#include "kernels/check.h"

namespace orb {

CompiledFunction& ReplayFunction::execute() {
    check_not_finalized();
    const std::lock_guard<RunMutex> run_lock(m_run_mutex);
    const DeviceMemory::BusyMark busy(m_recording.memory);
    ++m_run_count;
    m_recording.recorder->replay();
    return *this;
}

double ReplayFunction::last_run_time() {
    return m_recording.timer && m_run_count > 1 ? m_recording.timer->longest() : 0.0;
}

void ReplayFunction::clear_device_memory() {
    KERN_FAIL();
}

std::shared_ptr<void> ReplayFunction::on_node_finalize() {
    const Recording gone = std::exchange(m_recording, {});
    return nullptr;
}

}  // namespace orb
