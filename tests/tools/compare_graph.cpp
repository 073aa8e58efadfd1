// The graph that compares queries with stored rows, written to a file and run by vekgraph on real
// features, gives a group's own raw scores bit for bit. Arguments: a folder to work in, and
// vekgraph with its emulator before it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/shared_tensor_input.h"
#include "group/compare_graphs.h"
#include "common/npy.h"
#include "serialization/graph_dumper.h"

namespace {

using namespace orb;

constexpr size_t DIM = 128;
constexpr size_t ROWS = 300;
constexpr size_t QUERIES = 20;

struct Kind {
    const char* name;
    const char* suffix;
    vek::CompareKind compare;
    npy::ElementType feature, score;
};

CompNode node() {
    return CompNode::load("cpu:default");
}

std::vector<uint8_t> first_rows(const Kind& kind, const std::string& set, size_t rows) {
    std::ifstream file(VEKFIND_DATA_DIR "/" + std::string(kind.name) + set + kind.suffix,
                       std::ios::binary);
    std::vector<uint8_t> bytes(kind.compare.feature_dtype.byte_size(rows * DIM));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file)
        std::abort();
    return bytes;
}

// With inputs that have a shape and no memory.
void dump_compare_graph(const Kind& kind, const std::string& path) {
    const auto graph = ComputeGraph::make();
    const auto input = [&](const char* name, size_t rows, size_t columns, kern::DType dtype) {
        GraphVar* var = SharedTensorInput::make(
            *graph,
            std::make_shared<DeviceTensorND>(node(), kern::TensorShape{rows, columns}, dtype));
        var->name(name);
        return var;
    };
    const auto feature = kind.compare.feature_dtype, score = kind.compare.score_dtype;
    GraphVar* queries = input("queries", QUERIES, DIM, feature);
    GraphVar* rows = input("rows", ROWS, DIM, feature);
    GraphVar* dots = MatrixMultiply::make(queries, rows, {false, true, kind.compare.product});
    GraphVar* norms = DimensionShuffle::make(input("row_norms", ROWS, 1, score), {1, 0});
    GraphVar* scores = ElementwiseOperator::subtract(
        ElementwiseOperator::subtract(dots, input("query_norms", QUERIES, 1, score)), norms);
    scores->name("scores");
    GraphDumper(OutputFile::create(path)).dump({scores});
}

class Comparison {
public:
    Comparison(const Kind& kind, std::string folder)
        : m_kind(kind), m_path(std::move(folder) + "/" + kind.name) {}

    bool is_equal(const std::string& vekgraph) {
        dump_compare_graph(m_kind, m_path + ".graph");
        const auto queries = first_rows(m_kind, "-query", QUERIES);
        const auto rows = first_rows(m_kind, "-base", ROWS);
        vek::CompareGraphs own(node(), m_kind.compare, DIM, ROWS);
        write("queries", m_kind.feature, {QUERIES, DIM}, queries);
        write("rows", m_kind.feature, {ROWS, DIM}, rows);
        write("query_norms", m_kind.score, {QUERIES, 1}, norms_of(own, queries, QUERIES));
        const auto row_norms = norms_of(own, rows, ROWS);
        write("row_norms", m_kind.score, {ROWS, 1}, row_norms);
        if (std::system((vekgraph + " run " + m_path + ".graph" + m_inputs + " --output-dir " +
                         m_path + "-out > " + m_path + ".txt")
                            .c_str()) != 0)
            return false;

        std::vector<uint8_t> wanted;
        own.bind_queries(queries.data(), QUERIES);
        own.compare_block(storage_of(rows), storage_of(row_norms), ROWS, 0,
                          [&](size_t, const kern::RawTensor& scores) {
                              append(wanted, scores.raw_ptr,
                                     scores.layout.dtype.byte_size(scores.layout.element_count()));
                          });
        const npy::Array scores = npy::read(m_path + "-out/scores.npy");
        return scores.type == m_kind.score && scores.shape == std::vector<size_t>{QUERIES, ROWS} &&
               scores.bytes == wanted;
    }

private:
    static void append(std::vector<uint8_t>& bytes, const void* more, size_t size) {
        const auto* begin = static_cast<const uint8_t*>(more);
        bytes.insert(bytes.end(), begin, begin + size);
    }
    static std::vector<uint8_t> norms_of(vek::CompareGraphs& graphs,
                                         const std::vector<uint8_t>& rows, size_t count) {
        std::vector<uint8_t> norms;
        graphs.compute_sqrs(rows.data(), count, [&](size_t, const HostTensorND& piece) {
            append(norms, piece.raw_ptr(), piece.dtype().byte_size(piece.shape(0)));
        });
        return norms;
    }
    static DeviceTensorStorage storage_of(const std::vector<uint8_t>& bytes) {
        DeviceTensorStorage storage(node());
        storage.ensure_size(bytes.size());
        std::memcpy(storage.ptr(), bytes.data(), bytes.size());
        return storage;
    }
    void write(const std::string& name, npy::ElementType type, const std::vector<size_t>& shape,
               const std::vector<uint8_t>& bytes) {
        const std::string path = m_path + "-" + name + ".npy";
        npy::write(path, type, shape, bytes.data());
        m_inputs += " --input " + name + "=" + path;
    }

    const Kind& m_kind;
    std::string m_path;
    std::string m_inputs;
};

}  // namespace

int main(int argc, char** argv) {
    std::string vekgraph;
    for (int i = 2; i < argc; ++i)
        vekgraph += std::string(argv[i]) + " ";
    const Kind kinds[] = {{"fashion128", ".f32", vek::CompareKind::float32(),
                           npy::ElementType::FLOAT32, npy::ElementType::FLOAT32},
                          {"fashion128i8", ".i8", vek::CompareKind::int8(), npy::ElementType::INT8,
                           npy::ElementType::INT32}};
    int status = 0;
    for (const Kind& kind : kinds) {
        const bool is_equal = Comparison(kind, argv[1]).is_equal(vekgraph);
        std::printf("%s: %s\n", kind.name, is_equal ? "equal" : "different");
        status |= !is_equal;
    }
    return status;
}
