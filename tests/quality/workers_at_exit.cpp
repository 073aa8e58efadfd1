// The process ends while workers have tasks left, which give tasks to each other; memory of their
// nodes is freed by a static object older than anything that the runtime registers for the exit.
#include <unistd.h>

#include <memory>
#include <mutex>
#include <thread>

#include "graph/node/comp_node_env.h"
#include "graph/node/cpu_comp_node.h"

namespace {

using orb::CompNode;

void require(bool condition) {
    if (!condition)
        _exit(1);
}

CompNode nodes[2];
int nr_run = 0;

struct Holder {
    void* device = nullptr;
    void* host = nullptr;
    ~Holder() {
        require(orb::cpu_late_free_happened());
        nodes[0].free_device(device);
        nodes[0].free_host(host);
        nodes[0].sync();
    }
};
Holder older;

// Attached to the first node and holding memory of the second.
struct Attached {
    static const char TAG;
    void* memory = nodes[1].alloc_device(100);
    ~Attached() {
        require(nr_run == 100 && !orb::cpu_late_free_happened());
        nodes[1].free_device(memory);  // at once, since the nodes are finalized
        require(orb::cpu_late_free_happened());
    }
};
const char Attached::TAG = 0;

void run(int left) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    ++nr_run;
    if (left > 1)
        nodes[left % 2].add_callback([left] { run(left - 1); });
}

}  // namespace

int main() {
    nodes[0] = CompNode::load("cpu1");
    nodes[1] = CompNode::load("cpu2");
    older.device = nodes[0].alloc_device(1000);
    older.host = nodes[0].alloc_host(1000);
    nodes[0].free_device(nodes[0].alloc_device(10));
    {
        const std::lock_guard<orb::RecursiveSpinLock> lock(nodes[0].env().user_data_lock());
        nodes[0].env().user_data().add(&Attached::TAG, std::make_shared<Attached>());
    }
    run(100);
    return 0;
}
