// What each kind of group refuses, with the texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "group/float32_group.h"
#include "group/int8_group.h"
#include "tests/error_text.h"
#include "tests/store/file_test_util.h"

namespace {

using Group = vek::FeatureGroup;
using Calls = std::vector<std::pair<std::string, std::function<void(Group&)>>>;

// Each call is named by the first part of its signature.
void expect_refusals(Group& group, const std::string& message, const Calls& calls) {
    for (const auto& [signature, call] : calls) {
        const std::string expected = "Error[12] " + message + " at [virtual " + signature;
        const std::string text = error_of([&, &refused = call] { refused(group); });
        EXPECT_EQ(text.substr(0, expected.size()), expected);
    }
}

void expect_clustered_refusals(Group& group, const std::string& kind) {
    const auto n = nullptr;
    const std::string scope = "void vek::" + kind + "::";
    expect_refusals(
        group, "not supported in brute-force",
        {{scope + "search_preassigned(const uint8_t*, size_t, float, VEKTagPredicate, ",
          [=](Group& g) { g.search_preassigned(n, 1, 0, n, n, n, n, n, n); }},
         {scope + "get_cluster_ids(", [=](Group& g) { g.get_cluster_ids(n, 1, n, n); }},
         {scope + "insert_preassigned(", [=](Group& g) { g.insert_preassigned(n, n, n, n, 1, n); }},
         {scope + "train(const uint8_t*, size_t, const VEKFeatureGroupTrainOptions*)]",
          [=](Group& g) { g.train(n, 1, n); }},
         {"size_t vek::" + kind + "::get_info_size()]", [](Group& g) { g.get_info_size(); }},
         {scope + "precompute_feature_info(",
          [=](Group& g) { g.precompute_feature_info(n, n, 1, n); }},
         {scope + "insert_feature_by_info(",
          [=](Group& g) { g.insert_feature_by_info(n, n, n, 1, n); }}});
    expect_refusals(group, "erased api",
                    {{scope + "dump_features(const char*, const uint8_t*, const uint64_t*, ",
                      [=](Group& g) { g.dump_features(n, n, n, n, 1, n); }}});
}

TEST(Refusals, Float32) {
    using Kind = vek::FeatureGroupCpuFloat32Impl;
    const std::string scope = "vek::FeatureGroupCpuFloat32Impl::";
    VEKFeatureGroupSettings settings{};
    settings.feature_size = 4;
    Kind group(&settings);
    expect_clustered_refusals(group, "FeatureGroupCpuFloat32Impl");
    expect_refusals(
        group, "no model for brute-force",
        {{"void " + scope + "dump(const char*, bool)]", [](Group& g) { g.dump("/", true); }}});
    EXPECT_EQ(error_of([&] { group.get_average_feature(nullptr, 1, nullptr, nullptr); }),
              "Error[10] get_average_feature accepts encrypted features only at [virtual void " +
                  scope +
                  "get_average_feature(const uint8_t*, size_t, "
                  "const VEKFeatureGroupAverageOptions*, uint8_t*)]");
    const auto load = [&](bool model) { return error_of([&] { Kind("/no", &settings, model); }); };
    EXPECT_EQ(load(false).substr(0, 24), "Error[9] Cannot open /no");
    // The device is looked at before the file, and the model before the device.
    settings.device = 2;
    const std::string constructor = " at [" + scope + "FeatureGroupCpuFloat32Impl";
    const std::string from_file =
        constructor + "(const char*, const VEKFeatureGroupSettings*, bool)]";
    EXPECT_EQ(load(false), "Error[8] unknown device for bf cpu" + from_file);
    EXPECT_EQ(load(true), "Error[12] no model for brute-force" + from_file);
    EXPECT_EQ(error_of([&] { Kind(&settings, &group); }),
              "Error[12] not supported in brute-force" + constructor +
                  "(const VEKFeatureGroupSettings*, const FeatureGroup*)]");
}

TEST(Refusals, Int8) {
    using Kind = vek::FeatureGroupCpuInt8Impl;
    const std::string scope = "vek::FeatureGroupCpuInt8Impl::";
    const TempFolder folder;
    const std::string path = folder / "f";
    VEKFeatureGroupSettings settings{};
    settings.feature_size = 3;
    Kind group(&settings);
    expect_clustered_refusals(group, "FeatureGroupCpuInt8Impl");
    const auto n = nullptr;
    expect_refusals(group, "not implemented",
                    {{"void " + scope + "dump(const char*, bool)]",
                      [&](Group& g) { g.dump(path.c_str(), false); }},
                     {"void " + scope + "dump(", [&](Group& g) { g.dump(path.c_str(), true); }},
                     {"void " + scope + "set_comparison_algorithm(const VEKComparisonAlgorithm*)]",
                      [=](Group& g) { g.set_comparison_algorithm(n); }},
                     {"void " + scope + "reset()]", [](Group& g) { g.reset(); }},
                     {"void " + scope + "get_average_feature(const uint8_t*, size_t, ",
                      [=](Group& g) { g.get_average_feature(n, 1, n, n); }}});
    EXPECT_FALSE(std::filesystem::exists(path));
    const std::string constructor = " at [" + scope + "FeatureGroupCpuInt8Impl";
    for (bool model : {false, true})
        EXPECT_EQ(error_of([&] { Kind("/no/file", &settings, model); }),
                  "Error[12] not implemented" + constructor +
                      "(const char*, const VEKFeatureGroupSettings*, bool)]");
    EXPECT_EQ(error_of([&] { Kind(&settings, &group); }),
              "Error[12] not supported in brute-force" + constructor +
                  "(const VEKFeatureGroupSettings*, const FeatureGroup*)]");
    settings.device = 2;
    EXPECT_EQ(
        error_of([&] { Kind{&settings}; }),
        "Error[8] unknown device for bf cpu" + constructor + "(const VEKFeatureGroupSettings*)]");
}

}  // namespace
