#include "search/setup.h"

#include <algorithm>
#include <iostream>

#include "common/failure.h"
#include "features/constants.h"

namespace search {

namespace {

Comparison comparison_of(const std::string& path, const Options& options) {
    const features::Constants beside = features::read_constants(path);
    const std::optional<float> scale = options.scale ? options.scale : beside.scale;
    const std::optional<float> bias = options.bias ? options.bias : beside.bias;
    if (scale.has_value() != bias.has_value())
        throw tools::BadUse(path + ": it needs --scale and --bias, or neither");
    if (options.threshold && !scale)
        throw tools::BadUse(path +
                            ": --threshold needs --scale and --bias: without them there "
                            "are distances, but no similarities");
    Comparison comparison;
    comparison.scale = scale.value_or(comparison.scale);
    comparison.bias = bias.value_or(comparison.bias);
    comparison.has_scores = scale.has_value();
    comparison.normalize = options.normalize.value_or(beside.normalize);
    if (comparison.normalize && options.int8)
        throw tools::BadUse(path + ": its rows are of length 1, which 8-bit integers are not");
    return comparison;
}

}  // namespace

vekfind::Settings Comparison::settings() const {
    vekfind::Settings settings;
    settings.dim = static_cast<uint32_t>(std::min<uint64_t>(dim, UINT32_MAX));
    settings.scale = scale;
    settings.bias = bias;
    return settings;
}

std::string difference(const Comparison& a, const Comparison& b) {
    if (a.dim != b.dim)
        return std::to_string(b.dim) + " dimensions, not " + std::to_string(a.dim);
    if (a.has_scores != b.has_scores || a.scale < b.scale || a.scale > b.scale || a.bias < b.bias ||
        a.bias > b.bias)
        return "another scale or bias";
    return a.normalize == b.normalize ? "" : "rows of another length";
}

Setup open_sources(const std::vector<std::string>& paths, const Options& options) {
    Setup setup;
    for (const std::string& path : paths) {
        Comparison comparison = comparison_of(path, options);
        const auto source = std::make_shared<Source>(path, options, comparison.normalize);
        comparison.dim = source->dim();
        if (setup.slices.empty())
            setup.comparison = comparison;
        const std::string text = difference(setup.comparison, comparison);
        if (!text.empty())
            throw tools::BadFile(path + ": it has " + text);
        setup.slices.push_back({source, 0, source->nr_rows()});
    }
    return setup;
}

void warn_if_far(const Source& source) {
    const auto file = features::open_features(source.path());
    const size_t most = features::rows_per_piece(source.dim() * sizeof(float));
    const auto count = static_cast<size_t>(std::min<uint64_t>(most, source.nr_rows()));
    std::vector<float> rows(count * source.dim());
    read_rows(*file, source.preparation(), 0, count, rows.data());
    features::Spread spread(source.dim());
    spread.add(rows.data(), count);
    features::warn_if_far(spread, source.path());
}

void warn_of_changes(const char* program, uint64_t nr_changed) {
    if (nr_changed > 0)
        std::cerr << program << ": warning: " << nr_changed
                  << " elements were -128 and became -127\n";
}

size_t queries_at_once(uint64_t k) {
    constexpr uint64_t MOST_QUERIES = 1024, MOST_MATCHES = uint64_t{1} << 22;
    return static_cast<size_t>(std::clamp<uint64_t>(MOST_MATCHES / k, 1, MOST_QUERIES));
}

template <typename T>
Queries<T>::Queries(const std::string& path, const Options& options, const Comparison& comparison)
    : m_file(features::open_features(path)) {
    if (m_file->dim() != comparison.dim)
        throw tools::BadFile(path + ": the queries have " + std::to_string(m_file->dim()) +
                             " dimensions, the rows " + std::to_string(comparison.dim));
    m_preparation.allow_not_finite = options.allow_not_finite;
    m_preparation.normalize = comparison.normalize;
    if (!options.mean.empty())
        m_preparation.mean = features::read_mean(options.mean, m_file->dim());
}

template <typename T>
std::vector<T> Queries<T>::read(size_t first, size_t count) {
    std::vector<T> rows(count * m_file->dim());
    m_nr_changed += read_rows(*m_file, m_preparation, first, count, rows.data());
    return rows;
}

template class Queries<float>;
template class Queries<int8_t>;

}  // namespace search
