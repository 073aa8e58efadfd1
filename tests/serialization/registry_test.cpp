// The table of operators: its ids, its forms, and copies that go through them.
#include <fstream>
#include <iostream>
#include <set>

#include "graph/core/operator_copy.h"
#include "graph/opr/cumsum.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/type_convert.h"
#include "serialization/byte_forms.h"
#include "serialization/load_context.h"
#include "serialization/param_record.h"
#include "tests/serialization/file_graphs.h"

namespace orb {
namespace {

using namespace orb_test;

TEST(Registry, IdsDifferInTheirLowHalvesToo) {
    std::set<uint32_t> low_halves;
    std::string missing;
    for (const OperatorRecord& record : OperatorRegistry::instance().records()) {
        EXPECT_TRUE(low_halves.insert(static_cast<uint32_t>(record.persist_id)).second);
        EXPECT_EQ(OperatorRegistry::instance().find_by_id(record.persist_id), &record);
        // Only the low half is the key on targets with words of 32 bits.
        EXPECT_EQ(OperatorRegistry::instance().find_by_id(record.persist_id ^ 1ull << 63), nullptr);
        if (!record.load && *record.title)
            missing += std::string(missing.empty() ? "" : ", ") + record.title;
    }
    EXPECT_EQ(low_halves.size(), 101u);
    std::cout << "not available yet: " << missing << "\n";
}

TEST(Registry, ThePageHasTheOperatorsThatCanBeLoaded) {
    std::set<uint64_t> available, described;
    for (const OperatorRecord& record : OperatorRegistry::instance().records()) {
        if (record.load)
            available.insert(record.persist_id);
    }
    std::ifstream page(VEKFIND_TEST_DIR "/../docs/graph-file.md");
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| 0x", 0) == 0)
            described.insert(std::stoull(line.substr(2), nullptr, 16));
    }
    EXPECT_EQ(described, available);
}

OperatorRecord record_with(uint64_t id, const OperatorType* type) {
    OperatorRecord record = current_form<Cumsum>();
    record.persist_id = id;
    record.type = type;
    return record;
}

TEST(RegistryDeathTest, RefusesWhatCannotBeToldApart) {
    static const OperatorType A{"A"}, B{"B"};
    const auto add_both = [](const OperatorRecord& first, const OperatorRecord& second) {
        OperatorRegistry registry;
        registry.add(first);
        registry.add(second);
    };
    EXPECT_DEATH(add_both(record_with(7, &A), record_with(7, &B)), "");
    EXPECT_DEATH(add_both(record_with(7, &A), record_with(8, &A)), "");
    if (sizeof(size_t) == 4) {
        EXPECT_DEATH(add_both(record_with(7, &A), record_with(7 | 1ull << 32, &B)), "");
    }
    EXPECT_DEATH(OperatorRegistry().add(record_with(7, nullptr)), "");  // has a dump
    OperatorRecord named = record_with(OperatorRegistry::RESERVED_ID, &A);
    named.name = "a";
    EXPECT_DEATH(OperatorRegistry().add(named), "");  // has a load
}

// Two types under the id that all of its kind share, told apart by a text.
TEST(Registry, TypesWithoutAnIdAreToldByName) {
    static const OperatorType A{"A"}, B{"B"};
    OperatorRegistry registry;
    for (const auto& [name, type] : {std::pair{"a", &A}, std::pair{"b", &B}}) {
        OperatorRecord record = record_with(OperatorRegistry::RESERVED_ID, type);
        const OperatorFollow follow = std::exchange(record.follow, nullptr);
        record.load = nullptr;
        record.name = name;
        registry.add(record);
        if (*name == 'b')
            registry.set_load(name, current_form<Cumsum>().load, follow);
        EXPECT_EQ(registry.find_by_type(type)->name, name);
    }
    const auto graph = ComputeGraph::make();
    GraphVar* source = SharedTensorInput::make(*graph, make_tensor<float>({1, 2}, {3, 4}));
    const OperatorRecord& shared = *registry.find_by_id(OperatorRegistry::RESERVED_ID);
    const auto load = [&](const std::string& name) {
        Bytes bytes;
        const auto out = OutputFile::to_memory(bytes);
        write_string(*out, name);
        out->write("\1\0\0\0\0\0\0\0", 8);
        const auto file = as_file(bytes);
        const GraphLoadConfig config;
        GraphFileParser parser(*file, config);
        SharedTensorTable tensors;
        LoadContext context(parser, config, graph, tensors);
        return shared.load(context, {source}, {});
    };
    EXPECT_EQ(run<float>(load("b")->output(0)), (std::vector<float>{3, 7}));
    EXPECT_THROW(load("a"), GraphFileError);  // only written so far
    EXPECT_THROW(load("c"), GraphFileError);
}

// The copy through a record is the copy that passes make.
TEST(Registry, CopiesEqualTheirOriginals) {
    const auto graph = ComputeGraph::make();
    GraphVar* source = SharedTensorInput::make(*graph, make_tensor<float>({2, 2}, {1, 2, 3, 4}));
    GraphVar* other = SharedTensorInput::make(*graph, make_tensor<float>({2, 2}, {4, 3, 2, 1}));
    GraphVar* originals[] = {Cumsum::make(source, {1, true, true}),
                             ReduceOperator::make(source, {kern::ReduceMode::MEAN, 1, {}}),
                             TypeConvert::make(source, kern::DType::QuantizedS8(0.5f)), source};
    for (GraphVar* original : originals) {
        const GraphOperator& op = *original->owner_operator();
        const OperatorRecord& record = *OperatorRegistry::instance().find_by_type(op.type_record());
        const std::vector<GraphVar*> inputs(op.input().size(), other);
        GraphVar* copy = record.copy(op, inputs, op.config());
        EXPECT_EQ(copy,
                  OperatorCopy::find(op.type_record())(op, *graph, inputs, op.config())->output(0));
        EXPECT_EQ(copy == original, op.input().empty());  // a tensor is shared
    }
}

}  // namespace
}  // namespace orb
