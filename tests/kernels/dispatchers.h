// A dispatcher that does not run a task where it is handed over, for the tests of operators.
#pragma once

#include <thread>
#include <utility>
#include <vector>

#include "kernels/dispatcher.h"

namespace kern_test {

// Keeps what it is given until it is waited for, as a queue with a worker may; runs it on a thread
// of its own.
class HoldingDispatcher final : public kern::CpuDispatcher {
public:
    void dispatch(kern::Task&& task) override {
        ++m_nr_dispatched;
        m_tasks.push_back(std::move(task));
    }
    void sync() override {
        std::thread([this] {
            for (const kern::Task& task : m_tasks)
                task();
        }).join();
        m_tasks.clear();
    }

private:
    std::vector<kern::Task> m_tasks;
};

}  // namespace kern_test
