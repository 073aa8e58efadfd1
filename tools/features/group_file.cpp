#include "features/group_file.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace features {
namespace {

constexpr size_t WORD = 8;

}  // namespace

GroupFile::GroupFile(const std::string& path) : m_file(path) {
    const uint64_t sizes = read_version();
    uint64_t words[3];
    m_file.read_at(sizes, words, sizeof(words));
    // The upper halves mean nothing.
    m_feature_size = static_cast<uint32_t>(words[0]);
    m_tag_size = static_cast<uint32_t>(words[1]);
    m_nr_rows = static_cast<uint32_t>(words[2]);
    if (dim() == 0)
        m_file.fail(sizes, "a row of " + std::to_string(m_feature_size) + " bytes holds no float");
    if (m_nr_rows > MAX_GROUP_ROWS)
        m_file.fail(sizes + 2 * WORD, std::to_string(m_nr_rows) + " rows are too many");
    m_ids_offset = sizes + sizeof(words);
    const uint64_t reserved_offset = m_ids_offset + WORD * m_nr_rows;
    uint64_t reserved;
    m_file.read_at(reserved_offset, &reserved, sizeof(reserved));
    if (reserved != 0)
        m_file.fail(reserved_offset, "the reserved field is not 0");
    if (m_nr_rows == 0 && m_tag_size != 0)
        m_file.fail(sizes + WORD, "a group with tags, but without rows, which does not load");
    const uint64_t row_bytes = uint64_t{m_feature_size} + m_tag_size;
    const uint64_t bytes_left = m_file.size() - features_offset();
    if (m_nr_rows > 0 && row_bytes > bytes_left / m_nr_rows)
        m_file.fail(m_file.size(), "the file ends here, not at byte " +
                                       std::to_string(features_offset() + row_bytes * m_nr_rows));
}

uint64_t GroupFile::read_version() const {
    char start[WORD + 1] = {};
    m_file.read_at(0, start, WORD);
    constexpr size_t LETTERS = 3;
    if (std::memcmp(start, "vek", LETTERS) != 0)
        return 0;
    const long version = std::strtol(start + LETTERS, nullptr, 10);
    if (version != 0 && version != 1)
        m_file.fail(LETTERS, "version " + std::to_string(version) + " is unknown");
    return WORD;
}

uint64_t GroupFile::features_offset() const {
    return m_ids_offset + WORD * m_nr_rows + WORD;
}

std::vector<uint64_t> GroupFile::read_ids() const {
    std::vector<uint64_t> ids(static_cast<size_t>(m_nr_rows));
    m_file.read_at(m_ids_offset, ids.data(), ids.size() * WORD);
    check_ids(ids, path());
    return ids;
}

void GroupFile::read_features(uint64_t first, size_t count, float* rows) const {
    const uint64_t begin = features_offset() + first * m_feature_size;
    const size_t row_bytes = dim() * sizeof(float);
    if (row_bytes == m_feature_size)
        return m_file.read_at(begin, rows, count * row_bytes);
    std::vector<uint8_t> bytes(count * m_feature_size);
    m_file.read_at(begin, bytes.data(), bytes.size());
    for (size_t i = 0; i < count; ++i)
        std::memcpy(rows + i * dim(), bytes.data() + i * m_feature_size, row_bytes);
}

void GroupFile::read_tags(uint64_t first, size_t count, uint8_t* tags) const {
    const uint64_t begin = features_offset() + m_nr_rows * m_feature_size;
    m_file.read_at(begin + first * m_tag_size, tags, count * m_tag_size);
}

Tags GroupFile::read_all_tags() const {
    const uint64_t bytes = m_nr_rows * m_tag_size;
    if (bytes > PTRDIFF_MAX)
        throw std::bad_alloc();
    Tags tags{m_tag_size, std::vector<uint8_t>(static_cast<size_t>(bytes))};
    read_tags(0, static_cast<size_t>(m_nr_rows), tags.bytes.data());
    return tags;
}

uint64_t group_file_bytes(uint64_t nr_rows, size_t dim, uint32_t tag_size) {
    return 40 + (WORD + dim * uint64_t{sizeof(float)} + tag_size) * nr_rows;
}

}  // namespace features
