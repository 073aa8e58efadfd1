#include "search/zip.h"

#include <array>
#include <cstdint>

#include "common/failure.h"

namespace search {

namespace {

constexpr size_t LOCAL_HEADER_SIZE = 30, CENTRAL_HEADER_SIZE = 46, END_SIZE = 22;
constexpr uint16_t VERSION = 20;       // of the format: plain files
constexpr uint16_t FIRST_DATE = 0x21;  // 1980-01-01: the same result gives the same bytes

// CRC-32 with one table look-up a byte (Sarwate, Computation of cyclic redundancy checks via table
// look-up, Communications of the ACM, 1988).
uint32_t crc32(const std::string& bytes) {
    static const std::array<uint32_t, 256> TABLE = [] {
        std::array<uint32_t, 256> table{};
        for (uint32_t byte = 0; byte < table.size(); ++byte) {
            uint32_t remainder = byte;
            for (int bit = 0; bit < 8; ++bit)
                remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? 0xEDB88320U : 0U);
            table[byte] = remainder;
        }
        return table;
    }();
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes)
        crc = crc >> 8 ^ TABLE[(crc ^ static_cast<uint8_t>(byte)) & 0xFF];
    return ~crc;
}

// Little-endian fields, one behind the other.
class Record {
public:
    Record& u16(size_t number) { return add(number, 2); }
    Record& u32(size_t number) { return add(number, 4); }
    Record& text(const std::string& bytes) {
        m_bytes += bytes;
        return *this;
    }
    const std::string& bytes() const { return m_bytes; }

private:
    Record& add(size_t number, int nr_bytes) {
        for (int byte = 0; byte < nr_bytes; ++byte)
            m_bytes += static_cast<char>(number >> (8 * byte) & 0xFF);
        return *this;
    }

    std::string m_bytes;
};

// What the header in front of a member and the one in the directory have in common.
Record& add_description(Record& record, const ZipMember& member, uint32_t crc) {
    record.u16(VERSION).u16(0).u16(0).u16(0).u16(FIRST_DATE).u32(crc);
    record.u32(member.bytes.size()).u32(member.bytes.size());
    return record.u16(member.name.size()).u16(0);
}

void require_room(const std::vector<ZipMember>& members) {
    uint64_t size = END_SIZE;
    for (const ZipMember& member : members)
        size += LOCAL_HEADER_SIZE + CENTRAL_HEADER_SIZE + 2 * uint64_t{member.name.size()} +
                member.bytes.size();
    if (size > UINT32_MAX)
        throw tools::BadFile("the result is too large for an .npz file, which ends at 4 GiB");
}

}  // namespace

void write_zip(const std::vector<ZipMember>& members, const Sink& sink) {
    require_room(members);
    Record directory;
    size_t offset = 0;
    const auto write = [&](const std::string& bytes) {
        sink(bytes.data(), bytes.size());
        offset += bytes.size();
    };
    for (const ZipMember& member : members) {
        const uint32_t crc = crc32(member.bytes);
        directory.u32(0x02014B50).u16(VERSION);
        add_description(directory, member, crc).u16(0).u16(0).u16(0).u32(0).u32(offset);
        directory.text(member.name);
        Record header;
        header.u32(0x04034B50);
        write(add_description(header, member, crc).text(member.name).bytes());
        write(member.bytes);
    }
    const size_t begin = offset;
    write(directory.bytes());
    Record end;
    end.u32(0x06054B50).u16(0).u16(0).u16(members.size()).u16(members.size());
    write(end.u32(offset - begin).u32(begin).u16(0).bytes());
}

}  // namespace search
