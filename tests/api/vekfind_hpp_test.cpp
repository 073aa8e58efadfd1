// The C++ class: what it adds to the C interface, and that the rest arrives there.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "vekfind/vekfind.hpp"

using vekfind::Group;
using Ids = std::vector<uint64_t>;
using Floats = std::vector<float>;

const vekfind::Settings PLAIN{2, 1, -4}, TAGGED{2, 1, -4, 1}, INT8{2, 1, -4, 0, true};
const Ids IDS = {7, 8, 9};
const Floats ROWS = {0, 0, 3, 4, 3, 1}, QUERIES = {3, 3, 0, 1};
const std::vector<uint8_t> TAGS = {1, 2, 1};
const std::vector<int8_t> SMALL = {0, 0, 3, 4, 3, 1};

TEST(Cpp, RefusesAndLeavesTheGroupAsItWas) {
    Group plain(PLAIN), tagged(TAGGED), int8(INT8);
    plain.insert(IDS, ROWS);
    tagged.insert(IDS, ROWS, TAGS);
    int8.insert(IDS, SMALL);
    Ids few(1), ids(2);
    Floats fewer(1), scores(2), bad = {1, 2, 3, NAN};
    const vekfind::Settings no_scale{2, 0, -4}, too_long{1u << 30, 1, 0};
    const vekfind::Features nothing(static_cast<float*>(nullptr), 2);
    const auto own = [&](size_t, auto) { return tagged.size() > 0; };
    const std::pair<VEKStatus, std::function<void()>> table[] = {
        {VEK_INVALID_SETTINGS, [&] { Group group(no_scale); }},
        {VEK_INVALID_SETTINGS, [&] { Group group(too_long); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.insert(Ids(1), QUERIES); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.insert(Ids(1), Floats(3)); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.insert(Ids(3), SMALL); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.insert(Ids(2), bad); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.insert(Ids(1), Floats(2, 2e19f)); }},
        {VEK_INVALID_ARGUMENT, [&] { tagged.insert(Ids(1), Floats(2), TAGS); }},
        {VEK_NULL_POINTER, [&] { plain.insert(Ids(1), nothing); }},
        {VEK_ID_NOT_FOUND, [&] { plain.erase(Ids(1)); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.search(QUERIES, SIZE_MAX / 2 + 2); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.search(QUERIES, 1, {NAN}); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.search(QUERIES, 1, {}, own); }},
        {VEK_INVALID_ARGUMENT, [&] { tagged.search(QUERIES, 1, {}, own); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.search_into(QUERIES, 1, few, scores); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.search_into(QUERIES, 1, ids, fewer); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.average(Floats()); }},
        {VEK_INTERNAL_ERROR, [&] { plain.dump("/nonexistent/file"); }},
        {VEK_INVALID_ARGUMENT, [&] { plain.dump(testing::TempDir()); }},
        {VEK_UNSUPPORTED, [&] { int8.average(SMALL); }},
    };
    for (const auto& [status, call] : table)
        try {
            call();
            ADD_FAILURE() << status << " did not come";
        } catch (const vekfind::Error& error) {
            EXPECT_EQ(error.status(), status) << error.what();
        }
    EXPECT_EQ(plain.size(), 3u);
    EXPECT_EQ(int8.search(SMALL, 1).ids, IDS);
    Group({2, 1, -4, 0, false, true}).insert(Ids{1, 2}, bad);
}

TEST(Cpp, WarnsOnceOfFeaturesFarFromTheOrigin) {
    const auto said = [](float distance, const vekfind::Settings& settings) {
        Group group(settings);
        testing::internal::CaptureStderr();
        for (uint64_t first : {0u, 1000u}) {
            Ids ids;
            Floats rows;
            for (uint64_t row = 0; row < 1000; ++row) {
                ids.push_back(first + row);
                rows.push_back(distance + static_cast<float>(row % 3));
                rows.push_back(static_cast<float>(row % 5));
            }
            group.insert(ids, rows);
        }
        return testing::internal::GetCapturedStderr();
    };
    const std::string far = said(60, PLAIN);
    EXPECT_NE(far.find("`vekfind convert --center`"), std::string::npos);
    EXPECT_EQ(std::count(far.begin(), far.end(), '\n'), 1) << far;
    EXPECT_EQ(said(40, PLAIN), "");
    EXPECT_EQ(said(60, {2, 1, -4, 0, false, true}), "");
}

TEST(Cpp, FindsWhatTheCInterfaceFinds) {
    const std::string path = testing::TempDir() + "vekfind_hpp_test.vek";
    Group first(TAGGED);
    first.insert(IDS, ROWS, TAGS);
    Group group = std::move(first);
    EXPECT_THROW(first.size(), vekfind::Error);  // NOLINT(bugprone-use-after-move)
    group.dump(path);
    group.clear();
    EXPECT_THROW(group.dump(path), vekfind::Error);
    EXPECT_NE(std::remove((path + ".part").c_str()), 0);
    group = Group(path, TAGGED);
    Ids ids(5, 1), c_ids(5, 1);
    Floats scores(5, 1), c_scores(5, 1);
    const auto pick = [](size_t query, auto tag) { return tag.data()[0] == (query ? 2 : 1); };
    EXPECT_EQ(group.search(QUERIES, 1, {}, pick).ids, (Ids{9, 8}));
    group.search_into(QUERIES, 2, ids, scores, {0.1f});
    EXPECT_EQ(ids, (Ids{8, 9, 7, VEK_INVALID_ID_VALUE, 1}));
    VEKFeatureGroupSettings settings{0, {}, 8, 1, {0, 1, -4}, 0, {}};
    VEKFeatureGroupSearchOptions sorted{1, 0};
    VEKFeatureGroupSearchResult result{0, 0, c_scores.data(), c_ids.data()};
    VEKContext c;
    ASSERT_EQ(VEK_make_feature_group_context_from_file(path.c_str(), &settings, &c), VEK_OK);
    VEK_search_feature_group(c, reinterpret_cast<const uint8_t*>(QUERIES.data()), 2, 2, 0.1f,
                             nullptr, nullptr, &sorted, &result);
    VEK_release(c);
    EXPECT_EQ(scores, c_scores);
    const auto fail = [](size_t query, auto) { return query == 0 ? true : throw 5; };
    EXPECT_THROW(group.search_into(QUERIES, 2, ids, scores, {}, fail), int);
    EXPECT_EQ(scores, c_scores);
}
