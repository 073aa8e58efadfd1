// Dispatchers that do not run a task where it is handed over, for the tests of operators.
#pragma once

#include <thread>
#include <utility>
#include <vector>

#include "kernels/dispatcher.h"

namespace kern_test {

// Keeps what it is given until it is told to run it, as a queue with a worker may.
class HoldingDispatcher final : public kern::CpuDispatcher {
public:
    void dispatch(kern::Task&& task) override {
        ++m_nr_dispatched;
        m_tasks.push_back(std::move(task));
    }
    void sync() override {
        for (const kern::Task& task : m_tasks)
            task();
        m_tasks.clear();
    }

private:
    std::vector<kern::Task> m_tasks;
};

// Tasks run on a thread of their own, each once the queue is waited for.
class ThreadDispatcher final : public kern::CpuDispatcher {
public:
    ~ThreadDispatcher() override { sync(); }
    void dispatch(kern::Task&& task) override { m_tasks.push_back(std::move(task)); }
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
