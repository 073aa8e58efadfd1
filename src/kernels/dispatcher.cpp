#include "kernels/dispatcher.h"

namespace kern {
namespace {

// The innermost step that this thread is in.
thread_local const DispatcherStep* current_step = nullptr;

}  // namespace

bool CpuDispatcher::in_step() const {
    for (const DispatcherStep* step = current_step; step; step = step->m_outer) {
        if (&step->m_dispatcher == this)
            return true;
    }
    return false;
}

DispatcherStep::DispatcherStep(const CpuDispatcher& dispatcher)
    : m_dispatcher(dispatcher), m_outer(std::exchange(current_step, this)) {}

DispatcherStep::~DispatcherStep() {
    current_step = m_outer;
}

bool DispatcherStep::is_active() {
    return current_step != nullptr;
}

void InlineDispatcher::dispatch(Task&& task) {
    count();
    task();
}

}  // namespace kern
