// Files of tests as strings of bytes, and group files composed by hand.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

// A new folder that goes with its contents.
class TempFolder {
public:
    TempFolder() {
        std::string name = testing::TempDir() + "/vekfind_XXXXXX";
        EXPECT_NE(mkdtemp(&name[0]), nullptr);
        m_path = name;
    }
    ~TempFolder() { std::filesystem::remove_all(m_path); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const std::string& name) const { return m_path / name; }
    std::string file(const std::string& name, const std::string& bytes) const {
        std::ofstream(*this / name, std::ios::binary) << bytes;
        return *this / name;
    }

private:
    std::filesystem::path m_path;
};

inline std::string bytes_of_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

template <typename T>
std::string bytes_of(const std::vector<T>& values) {
    if (values.empty())
        return {};
    return {static_cast<const char*>(static_cast<const void*>(values.data())),
            values.size() * sizeof(T)};
}

// The fields of a group file in their order; each test sets those that it is about.
struct GroupFile {
    std::string version = "vek00001";
    uint64_t feature_size = 0;
    uint64_t tag_size = 0;
    std::vector<uint64_t> ids;
    uint64_t reserved = 0;
    std::string features;
    std::string tags;
    std::optional<uint64_t> count;  // in place of the ids'

    std::string bytes() const {
        return version + bytes_of<uint64_t>({feature_size, tag_size, count.value_or(ids.size())}) +
               bytes_of(ids) + bytes_of<uint64_t>({reserved}) + features + tags;
    }
};
