#include "vekgraph/graphviz.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>

#include "common/failure.h"

namespace vekgraph {
namespace {

[[noreturn]] void refuse(const std::string& text) {
    throw tools::BadUse("graphviz's program `dot` " + text);
}

// Its standard input is the other end of the pipe.
pid_t start_dot(const std::string& format, const std::string& path, int read_end) {
    std::string words[] = {"dot", "-T" + format, "-o", path};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, read_end, STDIN_FILENO);
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, "dot", &actions, nullptr, arguments, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT)
        refuse("is not installed; without it only .dot files can be written");
    if (error != 0)
        refuse(std::string("cannot be started: ") + std::strerror(error));
    return child;
}

// It may end before it has read all.
void write_all(int write_end, const std::string& text) {
    const char* next = text.data();
    size_t left = text.size();
    while (left != 0) {
        const ssize_t written = ::write(write_end, next, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return;
        next += written;
        left -= static_cast<size_t>(written);
    }
}

}  // namespace

void draw_picture(const std::string& format, const std::string& path,
                  const std::function<void(std::ostream&)>& write_dot) {
    std::ostringstream dot;
    write_dot(dot);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    ::signal(SIGPIPE, SIG_IGN);
    pid_t child = 0;
    try {
        child = start_dot(format, path, ends[0]);
    } catch (...) {
        ::close(ends[0]);
        ::close(ends[1]);
        throw;
    }
    ::close(ends[0]);
    write_all(ends[1], dot.str());
    ::close(ends[1]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        refuse("could not make " + path);
}

}  // namespace vekgraph
