#include "features/feature_file.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <vector>

#include "common/failure.h"
#include "features/feature_sources.h"

namespace features {
namespace {

std::unique_ptr<FeatureFile> open_by_content(const std::string& path) {
    const tools::InputFile file(path);
    char start[6] = {};
    file.read_at(0, start, static_cast<size_t>(std::min<uint64_t>(file.size(), sizeof(start))));
    if (std::memcmp(start, "\x93NUMPY", 6) == 0)
        return open_npy(path);
    if (std::memcmp(start, "vek", 3) == 0)
        return open_group_features(path);
    throw tools::BadFile(path +
                         ": neither named .npy, .fvecs, .bvecs, .csv or .vek, nor an array "
                         "or a group by content");
}

std::unique_ptr<FeatureFile> open_by_name(const std::string& path) {
    const std::string suffix = lower_case_suffix(path);
    if (suffix == ".npy")
        return open_npy(path);
    if (suffix == ".fvecs")
        return open_vecs(path, ElementType::FLOAT32);
    if (suffix == ".bvecs")
        return open_vecs(path, ElementType::UINT8);
    if (suffix == ".csv")
        return open_csv(path);
    return suffix == ".vek" ? open_group_features(path) : open_by_content(path);
}

template <typename T>
std::vector<T> read_own(FeatureFile& file, uint64_t first, size_t count) {
    std::vector<T> rows(count * file.dim());
    file.read(first, count, rows.data());
    return rows;
}

void round_doubles(FeatureFile& file, uint64_t first, size_t count, float* rows) {
    const std::vector<double> doubles = read_own<double>(file, first, count);
    for (size_t i = 0; i < doubles.size(); ++i) {
        rows[i] = static_cast<float>(doubles[i]);
        if (std::isinf(rows[i]) && !std::isinf(doubles[i]))
            throw tools::BadFile(file.path() + ": row " + std::to_string(first + i / file.dim()) +
                                 ": element " + std::to_string(i % file.dim()) +
                                 " is beyond 32-bit floats");
    }
}

}  // namespace

std::string lower_case_suffix(const std::string& path) {
    const size_t dot = path.find_last_of("./");
    std::string suffix = dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot);
    for (char& letter : suffix)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return suffix;
}

std::unique_ptr<FeatureFile> open_features(const std::string& path, bool allow_empty) {
    auto file = open_by_name(path);
    if (file->nr_rows() == 0 && !allow_empty)
        throw tools::BadFile(path + ": there are no rows in it");
    return file;
}

void read_floats(FeatureFile& file, uint64_t first, size_t count, float* rows) {
    switch (file.type()) {
        case ElementType::FLOAT32:
            return file.read(first, count, rows);
        case ElementType::FLOAT64:
            return round_doubles(file, first, count, rows);
        case ElementType::INT8: {
            const auto bytes = read_own<int8_t>(file, first, count);
            std::copy(bytes.begin(), bytes.end(), rows);
            return;
        }
        default: {
            const auto bytes = read_own<uint8_t>(file, first, count);
            std::copy(bytes.begin(), bytes.end(), rows);
            return;
        }
    }
}

uint64_t read_int8(FeatureFile& file, uint64_t first, size_t count, int8_t* rows) {
    const bool is_unsigned = file.type() == ElementType::UINT8;
    if (!is_unsigned && file.type() != ElementType::INT8)
        throw tools::BadFile(file.path() + ": its features are " + npy::name_of(file.type()) +
                             ", not 8-bit integers; `vekfind convert --int8` makes these");
    file.read(first, count, rows);
    uint64_t nr_changed = 0;
    for (size_t i = 0; i < count * file.dim(); ++i) {
        if (is_unsigned)
            rows[i] = static_cast<int8_t>(static_cast<uint8_t>(rows[i]) - 128);
        if (rows[i] == INT8_MIN) {
            rows[i] = INT8_MIN + 1;
            ++nr_changed;
        }
    }
    return nr_changed;
}

size_t rows_per_piece(size_t row_bytes) {
    return std::max<size_t>((size_t{4} << 20) / row_bytes, 1);
}

}  // namespace features
