#include "group/compare_graphs.h"

#include <algorithm>
#include <utility>

#include "graph/core/compute_graph.h"
#include "graph/opr/constant_tensor.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/shared_tensor_input.h"
#include "graph/opr/type_convert.h"
#include "store/adopted_memory.h"

namespace vek {
namespace {

using kern::TensorLayout;
using orb::ElementwiseOperator;
using orb::GraphVar;

// Planned memory of a graph, of which it has `granted` bytes. The runtime gives those back before
// it asks for more.
orb::StaticMemorySource make_memory_source(size_t& granted) {
    return [&granted](orb::CompNode node, size_t bytes) {
        const size_t wanted = grown_size(std::exchange(granted, 0), bytes);
        auto storage = make_adopted<orb::DeviceTensorStorage>(node, wanted);
        granted = wanted;
        return storage;
    };
}

}  // namespace

CompareKind CompareKind::float32() {
    return {kern::DType::Float32(), kern::DType::Float32(), kern::MatrixMulDataType::DEFAULT};
}

CompareKind CompareKind::int8() {
    return {kern::DType::Int8(), kern::DType::Int32(), kern::MatrixMulDataType::INT8_TO_INT32};
}

CompareGraphs::CompareGraphs(orb::CompNode comp_node, const CompareKind& kind, size_t feature_dim,
                             size_t max_norm_rows)
    : m_comp_node(comp_node),
      m_kind(kind),
      m_feature_dim(feature_dim),
      m_row_bytes(kind.feature_dtype.byte_size(feature_dim)),
      m_max_norm_rows(max_norm_rows),
      m_query_tensor(make_tensor(kind.feature_dtype)),
      m_query_sqr_tensor(make_tensor(kind.score_dtype)),
      m_block_tensor(make_tensor(kind.feature_dtype)),
      m_block_sqr_tensor(make_tensor(kind.score_dtype)),
      m_norm_input_tensor(make_tensor(kind.feature_dtype)),
      m_norm_output(comp_node, kind.score_dtype) {
    build_norm_graph();
    build_compare_graph();
}

CompareGraphs::SharedTensor CompareGraphs::make_tensor(kern::DType dtype) const {
    return std::make_shared<orb::DeviceTensorND>(m_comp_node, dtype);
}

// |x|^2 / 2: a floor division if the scores are integers, and then no square overflows an element.
void CompareGraphs::build_norm_graph() {
    m_norm_graph = orb::ComputeGraph::make();
    m_norm_graph->static_memory_source(make_memory_source(m_norm_granted));
    GraphVar* x = orb::SharedTensorInput::make(*m_norm_graph, m_norm_input_tensor);
    GraphVar* wide = orb::TypeConvert::make(x, m_kind.score_dtype);
    orb::ReduceOperator::Param reduce;
    reduce.mode = kern::ReduceMode::SUM_SQR;
    reduce.axis = 1;
    GraphVar* sums = orb::ReduceOperator::make(wide, reduce);
    orb::OperatorConfig on_node;
    on_node.comp_nodes = {m_comp_node};
    GraphVar* two = orb::ConstantTensor::make_scalar(*m_norm_graph, int32_t{2}, on_node);
    GraphVar* halves = ElementwiseOperator::divide(sums, two);
    m_norm_func = m_norm_graph->compile(
        {{halves, [this](const orb::DeviceTensorND& value) { m_norm_output.copy_from(value); }}});
}

// q.b - |q|^2 / 2 - |b|^2 / 2, in this order: it decides the rounding.
void CompareGraphs::build_compare_graph() {
    m_compare_graph = orb::ComputeGraph::make();
    m_compare_graph->static_memory_source(make_memory_source(m_compare_granted));
    const auto input = [this](const SharedTensor& tensor) {
        return orb::SharedTensorInput::make(*m_compare_graph, tensor);
    };
    GraphVar* queries = input(m_query_tensor);
    GraphVar* block = input(m_block_tensor);
    GraphVar* query_sqrs = input(m_query_sqr_tensor);
    GraphVar* block_sqrs = orb::DimensionShuffle::make(input(m_block_sqr_tensor), {1, 0});
    orb::MatrixMultiply::Param product;
    product.transpose_b = true;
    product.data_type = m_kind.product;
    GraphVar* dots = orb::MatrixMultiply::make(queries, block, product);
    GraphVar* scores =
        ElementwiseOperator::subtract(ElementwiseOperator::subtract(dots, query_sqrs), block_sqrs);
    m_compare_func = m_compare_graph->compile({{scores, [this](const orb::DeviceTensorND& value) {
                                                    (*m_sink)(m_first_slot, value.as_raw());
                                                }}});
}

void CompareGraphs::load_rows(orb::DeviceTensorND& tensor, const uint8_t* rows, size_t n) {
    const size_t bytes = size_product(n, m_row_bytes);
    reserve_bytes(tensor, bytes);
    tensor.resize({n, m_feature_dim});
    m_comp_node.copy_to_device(tensor.raw_ptr(), rows, bytes);
    m_comp_node.sync();
}

void CompareGraphs::run_norms(const uint8_t* rows, size_t n) {
    check_plan_fits(n, 0);
    load_rows(*m_norm_input_tensor, rows, n);
    reserve_bytes(m_norm_output, size_product(n, m_kind.score_dtype.element_bytes()));
    m_norm_func->execute().wait();
}

void CompareGraphs::compute_sqrs(const uint8_t* rows, size_t n, const NormSink& sink) {
    for (size_t first = 0; first < n; first += m_max_norm_rows) {
        run_norms(rows + first * m_row_bytes, std::min(m_max_norm_rows, n - first));
        sink(first, m_norm_output);
    }
}

void CompareGraphs::bind_queries(const uint8_t* rows, size_t nr_query) {
    load_rows(*m_query_tensor, rows, nr_query);
    reserve_bytes(*m_query_sqr_tensor, size_product(nr_query, m_kind.score_dtype.element_bytes()));
    m_query_sqr_tensor->resize({nr_query, 1});
    compute_sqrs(rows, nr_query, [this](size_t first, const orb::HostTensorND& norms) {
        const orb::TensorSlice piece{
            static_cast<ptrdiff_t>(first), static_cast<ptrdiff_t>(first + norms.shape(0)), {}};
        (*m_query_sqr_tensor)[{piece}].copy_from_fixlayout(norms);
        m_comp_node.sync();
    });
}

void CompareGraphs::compare_block(const orb::DeviceTensorStorage& block,
                                  const orb::DeviceTensorStorage& sqr_block, size_t rows,
                                  size_t first_slot, const ScoreSink& sink) {
    const size_t nr_query = m_query_tensor->shape(0);
    const size_t most = rows_of_a_run(nr_query, rows);
    check_plan_fits(nr_query, std::min(most, rows));
    m_sink = &sink;
    for (size_t first = 0; first < rows; first += most) {
        const size_t count = std::min(most, rows - first);
        const size_t sqr_bytes = m_kind.score_dtype.element_bytes();
        m_block_tensor->reset(block.sub(first * m_row_bytes),
                              TensorLayout({count, m_feature_dim}, m_kind.feature_dtype));
        m_block_sqr_tensor->reset(sqr_block.sub(first * sqr_bytes),
                                  TensorLayout({count, 1}, m_kind.score_dtype));
        m_first_slot = first_slot + first;
        m_compare_func->execute().wait();
    }
}

// So many that their scores, which are written once and read a few times, stay in the second-level
// cache, and enough that a run is worth its start; pieces of one size. Rows of scores are an odd
// number of cache lines, so that those of neighbouring queries do not all compete for one place.
size_t CompareGraphs::rows_of_a_run(size_t nr_query, size_t rows) const {
    constexpr size_t SCORE_BYTES = size_t{256} << 10, LEAST = 128, LINE = 16;
    const size_t score_bytes = m_kind.score_dtype.element_bytes();
    const size_t most = std::max(SCORE_BYTES / score_bytes / nr_query, LEAST);
    const size_t nr_runs = (rows + most - 1) / most;
    return ((rows / nr_runs + LINE - 1) / LINE | 1) * LINE;
}

void CompareGraphs::release_memory() {
    m_norm_graph->clear_device_memory();
    m_compare_graph->clear_device_memory();
    m_norm_granted = 0;
    m_compare_granted = 0;
    for (const SharedTensor& tensor : {m_query_tensor, m_query_sqr_tensor, m_block_tensor,
                                       m_block_sqr_tensor, m_norm_input_tensor})
        drop_memory(*tensor);
    drop_memory(m_norm_output);
}

// The runtime stops the process on a size that does not fit, so a run's planned memory is bounded
// from above before: packed copies of both operands, and a few matrices of the result's size.
void CompareGraphs::check_plan_fits(size_t nr_query, size_t rows) const {
    constexpr size_t PADDING_ROWS = 64;
    constexpr size_t RESULTS = 4;
    const size_t widest =
        std::max(m_kind.feature_dtype.element_bytes(), m_kind.score_dtype.element_bytes());
    const size_t packed_rows = size_sum(size_sum(nr_query, rows), PADDING_ROWS);
    const size_t packed = size_product(packed_rows, size_product(m_feature_dim + 1, widest));
    const size_t results =
        size_product(size_product(nr_query, size_sum(rows, 1)), RESULTS * widest);
    size_sum(packed, results);
}

}  // namespace vek
