// An archive of files that are stored as they are, which is what .npz is: the .zip format of
// PKWARE's APPNOTE.TXT, without compression and without its extension for 64-bit sizes.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace search {

struct ZipMember {
    std::string name;  // ASCII
    std::string bytes;
};

// Takes the next bytes of a file.
using Sink = std::function<void(const void* bytes, size_t count)>;

// Writes a whole archive. One that would not end below 4 GiB is a BadFile, and nothing is written.
void write_zip(const std::vector<ZipMember>& members, const Sink& sink);

}  // namespace search
