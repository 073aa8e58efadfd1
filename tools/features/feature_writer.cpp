#include "features/feature_writer.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "common/failure.h"

namespace features {
namespace {

class NpyWriter final : public FeatureWriter {
public:
    NpyWriter(const std::string& path, ElementType type, size_t dim, uint64_t nr_rows)
        : FeatureWriter(path, type, dim) {
        m_file.write(npy::header_text(type, {nr_rows, dim}));
    }

    void write(const void* rows, size_t count) override {
        m_file.write(rows, count * m_dim * npy::bytes_of(m_type));
    }
};

// Bytes are unsigned there, so that signed ones are shifted.
class VecsWriter final : public FeatureWriter {
public:
    using FeatureWriter::FeatureWriter;

    void write(const void* rows, size_t count) override {
        const auto length = static_cast<uint32_t>(m_dim);
        const size_t row_bytes = m_dim * npy::bytes_of(m_type);
        const size_t stride = sizeof(length) + row_bytes;
        m_buffer.resize(count * stride);
        for (size_t i = 0; i < count; ++i) {
            uint8_t* const to = m_buffer.data() + i * stride;
            std::memcpy(to, &length, sizeof(length));
            std::memcpy(to + sizeof(length), static_cast<const uint8_t*>(rows) + i * row_bytes,
                        row_bytes);
            for (size_t j = 0; m_type == ElementType::INT8 && j < m_dim; ++j)
                to[sizeof(length) + j] ^= 0x80;
        }
        m_file.write(m_buffer.data(), m_buffer.size());
    }

private:
    std::vector<uint8_t> m_buffer;
};

// Floats with as many digits as give the same float again.
class CsvWriter final : public FeatureWriter {
public:
    using FeatureWriter::FeatureWriter;

    void write(const void* rows, size_t count) override {
        std::string text;
        for (size_t i = 0; i < count * m_dim; ++i) {
            append_element(text, rows, i);
            text += (i + 1) % m_dim == 0 ? '\n' : ',';
        }
        m_file.write(text);
    }

private:
    void append_element(std::string& text, const void* rows, size_t i) const {
        if (m_type == ElementType::INT8) {
            text += std::to_string(static_cast<const int8_t*>(rows)[i]);
        } else if (m_type == ElementType::UINT8) {
            text += std::to_string(static_cast<const uint8_t*>(rows)[i]);
        } else {
            char number[32];
            std::snprintf(number, sizeof(number), "%.9g",
                          static_cast<double>(static_cast<const float*>(rows)[i]));
            text += number;
        }
    }
};

}  // namespace

std::unique_ptr<FeatureWriter> create_features(const std::string& path, ElementType type,
                                               size_t dim, uint64_t nr_rows) {
    const std::string suffix = lower_case_suffix(path);
    if (suffix == ".npy")
        return std::make_unique<NpyWriter>(path, type, dim, nr_rows);
    if (suffix == ".csv")
        return std::make_unique<CsvWriter>(path, type, dim);
    if (suffix != ".fvecs" && suffix != ".bvecs")
        throw tools::BadUse(path + ": features are written as .npy, .fvecs, .bvecs or .csv");
    if ((type == ElementType::FLOAT32) != (suffix == ".fvecs"))
        throw tools::BadUse(path + ": this format does not hold " + npy::name_of(type) +
                            (suffix == ".bvecs" ? "; --int8 makes 8-bit features" : ""));
    return std::make_unique<VecsWriter>(path, type, dim);
}

}  // namespace features
