#include "store/group_file.h"

#include <gtest/gtest.h>

#include "tests/error_text.h"
#include "tests/store/file_test_util.h"

namespace {

using vek::GroupFileSizes;

// Two rows of two floats' bytes and a tag of one byte.
constexpr GroupFileSizes SIZES{8, 1, 8};
const std::string FEATURES = "first000second00";
GroupFile two_rows() {
    GroupFile file;
    file.feature_size = 8;
    file.tag_size = 1;
    file.ids = {5, 6};
    file.features = FEATURES;
    file.tags = "xy";
    return file;
}

// What was read: the ids, then features and tags; or the error's text.
std::string read(const TempFolder& folder, const std::string& bytes,
                 const GroupFileSizes& sizes = SIZES) {
    const std::string path = folder.file("f", bytes);
    std::string text;
    const std::string error = error_of([&] {
        const vek::GroupFileContent content = vek::read_group_file(path, sizes, "caller()");
        for (size_t i = 0; i < content.count; ++i)
            text += std::to_string(content.ids[i]) + ' ';
        const auto append = [&](const uint8_t* rows, size_t row_bytes) {
            text.append(rows, rows + content.count * row_bytes);
        };
        append(content.features.get(), sizes.row_bytes);
        if (content.tags)
            append(content.tags.get(), sizes.tag_bytes);
    });
    return error == "no error" ? text : error;
}

TEST(GroupFile, FormsThatLoadAndRefusalsByField) {
    const TempFolder folder;
    GroupFile file = two_rows();
    for (const char* version : {"vek00001", "vek00000", "vekABCDE", "vek1.250", "vek -0.5", ""}) {
        file.version = version;
        EXPECT_EQ(read(folder, file.bytes()), "5 6 " + FEATURES + "xy") << version;
    }
    // Of each row only so many bytes count.
    EXPECT_EQ(read(folder, file.bytes(), {8, 1, 3}), "5 6 firsecxy");
    EXPECT_EQ(read(folder, file.bytes(), {12, 1, 8}),
              "Error[8] feature size not match at [caller()]");
    EXPECT_EQ(read(folder, file.bytes(), {8, 0, 8}), "Error[8] tag size not match at [caller()]");
    file.reserved = 1;
    EXPECT_EQ(read(folder, file.bytes()), "Error[8] unknown dump file at [caller()]");
}

TEST(GroupFile, VersionsOutOfRangeAreNamed) {
    const TempFolder folder;
    for (const std::string version : {"vek00002", "vek99999", "vek-0001", "vek   +2", "vek2...."}) {
        GroupFile file = two_rows();
        file.version = version;
        // The zero byte behind the number is part of the message, where C text ends.
        EXPECT_EQ(read(folder, file.bytes()), "Error[4] Bad vekfind config version " + version);
    }
    try {
        vek::check_version(std::string("vek00007\0", 9), 3);
        ADD_FAILURE();
    } catch (const vek::Error& error) {
        EXPECT_STREQ(error.what() + sizeof("Error[4] Bad vekfind config version vek00007"),
                     "valid version: vek00000 - vek00003 at "
                     "[bool vek::check_version(const VersionMagic&, int)]");
    }
    EXPECT_FALSE(vek::check_version("VEK00007", 1));
    EXPECT_EQ(vek::make_version_magic(vek::current_file_version()), "vek00001");
    EXPECT_EQ(vek::make_version_magic(120345), "vek20345");
}

}  // namespace
