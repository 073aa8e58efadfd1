// Dumps and loads through the C interface.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"

namespace {

size_t nr_open_files() {
    using Files = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Files("/proc/self/fd"), Files()));
}

std::string dumped(VEKContext group, const TempFolder& folder) {
    const size_t nr_open = nr_open_files();
    EXPECT_EQ(VEK_dump_feature_group_to_file(group, (folder / "dump").c_str()), VEK_OK);
    EXPECT_EQ(nr_open_files(), nr_open);
    return bytes_of_file(folder / "dump");
}

VEKFeatureGroupSettings settings_of(uint64_t feature_size, uint64_t tag_size) {
    VEKFeatureGroupSettings settings = Group::settings(1, static_cast<uint32_t>(tag_size));
    settings.feature_size = static_cast<uint32_t>(feature_size);
    return settings;
}

// The status of a load, which leaves no file open, and, where asked for, what the group dumps.
VEKStatus load_status(const std::string& path, const VEKFeatureGroupSettings& settings,
                      std::string* dump = nullptr) {
    const size_t nr_open = nr_open_files();
    VEKContext group = reinterpret_cast<VEKContext>(32);
    const VEKStatus status =
        VEK_make_feature_group_context_from_file(path.c_str(), &settings, &group);
    EXPECT_EQ(group != nullptr, status == VEK_OK);
    EXPECT_EQ(nr_open_files(), nr_open);
    if (group && dump)
        *dump = dumped(group, TempFolder());
    VEK_release(group);
    return status;
}

// Small files that are kept for good, made by golden/make.py: what loads today has to load tomorrow
// and on every target.
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

TEST(GroupFiles, GoldenOnesLoadOrAreRefusedAsEver) {
    const std::string folder = VEKFIND_TEST_DIR "/golden/";
    std::set<std::string> names;
    for (const Golden& golden : FILES) {
        SCOPED_TRACE(golden.name);
        const std::string path = folder + golden.name + ".vek";
        names.insert(path);
        std::string dump;
        EXPECT_EQ(load_status(path, settings_of(golden.feature_size, golden.tag_size), &dump),
                  golden.status);
        EXPECT_EQ(dump, golden.dump ? bytes_of_file(folder + golden.dump + ".vek") : "");
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const bool is_group_file = entry.path().extension() == ".vek";
        EXPECT_EQ(is_group_file, names.count(entry.path()) != 0) << entry.path();
    }
}

// `rows` rows with content that differs.
GroupFile numbered_rows(uint32_t feature_size, uint32_t tag_size, size_t rows) {
    GroupFile file;
    file.feature_size = feature_size;
    file.tag_size = tag_size;
    file.ids = running_ids(rows);
    file.features = bytes_of(small_integers(rows, feature_size / 4));
    for (size_t i = 0; i < rows * tag_size; ++i)
        file.tags += static_cast<char>(i % 251);
    return file;
}

TEST(GroupFiles, TruncatedAnywhereIsBroken) {
    const TempFolder folder;
    const VEKFeatureGroupSettings settings = settings_of(8, 3);
    GroupFile file = numbered_rows(8, 3, 3);
    for (const char* version : {"vek00001", ""}) {
        file.version = version;
        const std::string bytes = file.bytes();
        for (size_t size = 0; size < bytes.size(); ++size)
            ASSERT_EQ(load_status(folder.file("f", bytes.substr(0, size)), settings),
                      VEK_BROKEN_FILE)
                << size;
        EXPECT_EQ(load_status(folder.file("f", bytes), settings), VEK_OK);
    }
}

// An attempt to take memory for what a file promises would be VEK_UNKNOWN_ERROR.
TEST(GroupFiles, PromisesTakeNoMemory) {
    const TempFolder folder;
    GroupFile ids = numbered_rows(8, 1, 2);
    ids.count = 536870911;
    GroupFile features = numbered_rows(8192, 1, 2);
    features.ids.resize(100000);
    GroupFile tags = numbered_rows(4, 8192, 2);
    tags.ids.resize(100000);
    tags.features.resize(400000);
    for (const GroupFile* file : {&ids, &features, &tags}) {
        const std::string path = folder.file("f", file->bytes());
        const allocation_watch::Watch watch(size_t{1} << 22, 0);
        EXPECT_EQ(load_status(path, settings_of(file->feature_size, file->tag_size)),
                  VEK_BROKEN_FILE);
        EXPECT_EQ(watch.seen(), 0u);
    }
}

TEST(GroupFiles, PathsThatDoNotServe) {
    const TempFolder folder;
    const VEKFeatureGroupSettings settings = settings_of(4, 0);
    const Group group(settings);
    EXPECT_EQ(load_status(folder / "missing", settings), VEK_FILE_NOT_FOUND);
    EXPECT_EQ(load_status(folder / "", settings), VEK_BROKEN_FILE);
    EXPECT_EQ(VEK_dump_feature_group_to_file(group.context(), (folder / "no/file").c_str()),
              VEK_INTERNAL_ERROR);
    EXPECT_EQ(VEK_dump_feature_group_to_file(group.context(), (folder / "").c_str()),
              VEK_INTERNAL_ERROR);
    // A file that its reader may neither read nor write. The superuser is nobody for a while.
    const std::string path = folder.file("f", dumped(group.context(), folder));
    using std::filesystem::perms;
    std::filesystem::permissions(folder / "", perms::owner_all | perms::others_exec);
    std::filesystem::permissions(path, perms::none);
    const uid_t user = geteuid();
    constexpr uid_t NOBODY = 65534;
    ASSERT_EQ(seteuid(user == 0 ? NOBODY : user), 0);
    const VEKStatus load = load_status(path, settings);
    const VEKStatus dump = VEK_dump_feature_group_to_file(group.context(), path.c_str());
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(load, VEK_FILE_NOT_FOUND);
    EXPECT_EQ(dump, VEK_INTERNAL_ERROR);
}

TEST(GroupFiles, DiskThatFillsUpDoesTheGroupNoHarm) {
    const TempFolder folder;
    const BlockSize block_size(64);
    const GroupFile file = numbered_rows(256, 1, 1000);
    const std::string path = folder.file("f", file.bytes() + "and more");
    const Group group(path, settings_of(256, 1));
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
    // In the ids, within a block, and in the last one.
    for (rlim_t limit : {5000u, 30000u, 200000u, 255000u}) {
        const rlimit full{limit, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
        const VEKStatus status = VEK_dump_feature_group_to_file(group.context(), path.c_str());
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ(status, VEK_INTERNAL_ERROR);
        EXPECT_LE(std::filesystem::file_size(path), limit);
        EXPECT_EQ(load_status(path, settings_of(256, 1)), VEK_BROKEN_FILE);
    }
    std::signal(SIGXFSZ, old_handler);
    EXPECT_EQ(group.size(), 1000u);
    EXPECT_EQ(dumped(group.context(), folder) == file.bytes(), true);
}

}  // namespace
