// What the tests of worker nodes share.
#pragma once

#include <unistd.h>

#include <atomic>
#include <thread>

#include "graph/node/comp_node.h"

namespace orb_test {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int SLOWER = 20;
#else
constexpr int SLOWER = 1;
#endif

// Ends the process when a test hangs.
struct Watchdog {
    Watchdog() { alarm(300); }
    ~Watchdog() { alarm(0); }
};

// The streams of a device are nodes of one worker. Other tests have inline nodes of small numbers.
inline orb::CompNode worker_node(int device, int stream = 0) {
    device += 200;
    const auto type = orb::CompNode::DeviceType::CPU;
    return orb::CompNode::load({type, device, 0}, {type, device, stream});
}

// Holds the worker of a node until it is opened.
class Gate {
public:
    explicit Gate(orb::CompNode node) {
        node.add_callback([this] {
            while (!m_open.load(std::memory_order_acquire))
                std::this_thread::yield();
        });
    }
    void open() { m_open.store(true, std::memory_order_release); }

private:
    std::atomic<bool> m_open{false};
};

}  // namespace orb_test
