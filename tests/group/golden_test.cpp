// Small group files that are kept for good: what loads today has to load tomorrow and on every
// target. golden/make.py made them.
#include <gtest/gtest.h>

#include <set>

#include "tests/store/file_test_util.h"
#include "vekfind/vekfind.h"

namespace {

struct Golden {
    const char* name;
    uint32_t feature_size, tag_size;
    VEKStatus status;
    const char* dump = nullptr;  // the file that a dump of the group equals
};

constexpr Golden FILES[] = {
    {"good-rows", 8, 1, VEK_OK, "good-rows"},
    {"good-version0", 8, 1, VEK_OK, "good-rows"},
    {"good-versionless", 8, 1, VEK_OK, "good-rows"},
    {"good-high-words", 8, 1, VEK_OK, "good-rows"},
    {"good-trailing", 8, 1, VEK_OK, "good-rows"},
    {"good-empty", 8, 0, VEK_OK, "good-empty"},
    {"good-odd-size", 6, 7, VEK_OK, "good-odd-size"},
    {"good-rows", 12, 1, VEK_INVALID_SETTINGS},
    {"good-rows", 8, 0, VEK_INVALID_SETTINGS},
    {"bad-short", 8, 1, VEK_BROKEN_FILE},
    {"bad-cut-header", 8, 1, VEK_BROKEN_FILE},
    {"bad-cut-ids", 8, 1, VEK_BROKEN_FILE},
    {"bad-cut-features", 8, 1, VEK_BROKEN_FILE},
    {"bad-cut-tags", 8, 1, VEK_BROKEN_FILE},
    {"bad-version2", 8, 1, VEK_UNEXPECTED_CONFIG},
    {"bad-version-negative", 8, 1, VEK_UNEXPECTED_CONFIG},
    {"bad-reserved", 8, 1, VEK_INVALID_SETTINGS},
    {"bad-count", 8, 1, VEK_BROKEN_FILE},
    {"bad-count-beyond", 8, 1, VEK_UNKNOWN_ERROR},
    {"bad-repeated-id", 8, 1, VEK_DUPLICATED_ID},
    {"bad-reserved-id", 8, 1, VEK_INVALID_ID},
    {"bad-empty-with-tags", 8, 1, VEK_INVALID_ARGUMENT},
};

std::string path_of(const std::string& name) {
    return VEKFIND_TEST_DIR "/golden/" + name + ".vek";
}

TEST(GoldenFiles, LoadOrAreRefusedAsEver) {
    const TempFolder folder;
    std::set<std::string> names;
    for (const Golden& golden : FILES) {
        SCOPED_TRACE(golden.name);
        names.insert(path_of(golden.name));
        VEKFeatureGroupSettings settings{};
        settings.feature_size = golden.feature_size;
        settings.tag_size = golden.tag_size;
        VEKContext group;
        EXPECT_EQ(VEK_make_feature_group_context_from_file(path_of(golden.name).c_str(), &settings,
                                                           &group),
                  golden.status);
        ASSERT_EQ(group != nullptr, golden.status == VEK_OK);
        if (!group)
            continue;
        EXPECT_EQ(VEK_dump_feature_group_to_file(group, (folder / "f").c_str()), VEK_OK);
        EXPECT_EQ(bytes_of_file(folder / "f"), bytes_of_file(path_of(golden.dump)));
        VEK_release(group);
    }
    for (const auto& entry : std::filesystem::directory_iterator(VEKFIND_TEST_DIR "/golden")) {
        const bool is_group_file = entry.path().extension() == ".vek";
        EXPECT_EQ(is_group_file, names.count(entry.path()) != 0) << entry.path();
    }
}

}  // namespace
