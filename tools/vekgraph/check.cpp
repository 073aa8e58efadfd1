// `vekgraph check`: whether a graph file is whole and its graph can be built.
#include <iostream>

#include "common/json.h"
#include "common/text.h"
#include "serialization/graph_loader.h"
#include "vekgraph/child.h"
#include "vekgraph/commands.h"
#include "vekgraph/graph_file.h"

namespace vekgraph {
namespace {

struct LoadFault {
    std::string text;
    uint64_t byte = 0;
    std::optional<uint64_t> operator_index;
};

// What is not set was not reached, or is not wrong.
struct Findings {
    uint64_t bytes = 0;
    std::optional<orb::GraphFileError> form_fault;
    std::optional<orb::GraphFileFacts> facts;
    std::optional<uint64_t> digest;
    std::optional<LoadFault> load_fault;

    bool has_other_digest() const { return digest && *digest != facts->header.hash; }
    bool is_good() const { return !form_fault && !has_other_digest() && !load_fault; }
};

// What only an operator can judge stops the process that makes it.
std::optional<LoadFault> try_to_load(const FileOptions& file, const orb::GraphFileFacts& facts) {
    const ChildEnd end = run_in_child([&](ChildProgress& progress) {
        progress.stage = ChildProgress::LOADING;
        orb::GraphLoader loader(watched(open_input(file.path), progress));
        loader.load(load_config(file));
    });
    if (end.has_finished)
        return std::nullopt;
    return LoadFault{stop_text(facts, end), end.progress.position,
                     operator_at(facts, end.progress.position)};
}

Findings judge(const FileOptions& file) {
    Findings findings;
    const auto input = open_input(file.path);
    findings.bytes = input->bytes_left();
    try {
        findings.facts = orb::inspect_graph_file(*input, load_config(file));
        findings.digest = orb::graph_digest(*input, *findings.facts);
    } catch (const orb::GraphFileError& error) {
        findings.form_fault = error;
        return findings;
    }
    findings.load_fault = try_to_load(file, *findings.facts);
    return findings;
}

void print_findings(const Findings& findings) {
    if (findings.form_fault)
        return;
    const orb::GraphFileFacts& facts = *findings.facts;
    std::cout << "form: right; " << facts.operators.size() << " operators, " << facts.tensors.size()
              << " tensors, " << facts.outputs.size() << " outputs\n";
    std::cout << "hash: " << tools::hex(facts.header.hash);
    if (!findings.digest)
        std::cout << "; it cannot be compared, since another writer has made the file\n";
    else if (findings.has_other_digest())
        std::cout << ", but the digest is " << tools::hex(*findings.digest) << '\n';
    else
        std::cout << ", as is the digest\n";
    std::cout << "end: byte " << facts.end << ", " << findings.bytes - facts.end
              << " bytes behind it\nload: "
              << (findings.load_fault ? "stops" : "all operators can be made") << '\n';
}

// One line for each fault.
void print_faults(const std::string& path, const Findings& findings) {
    const std::string begin = "vekgraph: " + tools::printable(path) + ": ";
    if (findings.form_fault)
        std::cerr << begin << findings.form_fault->what() << '\n';
    if (findings.facts && findings.has_other_digest())
        std::cerr << begin << "the hash is not the digest: bytes were changed\n";
    if (findings.load_fault)
        std::cerr << begin << tools::printable(findings.load_fault->text) << '\n';
}

void write_place(tools::JsonWriter& json, uint64_t byte, std::optional<uint64_t> operator_index) {
    json.key("byte").value(byte);
    json.key("operator");
    if (operator_index)
        json.value(*operator_index);
    else
        json.null();
}

void write_facts(tools::JsonWriter& json, const Findings& findings) {
    const orb::GraphFileFacts& facts = *findings.facts;
    json.key("hash").value(tools::hex(facts.header.hash));
    json.key("digest");
    if (findings.digest)
        json.value(tools::hex(*findings.digest));
    else
        json.null();
    json.key("end").value(facts.end);
    json.key("bytes_behind").value(findings.bytes - facts.end);
}

void write_findings(const std::string& path, const Findings& findings) {
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("file").value(path);
    json.key("bytes").value(findings.bytes);
    json.key("good").value(findings.is_good());
    if (findings.facts)
        write_facts(json, findings);
    json.key("faults").begin_array();
    const auto write_fault = [&json](const char* stage, const std::string& text) {
        json.begin_object();
        json.key("stage").value(stage);
        json.key("text").value(text);
    };
    if (findings.form_fault) {
        write_fault("form", findings.form_fault->what());
        write_place(json, findings.form_fault->offset(), findings.form_fault->record());
        json.end_object();
    }
    if (findings.facts && findings.has_other_digest()) {
        write_fault("digest", "the hash is not the digest");
        json.end_object();
    }
    if (findings.load_fault) {
        write_fault("load", findings.load_fault->text);
        write_place(json, findings.load_fault->byte, findings.load_fault->operator_index);
        json.end_object();
    }
    json.end_array();
    json.end_object();
    json.finish();
}

}  // namespace

int check(const FileOptions& file) {
    const Findings findings = judge(file);
    if (file.json)
        write_findings(file.path, findings);
    else
        print_findings(findings);
    std::cout.flush();
    print_faults(file.path, findings);
    return findings.is_good() ? 0 : 1;
}

}  // namespace vekgraph
