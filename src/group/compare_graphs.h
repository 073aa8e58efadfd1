// The two compiled graphs that do all arithmetic on features: half squared norms of rows, and raw
// scores of all queries against one block of stored rows. Built once per group and run with new
// bindings. Owned by the group's engine; one thread at a time. What grows with rows or queries is
// memory that throws std::bad_alloc or std::length_error, after which the graphs can be run again;
// it is kept from one run to the next.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "graph/exec/compiled_function.h"
#include "graph/tensor/tensor.h"
#include "kernels/matrix_mul.h"

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

    // The largest piece of rows whose norms are computed in one run is `max_norm_rows`.
    CompareGraphs(orb::CompNode comp_node, const CompareKind& kind, size_t feature_dim,
                  size_t max_norm_rows);
    CompareGraphs(const CompareGraphs&) = delete;
    CompareGraphs& operator=(const CompareGraphs&) = delete;

    // The half squared norms of n packed rows, in pieces: the norm of a row does not depend on the
    // rows beside it.
    void compute_sqrs(const uint8_t* rows, size_t n, const NormSink& sink);

    // Begins a comparison of packed query rows with `columns` stored rows.
    void bind_queries(const uint8_t* rows, size_t nr_query, size_t columns);
    // Scores of all queries against the rows of one block, which become the columns from
    // `column_begin` on. The blocks are read where they are.
    void compare_block(const orb::DeviceTensorStorage& block,
                       const orb::DeviceTensorStorage& sqr_block, size_t rows, size_t column_begin);
    // All raw scores, shape (nr_query, columns). Valid until the next comparison.
    const orb::HostTensorND& copy_scores_to_host();

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
    orb::DeviceTensorND m_score_tensor;
    orb::HostTensorND m_score_host;
    // The columns of `m_score_tensor` that the running block fills.
    size_t m_column_begin = 0;
    size_t m_column_end = 1;

    // Bytes of the graphs' planned memory.
    size_t m_norm_granted = 0;
    size_t m_compare_granted = 0;
    std::shared_ptr<orb::ComputeGraph> m_norm_graph;
    std::unique_ptr<orb::CompiledFunction> m_norm_func;
    std::shared_ptr<orb::ComputeGraph> m_compare_graph;
    std::unique_ptr<orb::CompiledFunction> m_compare_func;
};

}  // namespace vek
