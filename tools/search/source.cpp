#include "search/source.h"

#include <algorithm>
#include <cstring>

#include "common/failure.h"
#include "features/group_file.h"
#include "features/ids.h"
#include "features/pieces.h"

namespace search {

namespace {

// A tag as it stands in a file: the number's bytes, the lowest first.
std::vector<uint8_t> tag_bytes(uint64_t number, size_t size, const std::string& path) {
    if (size == 0)
        throw tools::BadUse(path + ": its rows have no tags");
    if (size < sizeof(number) && number >> (8 * size) != 0)
        throw tools::BadUse("--tag " + std::to_string(number) + " does not fit the tags of " +
                            path + ", which have " + std::to_string(size) + " bytes");
    std::vector<uint8_t> tag(size);
    for (size_t byte = 0; byte < std::min(size, sizeof(number)); ++byte)
        tag[byte] = static_cast<uint8_t>(number >> (8 * byte));
    return tag;
}

// Which of the tags in `bytes` is this one.
void add_matches(std::vector<bool>& matches, const std::vector<uint8_t>& bytes, size_t nr_tags,
                 const std::vector<uint8_t>& tag) {
    for (size_t i = 0; i < nr_tags; ++i)
        matches.push_back(std::memcmp(&bytes[i * tag.size()], tag.data(), tag.size()) == 0);
}

}  // namespace

Source::Source(const std::string& path, const Options& options, bool normalize) : m_path(path) {
    const std::unique_ptr<features::FeatureFile> file = features::open_features(path);
    m_dim = file->dim();
    m_nr_rows = file->nr_rows();
    m_preparation.allow_not_finite = options.allow_not_finite;
    if (file->format() == std::string("group")) {
        read_group_file(options);
    } else {
        m_preparation.normalize = normalize;
        read_numbers(options);
    }
}

void Source::read_group_file(const Options& options) {
    if (!options.ids.empty() || !options.tags.empty())
        throw tools::BadUse(m_path + ": a group file has ids and tags of its own");
    const features::GroupFile file(m_path);
    m_ids = file.read_ids();
    if (!options.tag)
        return;
    const std::vector<uint8_t> tag = tag_bytes(*options.tag, file.tag_size(), m_path);
    const size_t most = features::rows_per_piece(tag.size());
    std::vector<uint8_t> tags(most * tag.size());
    features::for_each_span(0, m_nr_rows, most, [&](uint64_t first, size_t count) {
        file.read_tags(first, count, tags.data());
        add_matches(m_wanted, tags, count, tag);
    });
}

void Source::read_numbers(const Options& options) {
    if (!options.ids.empty())
        m_ids = features::read_ids(options.ids, m_nr_rows);
    if (!options.tag)
        return;
    features::Tags tags;
    if (!options.tags.empty())
        tags = features::read_tags(options.tags, m_nr_rows);
    const std::vector<uint8_t> tag = tag_bytes(*options.tag, tags.size, m_path);
    add_matches(m_wanted, tags.bytes, static_cast<size_t>(m_nr_rows), tag);
}

std::vector<std::vector<Slice>> split(const std::vector<Slice>& slices, size_t nr_parts) {
    uint64_t nr_rows = 0;
    for (const Slice& slice : slices)
        nr_rows += slice.end - slice.first;
    std::vector<std::vector<Slice>> parts(nr_parts);
    uint64_t begin = 0;  // of the slice, counted over all slices
    for (const Slice& slice : slices) {
        const uint64_t end = begin + (slice.end - slice.first);
        for (size_t part = 0; part < nr_parts; ++part) {
            const uint64_t from = std::max(begin, nr_rows * part / nr_parts);
            const uint64_t to = std::min(end, nr_rows * (part + 1) / nr_parts);
            if (from < to)
                parts[part].push_back(
                    {slice.source, slice.first + (from - begin), slice.first + (to - begin)});
        }
        begin = end;
    }
    return parts;
}

uint64_t read_rows(features::FeatureFile& file, const features::Preparation& preparation,
                   uint64_t first, size_t count, float* rows) {
    features::read_floats(file, first, count, rows);
    features::prepare(rows, count, file.dim(), preparation, file.path(), first);
    return 0;
}

uint64_t read_rows(features::FeatureFile& file, const features::Preparation&, uint64_t first,
                   size_t count, int8_t* rows) {
    return features::read_int8(file, first, count, rows);
}

}  // namespace search
