#include "store/smart_tensor.h"

#include <algorithm>

#include "store/adopted_memory.h"
#include "store/error.h"

namespace vek {
namespace {

size_t divide_rounding_up(size_t value, size_t unit) {
    return value / unit + (value % unit != 0);
}

}  // namespace

void SmartTensor::init(orb::CompNode comp_node, size_t element_bytes, size_t feature_dim,
                       size_t block_size) {
    static constexpr char FUNCTION[] =
        "void vek::SmartTensor::init(orb::CompNode, size_t, size_t, size_t)";
    if (m_state != State::NOT_INITIALIZED)
        throw Error(VEK_INTERNAL_ERROR, "already initialized", FUNCTION);
    if (feature_dim == 0)
        throw Error(VEK_INTERNAL_ERROR, "feature dim = 0", FUNCTION);
    if (block_size == 0)
        throw Error(VEK_INTERNAL_ERROR, "block size = 0", FUNCTION);
    const size_t row_bytes = size_product(element_bytes, feature_dim);
    m_blocks.push_back(make_adopted<Storage>(comp_node, row_bytes));
    m_comp_node = comp_node;
    m_block_size = block_size;
    m_row_bytes = row_bytes;
    m_state = State::SINGLE_BLOCK;
}

size_t SmartTensor::block_bytes() const {
    return size_product(m_row_bytes, m_block_size);
}

// Doubled up to the rows, but no further than a whole block.
size_t SmartTensor::first_capacity_for(size_t rows) const {
    size_t capacity = m_first_block_capacity;
    while (capacity < rows && capacity < m_block_size)
        capacity = capacity > m_block_size / 2 ? m_block_size : 2 * capacity;
    return capacity;
}

SmartTensor::Growth SmartTensor::prepare(size_t rows) {
    static constexpr char FUNCTION[] = "void vek::SmartTensor::ensure_size(size_t)";
    if (m_state == State::NOT_INITIALIZED)
        throw Error(VEK_INTERNAL_ERROR, "not initialized", FUNCTION);
    Growth growth{m_state, m_first_block_capacity, std::nullopt, {}};
    if (m_state == State::SINGLE_BLOCK) {
        growth.first_block_capacity = first_capacity_for(rows);
        if (growth.first_block_capacity > m_first_block_capacity) {
            auto block = make_adopted<Storage>(
                m_comp_node, size_product(m_row_bytes, growth.first_block_capacity));
            block.copy_from(m_blocks[0], m_row_bytes * m_size);
            m_comp_node.sync();
            growth.first_block = std::move(block);
        }
        if (rows <= m_block_size)
            return growth;
        growth.state = State::FIXED_BLOCKS;
    }
    const size_t needed = divide_rounding_up(rows, m_block_size);
    if (needed <= m_blocks.size())
        return growth;
    if (needed > m_blocks.capacity())
        m_blocks.reserve(std::max(needed, 2 * m_blocks.size()));
    growth.added = make_blocks(needed - m_blocks.size());
    return growth;
}

std::vector<SmartTensor::Storage> SmartTensor::make_blocks(size_t count) const {
    // Before the list of them, which a number out of all proportion makes large too.
    auto memory = allocate_blocks(m_comp_node, block_bytes(), count);
    std::vector<Storage> blocks;
    blocks.reserve(count);
    for (std::shared_ptr<uint8_t>& block : memory)
        blocks.push_back(adopt<Storage>(m_comp_node, block_bytes(), std::move(block)));
    return blocks;
}

void SmartTensor::commit(Growth growth) noexcept {
    m_state = growth.state;
    m_first_block_capacity = growth.first_block_capacity;
    if (growth.first_block)
        m_blocks[0] = std::move(*growth.first_block);
    for (Storage& block : growth.added)
        m_blocks.push_back(std::move(block));  // `prepare` has made the room
}

void SmartTensor::ensure_size(size_t rows) {
    commit(prepare(rows));
}

uint8_t* SmartTensor::row(size_t index) const {
    return m_blocks[index / m_block_size].ptr() + index % m_block_size * m_row_bytes;
}

void SmartTensor::add(const void* host_rows, size_t count) {
    ensure_size(size_sum(m_size, count));
    auto* source = static_cast<const uint8_t*>(host_rows);
    for (size_t left = count; left > 0;) {
        const size_t piece = std::min(left, m_block_size - m_size % m_block_size);
        m_comp_node.copy_to_device(row(m_size), source, piece * m_row_bytes);
        source += piece * m_row_bytes;
        m_size += piece;
        left -= piece;
    }
    m_comp_node.sync();
}

void SmartTensor::erase(size_t index) {
    static constexpr char FUNCTION[] = "void vek::SmartTensor::erase(size_t)";
    if (index >= m_size)
        throw Error(VEK_INTERNAL_ERROR, "erase invalid", FUNCTION);
    const size_t last = m_size - 1;
    if (index < last)
        m_comp_node.copy_to_peer(m_comp_node, row(index), row(last), m_row_bytes);
    m_size = last;
    m_comp_node.sync();
}

void SmartTensor::prefetch(size_t index) const {
    constexpr size_t CACHE_LINE = 64;
    constexpr size_t MOST_BYTES = 1024;  // of a longer row the hardware prefetches the rest
    const uint8_t* begin = row(index);
    for (size_t offset = 0; offset < std::min(m_row_bytes, MOST_BYTES); offset += CACHE_LINE)
        __builtin_prefetch(begin + offset, 1);
}

std::vector<SmartTensor::Element> SmartTensor::get_all_elements() const {
    static constexpr char FUNCTION[] =
        "std::vector<std::pair<const orb::TensorStorage<orb::DeviceTensorStorageTrait>*, unsigned "
        "int> > vek::SmartTensor::get_all_elements() const";
    if (m_state == State::NOT_INITIALIZED)
        throw Error(VEK_INTERNAL_ERROR, "not initialized", FUNCTION);
    std::vector<Element> elements;
    elements.reserve(divide_rounding_up(m_size, m_block_size));
    for (size_t first = 0; first < m_size; first += m_block_size) {
        const size_t rows = std::min(m_block_size, m_size - first);
        elements.emplace_back(&m_blocks[first / m_block_size], static_cast<unsigned int>(rows));
    }
    return elements;
}

// One spare block stays, so that a group whose size goes up and down around the end of a block does
// not allocate each time.
void SmartTensor::shrink() {
    const size_t keep = divide_rounding_up(m_size, m_block_size) + 1;
    while (m_blocks.size() > keep)
        m_blocks.pop_back();
}

void SmartTensor::clear() {
    m_size = 0;
    shrink();
}

}  // namespace vek
