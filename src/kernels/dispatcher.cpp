#include "kernels/dispatcher.h"

namespace kern {
namespace {

// Whose step this thread is in.
thread_local const CpuDispatcher* current_step = nullptr;

}  // namespace

bool CpuDispatcher::in_step() const {
    return current_step == this;
}

DispatcherStep::DispatcherStep(const CpuDispatcher& dispatcher)
    : m_outer(std::exchange(current_step, &dispatcher)) {}

DispatcherStep::~DispatcherStep() {
    current_step = m_outer;
}

void InlineDispatcher::dispatch(Task&& task) {
    count();
    task();
}

}  // namespace kern
