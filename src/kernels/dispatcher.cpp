#include "kernels/dispatcher.h"

#include <cstdlib>

namespace kern {

void InlineDispatcher::dispatch(Task&& task) {
    ++m_nr_dispatched;
    if (!task)
        std::abort();
    task();
}

}  // namespace kern
