// Files of features, read in pieces. Whatever is wrong with a file is a BadFile with its name and a
// row or byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "common/npy.h"

namespace features {

using npy::ElementType;  // FLOAT32, FLOAT64, INT8 or UINT8

// Rows of one length and type. One thread may use it at a time.
class FeatureFile {
public:
    virtual ~FeatureFile() = default;

    const std::string& path() const { return m_path; }
    const char* format() const { return m_format; }  // ".npy", ".fvecs", ".bvecs", ".csv", "group"
    bool is_group() const { return std::strcmp(m_format, "group") == 0; }
    ElementType type() const { return m_type; }
    size_t dim() const { return m_dim; }  // at least 1
    uint64_t nr_rows() const { return m_nr_rows; }
    size_t row_bytes() const { return m_dim * npy::bytes_of(m_type); }
    // Rows [first, first + count) in the file's own type, row after row. Reading in order is fast
    // for every format; .csv starts again when it is asked to go back.
    virtual void read(uint64_t first, size_t count, void* rows) = 0;

protected:
    FeatureFile(std::string path, const char* format) : m_path(std::move(path)), m_format(format) {}

    std::string m_path;
    const char* m_format;
    ElementType m_type = ElementType::FLOAT32;
    size_t m_dim = 0;
    uint64_t m_nr_rows = 0;
};

// .npy, .fvecs, .bvecs, .csv and group files (.vek, their features as FLOAT32) by name; .npy and
// group files by content, too. A file without rows is refused, or not.
std::unique_ptr<FeatureFile> open_features(const std::string& path, bool allow_empty = false);

// Any file as floats: doubles are rounded (refused are numbers beyond float), integers keep their
// value.
void read_floats(FeatureFile& file, uint64_t first, size_t count, float* rows);

// Files of 8-bit integers: unsigned ones are shifted by 128, which leaves distances as they are.
// -128, which the library's 8-bit products may not meet, becomes -127. The number of elements that
// were changed so is returned. Floats are refused.
uint64_t read_int8(FeatureFile& file, uint64_t first, size_t count, int8_t* rows);

// ".npy" of "a/b.NPY"; empty where there is none.
std::string lower_case_suffix(const std::string& path);

// Rows that make a piece of about 4 MiB, at least one.
size_t rows_per_piece(size_t row_bytes);

}  // namespace features
