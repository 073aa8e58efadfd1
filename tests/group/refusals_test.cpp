// What the factories and each kind of group refuse, with the texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "group/feature_group.h"
#include "tests/error_text.h"
#include "tests/store/file_test_util.h"

namespace {

using vek::FeatureGroup;
using Settings = VEKFeatureGroupSettings;

const std::string CLASSES[] = {"FeatureGroupCpuFloat32Impl", "FeatureGroupCpuInt8Impl"};

Settings settings_of(int32_t index_type, int32_t device = VEK_DEVICE_CPU) {
    Settings settings{};
    settings.feature_size = 4;
    settings.index_type = index_type;
    settings.device = device;
    return settings;
}

// A way to make a group, and what its factory and the constructor behind that are called.
struct Way {
    std::function<void(const Settings&)> make;
    const char* factory;
    const char* arguments;  // of the constructor
};

const Way WAYS[] = {
    {[](const Settings& s) { FeatureGroup::make_empty(&s); }, "empty",
     "const VEKFeatureGroupSettings*"},
    {[](const Settings& s) { FeatureGroup::make_from_file("/no", &s, false); }, "from_file",
     "const char*, const VEKFeatureGroupSettings*, bool"},
    {[](const Settings& s) { FeatureGroup::make_from_file("/no", &s, true); }, "from_file",
     "const char*, const VEKFeatureGroupSettings*, bool"},
    {[](const Settings& s) { FeatureGroup::make_from_trained(&s, nullptr); }, "from_trained",
     "const VEKFeatureGroupSettings*, const FeatureGroup*"},
    {[](const Settings& s) { FeatureGroup::make_from_researcher_file("/no", &s); },
     "from_researcher_file", "const char*, const VEKFeatureGroupSettings*"},
};

// The index type decides before the device, the model before the device of a kind, and that before
// the file. A refusal is the factory's or, after a "!", the constructor's.
TEST(Refusals, OfFactories) {
    const std::string clustered = "12] ivfpq is not supported on this platform",
                      device = "12] not supported on 35xx", unknown = "12] unknown error",
                      researcher = "10] invalid index type",
                      bad_device = "8] unknown device for bf cpu!",
                      no_model = "12] no model for brute-force!",
                      trained = "12] not supported in brute-force!",
                      no_file = "12] not implemented!";
    const struct {
        int32_t index_type, device;
        std::string refusals[5];
    } cases[] = {
        {2, 0, {clustered, clustered, clustered, clustered, clustered}},
        {2, 1, {clustered, clustered, clustered, clustered, clustered}},
        {1, 0, {device, device, device, device, device}},
        {0, 1, {device, device, device, device, researcher}},
        {3, 1, {device, device, device, device, researcher}},
        {9, 1, {unknown, unknown, unknown, unknown, researcher}},
        {-1, 0, {unknown, unknown, unknown, unknown, researcher}},
        {0, 2, {bad_device, bad_device, no_model, trained, researcher}},
        {3, 2, {bad_device, no_file, no_file, trained, researcher}},
    };
    for (const auto& c : cases) {
        for (size_t i = 0; i < 5; ++i) {
            std::string refusal = c.refusals[i];
            const Way& way = WAYS[i];
            std::string function =
                "static std::unique_ptr<vek::FeatureGroup> vek::FeatureGroup::make_" +
                std::string(way.factory) + "(" + way.arguments + ")";
            if (refusal.back() == '!') {
                refusal.pop_back();
                const std::string& name = CLASSES[c.index_type == 3];
                function = "vek::" + name + "::" + name + "(" + way.arguments + ")";
            }
            EXPECT_EQ(error_of([&] { way.make(settings_of(c.index_type, c.device)); }),
                      "Error[" + refusal + " at [" + function + "]");
        }
    }
    EXPECT_EQ(error_of([] { WAYS[1].make(settings_of(0)); }).substr(0, 24),
              "Error[9] Cannot open /no");
    for (const auto& [index_type, row_bytes] : {std::pair{0, 0u}, {0, 3u}, {3, 0u}}) {
        Settings empty_rows = settings_of(index_type);
        empty_rows.feature_size = row_bytes;
        EXPECT_EQ(error_of([&] { WAYS[0].make(empty_rows); }).substr(0, 24),
                  "Error[1] feature dim = 0");
    }
}

struct Refusal {
    std::string message;
    std::string signature;  // its beginning
    std::function<void(FeatureGroup&)> call;
    std::string result = "void";
};

TEST(Refusals, OfOperations) {
    const auto n = nullptr;
    const TempFolder folder;
    const std::string path = folder / "f";
    const auto dump = [&](bool model) {
        return [&, model](FeatureGroup& g) { g.dump(path.c_str(), model); };
    };
    const std::string clustered = "12] not supported in brute-force";
    const std::vector<Refusal> of_both = {
        {clustered, "search_preassigned(const uint8_t*, size_t, float, VEKTagPredicate, ",
         [=](FeatureGroup& g) { g.search_preassigned(n, 1, 0, n, n, n, n, n, n); }},
        {clustered, "get_cluster_ids(", [=](FeatureGroup& g) { g.get_cluster_ids(n, 1, n, n); }},
        {clustered, "insert_preassigned(",
         [=](FeatureGroup& g) { g.insert_preassigned(n, n, n, n, 1, n); }},
        {clustered, "train(const uint8_t*, size_t, const VEKFeatureGroupTrainOptions*)]",
         [=](FeatureGroup& g) { g.train(n, 1, n); }},
        {clustered, "get_info_size()]", [](FeatureGroup& g) { g.get_info_size(); }, "size_t"},
        {clustered, "precompute_feature_info(",
         [=](FeatureGroup& g) { g.precompute_feature_info(n, n, 1, n); }},
        {clustered, "insert_feature_by_info(",
         [=](FeatureGroup& g) { g.insert_feature_by_info(n, n, n, 1, n); }},
        {"12] erased api", "dump_features(const char*, const uint8_t*, const uint64_t*, ",
         [=](FeatureGroup& g) { g.dump_features(n, n, n, n, 1, n); }},
    };
    const std::string average =
        "get_average_feature(const uint8_t*, size_t, const VEKFeatureGroupAverageOptions*, "
        "uint8_t*)]";
    const std::string not_implemented = "12] not implemented";
    const std::string of_plain = "10] get_average_feature accepts encrypted features only";
    const VEKFeatureGroupAverageOptions plain{0};
    const auto average_of_plain = [=, &plain](FeatureGroup& g) {
        g.get_average_feature(n, 1, &plain, n);
    };
    const std::vector<Refusal> of_one[] = {
        {{"12] no model for brute-force", "dump(const char*, bool)]", dump(true)},
         {of_plain, average, average_of_plain},
         {of_plain, average, [=](FeatureGroup& g) { g.get_average_feature(n, 1, n, n); }}},
        {{not_implemented, "dump(const char*, bool)]", dump(false)},
         {not_implemented, "dump(const char*, bool)]", dump(true)},
         {not_implemented, "set_comparison_algorithm(const VEKComparisonAlgorithm*)]",
          [=](FeatureGroup& g) { g.set_comparison_algorithm(n); }},
         {not_implemented, "reset()]", [](FeatureGroup& g) { g.reset(); }},
         {not_implemented, average, average_of_plain}}};
    for (size_t kind : {0u, 1u}) {
        const Settings settings = settings_of(kind == 0 ? 0 : 3);
        const auto group = FeatureGroup::make_empty(&settings);
        std::vector<Refusal> refusals = of_one[kind];
        refusals.insert(refusals.end(), of_both.begin(), of_both.end());
        for (const Refusal& r : refusals) {
            const std::string expected = "Error[" + r.message + " at [virtual " + r.result +
                                         " vek::" + CLASSES[kind] + "::" + r.signature;
            EXPECT_EQ(error_of([&] { r.call(*group); }).substr(0, expected.size()), expected);
        }
        group->set_vector_increase_ratio(-1.0f);  // means nothing here
        float factor = 0;
        group->get_imbalance_factor(&factor);
        EXPECT_EQ(factor, 1.0f);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
