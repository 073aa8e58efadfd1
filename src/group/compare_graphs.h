// The two compiled graphs that do all arithmetic on features: half squared norms of rows, and raw
// scores of all queries against one block of stored rows. Built once per group and run with new
// bindings. Owned by the group's engine; one thread at a time. What grows with rows or queries is
// memory that throws std::bad_alloc or std::length_error, after which the graphs can be run again;
// it is kept from one run to the next.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "graph/core/compiled_function.h"
#include "graph/core/compute_graph.h"
#include "graph/tensor/tensor.h"
#include "kernels/operators/matrix_mul.h"

namespace vek {

// What the kinds of groups differ in.
struct CompareKind {
    kern::DType feature_dtype;
    kern::DType score_dtype;  // of norms and raw scores
    kern::MatrixMulDataType product;

    static CompareKind float32();
    static CompareKind int8();
};

class CompareGraphs final {
public:
    // Receives the norms, shape (n, 1), of n rows beginning at the given one.
    using NormSink = std::function<void(size_t first, const orb::HostTensorND& norms)>;
    // Receives the raw scores, shape (nr_query, rows), of the rows beginning at slot `first`. They
    // are in host memory, dense, and valid during the call.
    using ScoreSink = std::function<void(size_t first, const kern::RawTensor& scores)>;

    // The largest piece of rows whose norms are computed in one run is `max_norm_rows`.
    CompareGraphs(orb::CompNode comp_node, const CompareKind& kind, size_t feature_dim,
                  size_t max_norm_rows);
    CompareGraphs(const CompareGraphs&) = delete;
    CompareGraphs& operator=(const CompareGraphs&) = delete;

    // The half squared norms of n packed rows, in pieces: the norm of a row does not depend on the
    // rows beside it.
    void compute_sqrs(const uint8_t* rows, size_t n, const NormSink& sink);

    // Begins a comparison of packed query rows with stored rows.
    void bind_queries(const uint8_t* rows, size_t nr_query);
    // Scores of all queries against the rows of one block, the first of which is slot `first_slot`,
    // in pieces whose scores stay in the cache. The block is read where it is.
    void compare_block(const orb::DeviceTensorStorage& block,
                       const orb::DeviceTensorStorage& sqr_block, size_t rows, size_t first_slot,
                       const ScoreSink& sink);

    // Gives back all memory that is in proportion to rows or queries, and the blocks that were read
    // last. The next run takes what it needs, without room to grow.
    void release_memory();

private:
    using SharedTensor = std::shared_ptr<orb::DeviceTensorND>;

    SharedTensor make_tensor(kern::DType dtype) const;
    void build_norm_graph();
    void build_compare_graph();
    void run_norms(const uint8_t* rows, size_t n);
    void load_rows(orb::DeviceTensorND& tensor, const uint8_t* rows, size_t n);
    size_t rows_of_a_run(size_t nr_query, size_t rows) const;
    void check_plan_fits(size_t nr_query, size_t rows) const;

    orb::CompNode m_comp_node;
    CompareKind m_kind;
    size_t m_feature_dim;
    size_t m_row_bytes;
    size_t m_max_norm_rows;

    SharedTensor m_query_tensor;
    SharedTensor m_query_sqr_tensor;
    SharedTensor m_block_tensor;
    SharedTensor m_block_sqr_tensor;
    SharedTensor m_norm_input_tensor;
    orb::HostTensorND m_norm_output;
    // Where the scores of the running piece go, and its first slot.
    const ScoreSink* m_sink = nullptr;
    size_t m_first_slot = 0;

    // Bytes of the graphs' planned memory.
    size_t m_norm_granted = 0;
    size_t m_compare_granted = 0;
    std::shared_ptr<orb::ComputeGraph> m_norm_graph;
    std::unique_ptr<orb::CompiledFunction> m_norm_func;
    std::shared_ptr<orb::ComputeGraph> m_compare_graph;
    std::unique_ptr<orb::CompiledFunction> m_compare_func;
};

}  // namespace vek
