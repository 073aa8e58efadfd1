// Feeds any bytes to the loader of group files. What loads has to come back from a dump.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "store/group_file.h"
#include "vekfind/vekfind.h"

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

// A file in memory that has a path; the only one, for good.
class MemoryFile {
public:
    const char* path() const { return m_path.c_str(); }
    void set(const uint8_t* data, size_t size) const {
        require(m_fd >= 0 && ftruncate(m_fd, 0) == 0);
        require(pwrite(m_fd, data, size, 0) == static_cast<ssize_t>(size));
    }
    std::string bytes() const {
        std::string bytes(static_cast<size_t>(lseek(m_fd, 0, SEEK_END)), '\0');
        require(pread(m_fd, &bytes[0], bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

private:
    const int m_fd = memfd_create("vekfind", 0);
    const std::string m_path = "/proc/self/fd/" + std::to_string(m_fd);
};

uint32_t size_field(const uint8_t* data, size_t size, size_t offset, uint32_t limit) {
    uint32_t value = 0;
    if (offset + sizeof(value) <= size)
        std::memcpy(&value, data + offset, sizeof(value));
    return value % limit;
}

// A dump of the group has the stated size and, behind its sizes, the bytes of the file.
void check_dump(VEKContext group, const VEKFeatureGroupSettings& settings, const MemoryFile& file,
                const uint8_t* body, size_t body_size) {
    require(VEK_dump_feature_group_to_file(group, file.path()) == VEK_OK);
    const std::string dumped = file.bytes();
    size_t rows = 0;
    require(VEK_get_feature_group_size(group, &rows) == VEK_OK);
    require(dumped.size() ==
            40 + rows * (sizeof(uint64_t) + settings.feature_size + settings.tag_size));
    if (settings.feature_size % 4 != 0)
        return;  // the end of each row is zero in a dump
    require(dumped.size() <= body_size + 8);
    require(std::memcmp(&dumped[32], body + 24, dumped.size() - 32) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const MemoryFile file;
    file.set(data, size);
    // Sizes that agree with the file's, as long as they are small ones.
    const size_t body = size >= 3 && std::memcmp(data, "vek", 3) == 0 ? 8 : 0;
    VEKFeatureGroupSettings settings{};
    settings.feature_size = std::max(4u, size_field(data, size, body, 64));
    settings.tag_size = size_field(data, size, body + 8, 16);
    try {
        // Most inputs end here, which is much cheaper than a group.
        vek::read_group_file(
            file.path(), {settings.feature_size, settings.tag_size, settings.feature_size & ~3u},
            "");
    } catch (const std::exception&) {
        return 0;
    }
    VEKContext group;
    const VEKStatus status =
        VEK_make_feature_group_context_from_file(file.path(), &settings, &group);
    require((status == VEK_OK) == (group != nullptr));
    require(group || status == VEK_INVALID_ID || status == VEK_DUPLICATED_ID ||
            status == VEK_INVALID_ARGUMENT);
    if (group)
        check_dump(group, settings, file, data + body, size - body);
    VEK_release(group);
    return 0;
}
