// Writes features in pieces: .npy, .fvecs, .bvecs or .csv, by name. The file takes its place when
// it is complete.
#pragma once

#include <memory>
#include <string>

#include "common/output_file.h"
#include "features/feature_file.h"

namespace features {

class FeatureWriter {
public:
    FeatureWriter(const std::string& path, ElementType type, size_t dim)
        : m_file(path), m_type(type), m_dim(dim) {}
    virtual ~FeatureWriter() = default;

    // Of rows as they are to be given.
    ElementType type() const { return m_type; }
    virtual void write(const void* rows, size_t count) = 0;
    // To be called last, when all rows are written.
    void commit() { m_file.commit(); }

protected:
    tools::OutputFile m_file;
    ElementType m_type;
    size_t m_dim;
};

// `type` is FLOAT32, INT8 or UINT8. .bvecs does not hold floats, and INT8 shifted by 128; .fvecs
// holds floats only. What does not fit, and another name, is BadUse.
std::unique_ptr<FeatureWriter> create_features(const std::string& path, ElementType type,
                                               size_t dim, uint64_t nr_rows);

}  // namespace features
