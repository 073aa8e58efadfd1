#include "vekgraph/child.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "common/failure.h"
#include "kernels/check.h"
#include "vekgraph/graph_file.h"

namespace vekgraph {
namespace {

class WatchedInput final : public orb::InputFile {
public:
    WatchedInput(std::unique_ptr<orb::InputFile> file, ChildProgress& progress)
        : m_file(std::move(file)), m_progress(progress) {}

    void rewind() override {
        m_file->rewind();
        note();
    }
    void skip(uint64_t bytes) override {
        m_file->skip(bytes);
        note();
    }
    void read(void* buffer, size_t bytes) override {
        m_file->read(buffer, bytes);
        note();
    }
    uint64_t tell() const override { return m_file->tell(); }
    uint64_t bytes_left() const override { return m_file->bytes_left(); }

private:
    void note() { m_progress.position = m_file->tell(); }

    std::unique_ptr<orb::InputFile> m_file;
    ChildProgress& m_progress;
};

// Keeps what a failed check says: names of data types, or that a shape cannot be viewed so.
class CheckNote final : public kern::KernelErrorHandler {
public:
    explicit CheckNote(ChildProgress& progress) : m_progress(progress) {}

    void on_error(const std::string& text) override { m_progress.note(text); }
    void on_reshape_error(const std::string&) override {
        m_progress.note("a shape cannot be broadcast or reshaped as the graph asks");
    }

private:
    ChildProgress& m_progress;
};

// In memory of its own pages that stays shared over the fork.
class SharedProgress {
public:
    SharedProgress() {
        void* memory = ::mmap(nullptr, sizeof(ChildProgress), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        m_progress = new (memory) ChildProgress();
    }
    ~SharedProgress() { ::munmap(m_progress, sizeof(ChildProgress)); }
    SharedProgress(const SharedProgress&) = delete;
    SharedProgress& operator=(const SharedProgress&) = delete;

    ChildProgress& operator*() const { return *m_progress; }

private:
    ChildProgress* m_progress = nullptr;
};

constexpr int THREW = 3;

[[noreturn]] void work_as_child(const std::function<void(ChildProgress&)>& work,
                                ChildProgress& progress) {
    const struct rlimit no_core = {0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);  // a stop by a check is an expected end
    CheckNote note(progress);
    kern::set_kernel_error_handler(&note);
    int status = 0;
    try {
        work(progress);
        if (!std::cout.flush())
            throw tools::BadUse("the output cannot be written");
    } catch (const std::exception& error) {
        progress.failure_status = dynamic_cast<const tools::BadUse*>(&error) ? 2 : 1;
        progress.note(error.what());
        status = THREW;
    }
    // Worker threads are still there, and the process is about to go: nothing else is cleaned up.
    ::_exit(status);
}

int wait_for(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            throw std::runtime_error(std::string("waitpid: ") + std::strerror(errno));
    }
    return status;
}

std::string signal_text(int signal, const ChildProgress& progress) {
    // What the compiler makes of a failed check differs from machine to machine.
    const bool is_check = signal == SIGILL || signal == SIGTRAP || signal == SIGABRT;
    if (!is_check)
        return std::string("ended by a signal: ") + ::strsignal(signal);
    return std::string("stopped by a check") + (progress.text[0] == '\0' ? "" : ": ") +
           progress.text;
}

}  // namespace

void ChildProgress::copy(const std::string& from, char (&to)[512]) {
    const size_t length = std::min(from.size(), sizeof(to) - 1);
    std::memcpy(to, from.data(), length);
    to[length] = '\0';
}

ChildEnd run_in_child(const std::function<void(ChildProgress&)>& work) {
    const SharedProgress progress;
    std::cout.flush();
    const pid_t child = ::fork();
    if (child < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (child == 0)
        work_as_child(work, *progress);
    const int status = wait_for(child);
    ChildEnd end;
    end.progress = *progress;
    end.exit_status = 1;
    if (WIFSIGNALED(status)) {
        end.message = signal_text(WTERMSIG(status), end.progress);
    } else if (WEXITSTATUS(status) == THREW) {
        end.has_thrown = true;
        end.exit_status = end.progress.failure_status;
        end.message = end.progress.text;
    } else if (WEXITSTATUS(status) != 0) {
        end.message = "ended with status " + std::to_string(WEXITSTATUS(status));
    } else {
        end.has_finished = true;
        end.exit_status = 0;
    }
    return end;
}

std::unique_ptr<orb::InputFile> watched(std::unique_ptr<orb::InputFile> file,
                                        ChildProgress& progress) {
    return std::make_unique<WatchedInput>(std::move(file), progress);
}

std::optional<uint64_t> operator_at(const orb::GraphFileFacts& facts, uint64_t position) {
    const auto& operators = facts.operators;
    const auto behind = std::lower_bound(
        operators.begin(), operators.end(), position,
        [](const orb::OperatorFacts& op, uint64_t offset) { return op.head.offset < offset; });
    if (behind == operators.begin() || position >= facts.operators_end)
        return std::nullopt;
    return static_cast<uint64_t>(behind - operators.begin() - 1);
}

std::string stop_text(const orb::GraphFileFacts& facts, const ChildEnd& end) {
    if (end.has_thrown)
        return end.message;
    if (end.progress.stage != ChildProgress::LOADING) {
        static const char* const STAGES[] = {"starting",          "loading",
                                             "compiling",         "inferring the shape of ",
                                             "running the graph", "writing the outputs"};
        const bool is_inferring = end.progress.stage == ChildProgress::INFERRING;
        return STAGES[end.progress.stage] + std::string(is_inferring ? end.progress.subject : "") +
               ": " + end.message;
    }
    std::string place = "behind the operators";
    if (const auto index = operator_at(facts, end.progress.position)) {
        const orb::RecordHead& head = facts.operators[static_cast<size_t>(*index)].head;
        place = "operator " + std::to_string(*index) + " (" + title_of(head.record) +
                ") cannot be made";
    }
    return "byte " + std::to_string(end.progress.position) + ", " + place + ": " + end.message;
}

}  // namespace vekgraph
