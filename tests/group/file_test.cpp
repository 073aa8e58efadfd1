// Dumps and loads through the C interface.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"

namespace {

size_t nr_open_files() {
    using Files = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Files("/proc/self/fd"), Files()));
}

// The group of a file, or null with the status of the refusal. No file stays open.
struct Loaded {
    VEKContext group = reinterpret_cast<VEKContext>(32);
    VEKStatus status;

    Loaded(const std::string& path, const VEKFeatureGroupSettings& settings) {
        const size_t nr_open = nr_open_files();
        status = VEK_make_feature_group_context_from_file(path.c_str(), &settings, &group);
        EXPECT_EQ(group != nullptr, status == VEK_OK);
        EXPECT_EQ(nr_open_files(), nr_open);
    }
    ~Loaded() { VEK_release(group); }
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;
};

VEKStatus load_status(const std::string& path, const VEKFeatureGroupSettings& settings) {
    return Loaded(path, settings).status;
}

std::string dumped(VEKContext group, const TempFolder& folder) {
    const size_t nr_open = nr_open_files();
    EXPECT_EQ(VEK_dump_feature_group_to_file(group, (folder / "dump").c_str()), VEK_OK);
    EXPECT_EQ(nr_open_files(), nr_open);
    return bytes_of_file(folder / "dump");
}

VEKFeatureGroupSettings settings_of(uint32_t feature_size, uint32_t tag_size) {
    VEKFeatureGroupSettings settings = Group::settings(1, tag_size);
    settings.feature_size = feature_size;
    return settings;
}

// `rows` rows with content that differs, ids that do not ascend.
GroupFile numbered_rows(uint32_t feature_size, uint32_t tag_size, size_t rows) {
    GroupFile file;
    file.feature_size = feature_size;
    file.tag_size = tag_size;
    file.count = rows;
    for (size_t i = 0; i < rows; ++i) {
        file.ids.push_back(i ^ 0x5555555500000001u);
        std::string row = bytes_of(small_integers(1, feature_size / 4, static_cast<unsigned>(i)));
        row.resize(feature_size, '\0');
        file.features += row;
    }
    for (size_t i = 0; i < rows * tag_size; ++i)
        file.tags += static_cast<char>(i % 251);
    return file;
}

void insert_all(const Group& group, const GroupFile& file, size_t real_bytes) {
    std::string rows;
    const size_t count = file.ids.size(),
                 row_bytes = file.features.size() / std::max(count, size_t{1});
    for (size_t i = 0; i < count; ++i)
        rows += file.features.substr(i * row_bytes, real_bytes);
    rows.resize(file.features.size() + 1);
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const uint8_t*>(text.data());
    };
    std::vector<uint64_t> ids = file.ids;
    ids.reserve(1);
    ASSERT_EQ(VEK_insert_features_to_feature_group(group.context(), bytes(rows), ids.data(),
                                                   bytes(file.tags), count, nullptr),
              VEK_OK);
}

// The last row moves into the place of this one.
void erase_slot(GroupFile& file, size_t slot) {
    const size_t last = file.ids.size() - 1;
    const auto erase = [&](std::string& rows) {
        const size_t row_bytes = rows.size() / (last + 1);
        rows.replace(slot * row_bytes, row_bytes, rows, last * row_bytes, row_bytes);
        rows.resize(last * row_bytes);
    };
    erase(file.features);
    erase(file.tags);
    file.ids[slot] = file.ids[last];
    file.ids.pop_back();
    file.count = last;
}

TEST(GroupFiles, DumpIsTheStatedBytesAndLoadsBack) {
    const struct {
        uint32_t feature_size, tag_size;
        size_t rows, block_size;
    } cases[] = {
        {4, 0, 0, 4},      {4, 0, 0, 8192},       {24, 0, 1, 4},     {24, 1, 1, 8192},
        {24, 7, 13, 4},    {24, 7, 13, 8192},     {6, 0, 9, 4},      {6, 1, 9, 8192},
        {8, 0, 100000, 4}, {12, 7, 100000, 8192}, {6, 1, 100000, 4},
    };
    const TempFolder folder;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.feature_size << ' ' << c.tag_size << ' ' << c.rows
                                        << ' ' << c.block_size);
        const BlockSize block_size(c.block_size);
        const VEKFeatureGroupSettings settings = settings_of(c.feature_size, c.tag_size);
        GroupFile file = numbered_rows(c.feature_size, c.tag_size, c.rows);
        const Group group(settings);
        insert_all(group, file, c.feature_size / 4 * 4);
        EXPECT_EQ(dumped(group.context(), folder) == file.bytes(), true);
        for (size_t slot = 0, step = 1 + file.ids.size() / 3;
             file.ids.size() > 1 && slot < file.ids.size(); slot += step) {
            EXPECT_EQ(group.erase({file.ids[slot]}), VEK_OK);
            erase_slot(file, slot);
        }
        EXPECT_EQ(dumped(group.context(), folder) == file.bytes(), true);
        const Loaded loaded(folder / "dump", settings);
        ASSERT_EQ(loaded.status, VEK_OK);
        EXPECT_EQ(dumped(loaded.group, folder) == file.bytes(), true);
    }
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
    const std::string large = numbered_rows(8, 3, 20000).bytes();
    for (size_t size = 1; size < large.size(); size += 4099)
        ASSERT_EQ(load_status(folder.file("f", large.substr(0, size)), settings), VEK_BROKEN_FILE);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// With little address space left, an attempt to take memory for what a file promises would be
// VEK_UNKNOWN_ERROR. (Sanitizers reserve more than any limit.)
TEST(GroupFiles, PromisesTakeNoMemory) {
    const TempFolder folder;
    GroupFile ids = numbered_rows(8, 1, 2);
    ids.count = 536870911;
    GroupFile features = numbered_rows(8192, 1, 2);
    features.ids.resize(100000);
    features.count = 100000;
    GroupFile tags = numbered_rows(4, 8192, 2);
    tags.ids.resize(100000);
    tags.features.resize(400000);
    tags.count = 100000;
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    for (const GroupFile* file : {&ids, &features, &tags}) {
        const std::string path = folder.file("f", file->bytes());
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t limit = pages * static_cast<size_t>(getpagesize()) + (100u << 20);
        const rlimit tight{limit, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
        const VEKStatus status =
            load_status(path, settings_of(static_cast<uint32_t>(file->feature_size),
                                          static_cast<uint32_t>(file->tag_size)));
        setrlimit(RLIMIT_AS, &before);
        EXPECT_EQ(status, VEK_BROKEN_FILE);
    }
}
#endif

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
    const Group group(settings_of(256, 1));
    insert_all(group, file, 256);
    const std::string path = folder.file("f", file.bytes() + "and more");
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

TEST(GroupFiles, ModelDumpLeavesAFileAlone) {
    const TempFolder folder;
    const std::string path = folder.file("f", "untouched");
    const Group group(1);
    EXPECT_EQ(VEK_dump_feature_group_model_to_file(group.context(), path.c_str()), VEK_UNSUPPORTED);
    EXPECT_EQ(bytes_of_file(path), "untouched");
}

}  // namespace
