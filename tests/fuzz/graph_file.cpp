// Feeds any bytes to the parser of graph files, and what it accepts to a whole load. That happens
// in a child process, since what only operators can judge stops it.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "serialization/graph_inspector.h"
#include "serialization/graph_loader.h"

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

// A child has no workers, so everything is on the node that needs none.
orb::GraphLoadConfig load_config() {
    orb::GraphLoadConfig config;
    config.node_mapper = [](const orb::CompNode::Locator&) { return orb::CompNode::default_cpu(); };
    return config;
}

void load_in_child(const uint8_t* data, size_t size) {
    const pid_t child = fork();
    require(child >= 0);
    if (child == 0) {
        // A fuzzer has handlers of its own.
        std::signal(SIGILL, SIG_DFL);
        std::signal(SIGTRAP, SIG_DFL);
        orb::GraphLoader(orb::InputFile::from_memory(data, size)).load(load_config());
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) != child)
        require(errno == EINTR);  // by a fuzzer's clock
    const bool ended_by_check =
        WIFSIGNALED(status) && (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP);
    const bool has_loaded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!ended_by_check && !has_loaded)
        std::fprintf(stderr, "the child's status is %#x\n", static_cast<unsigned>(status));
    require(ended_by_check || has_loaded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A fuzzer that is after the parser alone leaves the loads out, which are slow.
    static const bool loads = std::getenv("VEKFIND_FUZZ_PARSER_ONLY") == nullptr;
    const auto file = orb::InputFile::from_memory(data, size);
    try {
        const auto facts = orb::inspect_graph_file(*file);
        require(facts.end <= size && facts.operators.size() == facts.header.nr_operators);
        orb::graph_digest(*file, facts);
    } catch (const orb::GraphFileError& error) {
        require(error.offset() <= size);
        return 0;
    }
    if (loads)
        load_in_child(data, size);
    return 0;
}
