// Work that a failed check of the graph library may stop, done in a process of its own. The program
// must not have started threads before, so it touches no node itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "serialization/graph_inspector.h"

namespace vekgraph {

// How far the child has come, in memory that both processes see; the parent reads it when the child
// has ended.
struct ChildProgress {
    enum Stage : uint32_t { STARTING, LOADING, COMPILING, INFERRING, RUNNING, WRITING };

    Stage stage = STARTING;
    uint64_t position = 0;  // bytes of the file that the loader has taken
    int failure_status = 0;
    char text[512] = {};     // of a failure, or of the check that has stopped the child
    char subject[512] = {};  // the operator whose shapes are inferred

    void note(const std::string& message) { copy(message, text); }
    void note_subject(const std::string& name) { copy(name, subject); }

private:
    // As much as there is room for.
    static void copy(const std::string& from, char (&to)[512]);
};

struct ChildEnd {
    bool has_finished = false;
    bool has_thrown = false;
    ChildProgress progress;
    int exit_status = 0;  // to pass on when the work threw
    std::string message;  // why the work has not finished
};

// Whatever the work throws is a message too. Its output is flushed when it ends.
ChildEnd run_in_child(const std::function<void(ChildProgress&)>& work);

// The file, telling the progress how much of it has been taken.
std::unique_ptr<orb::InputFile> watched(std::unique_ptr<orb::InputFile> file,
                                        ChildProgress& progress);

// The operator whose record the loader was in, if it was in one.
std::optional<uint64_t> operator_at(const orb::GraphFileFacts& facts, uint64_t position);

// One line on where and why the child has stopped.
std::string stop_text(const orb::GraphFileFacts& facts, const ChildEnd& end);

}  // namespace vekgraph
