#include "store/group_file.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "store/adopted_memory.h"
#include "store/error.h"

namespace vek {
namespace {

constexpr char MAGIC_LETTERS[] = "vek";
constexpr size_t NR_MAGIC_LETTERS = 3;
constexpr size_t MAGIC_BYTES = 8;
// As many 8-byte ids as a 32-bit size can count: the limit holds on every target, so that a file
// loads everywhere or nowhere.
constexpr uint32_t MAX_COUNT = 536870911;

long version_of(const VersionMagic& magic) {
    return std::strtol(magic.c_str() + NR_MAGIC_LETTERS, nullptr, 10);
}

// Size fields are 64 bits wide, of which the lower half counts.
uint32_t low_half(uint64_t word) {
    return static_cast<uint32_t>(word);
}

// From rows as the file has them to rows as they are in memory, in place.
void pack_rows(uint8_t* rows, size_t count, const GroupFileSizes& sizes) {
    if (sizes.row_bytes == sizes.feature_bytes)
        return;
    for (size_t i = 0; i < count; ++i)
        std::memmove(rows + i * sizes.row_bytes, rows + i * sizes.feature_bytes, sizes.row_bytes);
}

void write_rows(OutputStream& stream, const uint8_t* rows, size_t count,
                const GroupFileSizes& sizes) {
    if (sizes.row_bytes == sizes.feature_bytes) {
        stream.write(rows, count * sizes.row_bytes);
        return;
    }
    std::vector<uint8_t> padded(size_product(count, sizes.feature_bytes));
    for (size_t i = 0; i < count; ++i)
        std::memcpy(&padded[i * sizes.feature_bytes], rows + i * sizes.row_bytes, sizes.row_bytes);
    stream.write(padded.data(), padded.size());
}

}  // namespace

VersionMagic make_version_magic(int version) {
    VersionMagic magic(MAGIC_BYTES, '\0');
    std::memcpy(&magic[0], MAGIC_LETTERS, NR_MAGIC_LETTERS);
    for (size_t i = MAGIC_BYTES; i-- > NR_MAGIC_LETTERS;) {
        magic[i] = static_cast<char>('0' + version % 10);
        version /= 10;
    }
    return magic;
}

bool check_version(const VersionMagic& magic, int current) {
    static constexpr char FUNCTION[] = "bool vek::check_version(const VersionMagic&, int)";
    if (magic.compare(0, NR_MAGIC_LETTERS, MAGIC_LETTERS) != 0)
        return false;
    const long found = version_of(magic);
    if (found >= 0 && found <= current)
        return true;
    throw Error(VEK_UNEXPECTED_CONFIG,
                "Bad vekfind config version " + magic + "valid version: " + make_version_magic(0) +
                    " - " + make_version_magic(current),
                FUNCTION);
}

std::unique_ptr<InputStream> make_loader(const std::string& path, int current) {
    auto stream = open_input_stream(path);
    VersionMagic magic(MAGIC_BYTES, '\0');
    stream->read(&magic[0], MAGIC_BYTES);
    magic.push_back('\0');  // ends the number, and stands in the message of a refusal
    if (check_version(magic, current))
        return stream;
    stream.reset();
    return open_input_stream(path);  // the body of a file without a header begins at once
}

std::unique_ptr<OutputStream> make_dumper(const std::string& path, int version) {
    auto stream = open_output_stream(path, false);
    const VersionMagic magic = make_version_magic(version);
    stream->write(magic.data(), magic.size());
    return stream;
}

GroupFileContent read_group_file(const std::string& path, const GroupFileSizes& sizes,
                                 const char* function) {
    const auto stream = make_loader(path, current_file_version());
    const uint32_t feature_bytes = low_half(read_u64(*stream));
    const uint32_t tag_bytes = low_half(read_u64(*stream));
    if (feature_bytes != sizes.feature_bytes)
        throw Error(VEK_INVALID_SETTINGS, "feature size not match", function);
    if (tag_bytes != sizes.tag_bytes)
        throw Error(VEK_INVALID_SETTINGS, "tag size not match", function);
    const uint32_t count = low_half(read_u64(*stream));
    if (count > MAX_COUNT)
        throw std::bad_alloc();
    GroupFileContent content;
    content.count = count;
    content.ids = stream->read_array<uint64_t>(count);
    if (read_u64(*stream) != 0)
        throw Error(VEK_INVALID_SETTINGS, "unknown dump file", function);
    content.features = stream->read_array<uint8_t>(uint64_t{count} * feature_bytes);
    pack_rows(content.features.get(), count, sizes);
    if (count != 0 && tag_bytes != 0)
        content.tags = stream->read_array<uint8_t>(uint64_t{count} * tag_bytes);
    return content;
}

void write_group_file(const std::string& path, const GroupFileSizes& sizes, const uint64_t* ids,
                      const SmartTensor& features, const uint8_t* tags) {
    const auto stream = make_dumper(path, current_file_version());
    const size_t count = features.size();
    write_u64(*stream, sizes.feature_bytes);
    write_u64(*stream, sizes.tag_bytes);
    write_u64(*stream, count);
    stream->write(ids, count * sizeof(uint64_t));
    write_u64(*stream, 0);
    for (const auto& [block, rows] : features.get_all_elements())
        write_rows(*stream, block->ptr(), rows, sizes);
    if (sizes.tag_bytes != 0)
        stream->write(tags, count * sizes.tag_bytes);
}

}  // namespace vek
