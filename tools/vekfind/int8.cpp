#include "vekfind/int8.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <numeric>
#include <vector>

#include "common/failure.h"
#include "common/progress.h"
#include "vekfind/vekfind.hpp"

namespace commands {
namespace {

using features::FeatureFile;
using features::Preparation;

constexpr size_t K = 10, MAX_SAMPLE = 20000, MAX_QUERIES = 200, LEAST_ROWS_PER_QUERY = 10;
constexpr float MOST = 127;

// Every so-and-so-many-th row goes to the queries, the others to the rows that they search.
struct Sample {
    std::vector<float> queries, rows;
};

Sample draw_sample(FeatureFile& file, const Preparation& preparation) {
    const auto nr = static_cast<size_t>(std::min<uint64_t>(file.nr_rows(), MAX_SAMPLE));
    const size_t rows_per_query = std::max(nr / MAX_QUERIES, LEAST_ROWS_PER_QUERY);
    Sample sample;
    for (size_t i = 0; i < nr; ++i) {
        const uint64_t place = file.nr_rows() * i / nr;
        features::for_each_piece(file, place, 1, preparation, [&](float* first, size_t, uint64_t) {
            auto& to = i % rows_per_query == 0 ? sample.queries : sample.rows;
            to.insert(to.end(), first, first + file.dim());
        });
    }
    return sample;
}

vekfind::SearchResult nearest(const vekfind::Features& rows, const vekfind::Features& queries,
                              size_t dim) {
    vekfind::Settings settings;
    settings.dim = static_cast<uint32_t>(dim);
    settings.scale = 1;
    settings.is_int8 = rows.is_int8;
    settings.allow_non_finite = true;
    vekfind::Group group(settings);
    std::vector<uint64_t> ids(rows.size / dim);
    std::iota(ids.begin(), ids.end(), 0);
    group.insert(ids, rows);
    return group.search(queries, K);
}

std::vector<int8_t> quantized(const std::vector<float>& floats, float scale) {
    std::vector<int8_t> bytes(floats.size());
    quantize(floats.data(), floats.size(), scale, bytes.data());
    return bytes;
}

size_t count_common(const std::vector<uint64_t>& found, const std::vector<uint64_t>& wanted,
                    size_t query) {
    size_t count = 0;
    const auto begin = wanted.begin() + static_cast<ptrdiff_t>(query * K);
    for (size_t i = 0; i < K; ++i) {
        if (std::find(begin, begin + K, found[query * K + i]) != begin + K)
            ++count;
    }
    return count;
}

}  // namespace

void write_int8(FeatureFile& file, features::FeatureWriter& writer) {
    std::vector<int8_t> rows;
    uint64_t nr_changed = 0;
    {
        tools::Progress progress("rows", file.nr_rows());
        features::for_each_span(0, file.nr_rows(), features::rows_per_piece(file.row_bytes()),
                                [&](uint64_t first, size_t count) {
                                    rows.resize(count * file.dim());
                                    nr_changed +=
                                        features::read_int8(file, first, count, rows.data());
                                    writer.write(rows.data(), count);
                                    progress.add(count);
                                });
    }
    if (file.type() == features::ElementType::UINT8)
        std::cout << "each element is less by 128, which leaves distances as they are\n";
    if (nr_changed > 0)
        std::cout << nr_changed << " elements of -128 are -127 now\n";
}

void quantize(const float* floats, size_t count, float scale, int8_t* bytes) {
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<int8_t>(std::lrint(std::clamp(floats[i] * scale, -MOST, MOST)));
}

float fit_int8_scale(FeatureFile& file, const Preparation& preparation) {
    float most = 0;
    tools::Progress progress("scale", file.nr_rows());
    features::for_each_piece(file, preparation, [&](float* rows, size_t count, uint64_t) {
        for (size_t i = 0; i < count * file.dim(); ++i)
            most = std::max(most, std::fabs(rows[i]));
        progress.add(count);
    });
    const float scale = MOST / most;
    if (!std::isfinite(scale) || scale <= 0)
        throw tools::BadFile(file.path() + ": all elements are 0, or too small or large to scale");
    return scale;
}

std::optional<Recall> measure_recall(FeatureFile& file, const Preparation& preparation,
                                     float scale) {
    const Sample sample = draw_sample(file, preparation);
    Recall recall;
    recall.nr_queries = sample.queries.size() / file.dim();
    recall.nr_rows = sample.rows.size() / file.dim();
    if (recall.nr_rows < K)
        return std::nullopt;
    const auto wanted = nearest(sample.rows, sample.queries, file.dim());
    const std::vector<int8_t> rows = quantized(sample.rows, scale);
    const auto found = nearest(rows, quantized(sample.queries, scale), file.dim());
    size_t nr_common = 0;
    for (size_t query = 0; query < recall.nr_queries; ++query)
        nr_common += count_common(found.ids, wanted.ids, query);
    recall.share = static_cast<double>(nr_common) / static_cast<double>(recall.nr_queries * K);
    return recall;
}

}  // namespace commands
