// Formats whose rows have a place that can be calculated: .npy, .fvecs and .bvecs, group files.
#include <cstring>
#include <vector>

#include "features/feature_sources.h"
#include "features/group_file.h"

namespace features {
namespace {

class NpyFile final : public FeatureFile {
public:
    explicit NpyFile(const std::string& path) : FeatureFile(path, ".npy"), m_file(path) {
        const npy::Header header = npy::read_header(m_file);
        m_type = header.type;
        if (header.shape.size() != 2)
            m_file.fail(0, "an array of " + std::to_string(header.shape.size()) +
                               " axes; features have two, rows and elements");
        if (m_type != ElementType::FLOAT32 && m_type != ElementType::FLOAT64 &&
            m_type != ElementType::INT8 && m_type != ElementType::UINT8)
            m_file.fail(0, std::string("elements of type ") + npy::name_of(m_type) +
                               "; features are float32, float64, int8 or uint8");
        if (header.shape[1] == 0 || header.shape[1] > SIZE_MAX / 8)
            m_file.fail(0, "rows of " + std::to_string(header.shape[1]) + " elements");
        m_nr_rows = header.shape[0];
        m_dim = static_cast<size_t>(header.shape[1]);
        m_offset = header.offset;
    }

    void read(uint64_t first, size_t count, void* rows) override {
        m_file.read_at(m_offset + first * row_bytes(), rows, count * row_bytes());
    }

private:
    tools::InputFile m_file;
    uint64_t m_offset = 0;
};

// Each row has its length as a 32-bit number before it; all are equal.
class VecsFile final : public FeatureFile {
public:
    VecsFile(const std::string& path, ElementType type)
        : FeatureFile(path, type == ElementType::UINT8 ? ".bvecs" : ".fvecs"), m_file(path) {
        m_type = type;
        uint32_t length;
        m_file.read_at(0, &length, LENGTH);
        if (length == 0 || length > INT32_MAX / npy::bytes_of(type))
            m_file.fail(0,
                        "a row of " + std::to_string(static_cast<int32_t>(length)) + " elements");
        m_dim = length;
        const uint64_t stride = LENGTH + row_bytes();
        m_nr_rows = m_file.size() / stride;
        if (m_file.size() % stride != 0)
            m_file.fail(m_nr_rows * stride, "the file ends in row " + std::to_string(m_nr_rows) +
                                                ", where rows have " + std::to_string(m_dim) +
                                                " elements");
    }

    void read(uint64_t first, size_t count, void* rows) override {
        const size_t stride = LENGTH + row_bytes();
        m_buffer.resize(count * stride);
        m_file.read_at(first * stride, m_buffer.data(), m_buffer.size());
        for (size_t i = 0; i < count; ++i) {
            uint32_t length;
            std::memcpy(&length, m_buffer.data() + i * stride, LENGTH);
            if (length != m_dim)
                m_file.fail((first + i) * stride, "row " + std::to_string(first + i) + " has " +
                                                      std::to_string(static_cast<int32_t>(length)) +
                                                      " elements, not " + std::to_string(m_dim));
            std::memcpy(static_cast<uint8_t*>(rows) + i * row_bytes(),
                        m_buffer.data() + i * stride + LENGTH, row_bytes());
        }
    }

private:
    static constexpr size_t LENGTH = sizeof(uint32_t);

    tools::InputFile m_file;
    std::vector<uint8_t> m_buffer;
};

class GroupFeatures final : public FeatureFile {
public:
    explicit GroupFeatures(const std::string& path) : FeatureFile(path, "group"), m_group(path) {
        m_dim = m_group.dim();
        m_nr_rows = m_group.nr_rows();
    }

    void read(uint64_t first, size_t count, void* rows) override {
        m_group.read_features(first, count, static_cast<float*>(rows));
    }

private:
    GroupFile m_group;
};

}  // namespace

std::unique_ptr<FeatureFile> open_npy(const std::string& path) {
    return std::make_unique<NpyFile>(path);
}

std::unique_ptr<FeatureFile> open_vecs(const std::string& path, ElementType type) {
    return std::make_unique<VecsFile>(path, type);
}

std::unique_ptr<FeatureFile> open_group_features(const std::string& path) {
    return std::make_unique<GroupFeatures>(path);
}

}  // namespace features
