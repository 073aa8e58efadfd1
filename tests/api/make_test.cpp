// The make functions through the C interface: what they refuse and what is left in `*out`.
#include <gtest/gtest.h>

#include <cstring>

#include "vekfind/vekfind.h"

namespace {

VEKFeatureGroupSettings float_settings(int32_t index_type, int32_t device) {
    VEKFeatureGroupSettings settings{};
    settings.device = device;
    settings.feature_size = 16;
    settings.index_type = index_type;
    return settings;
}

// What `*out` held before; nothing may follow it.
const VEKContext OLD = reinterpret_cast<VEKContext>(32);
constexpr const char* PATH = "/nonexistent/vekfind";

TEST(MakeContext, RefusesByIndexTypeThenDevice) {
    const VEKFeatureGroupSettings trained_settings = float_settings(0, 0);
    VEKContext trained;
    ASSERT_EQ(VEK_make_feature_group_context(&trained_settings, &trained), VEK_OK);
    const struct {
        int32_t index_type, device;
        VEKStatus empty, file, model, trained, researcher;
    } cases[] = {
        {2, 0, 12, 12, 12, 12, 12}, {2, 1, 12, 12, 12, 12, 12},  {1, 0, 12, 12, 12, 12, 12},
        {0, 1, 12, 12, 12, 12, 10}, {3, 1, 12, 12, 12, 12, 10},  {3, 0, 0, 12, 12, 12, 10},
        {9, 1, 12, 12, 12, 12, 10}, {-1, 0, 12, 12, 12, 12, 10}, {0, 2, 8, 8, 12, 12, 10},
        {0, 0, 0, 9, 12, 12, 10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "index " << c.index_type << " device " << c.device);
        const VEKFeatureGroupSettings s = float_settings(c.index_type, c.device);
        VEKContext out = OLD;
        EXPECT_EQ(VEK_make_feature_group_context(&s, &out), c.empty);
        EXPECT_EQ(out == nullptr, c.empty != VEK_OK);
        VEK_release(out);
        out = OLD;
        EXPECT_EQ(VEK_make_feature_group_context_from_file(PATH, &s, &out), c.file);
        EXPECT_EQ(out, nullptr);
        out = OLD;
        EXPECT_EQ(VEK_make_feature_group_context_from_model_file(PATH, &s, &out), c.model);
        EXPECT_EQ(out, nullptr);
        out = OLD;
        EXPECT_EQ(VEK_make_feature_group_context_from_trained_context(trained, &s, &out),
                  c.trained);
        EXPECT_EQ(out, nullptr);
        out = OLD;
        EXPECT_EQ(VEK_make_feature_group_context_from_researcher_model_file(PATH, &s, &out),
                  c.researcher);
        EXPECT_EQ(out, nullptr);
    }
    VEK_release(trained);
}

TEST(MakeContext, NullPointersTouchNothing) {
    const VEKFeatureGroupSettings s = float_settings(0, 0);
    VEKContext out = OLD;
    EXPECT_EQ(VEK_make_feature_group_context(nullptr, &out), VEK_NULL_POINTER);
    EXPECT_EQ(VEK_make_feature_group_context(&s, nullptr), VEK_NULL_POINTER);
    using FromFile = VEKStatus (*)(const char*, const VEKFeatureGroupSettings*, VEKContext*);
    for (FromFile make : {FromFile{VEK_make_feature_group_context_from_file},
                          FromFile{VEK_make_feature_group_context_from_model_file},
                          FromFile{VEK_make_feature_group_context_from_researcher_model_file}}) {
        EXPECT_EQ(make(nullptr, &s, &out), VEK_NULL_POINTER);
        EXPECT_EQ(make(PATH, &s, nullptr), VEK_NULL_POINTER);
    }
    const auto from_trained = VEK_make_feature_group_context_from_trained_context;
    EXPECT_EQ(from_trained(nullptr, &s, &out), VEK_NULL_POINTER);
    EXPECT_EQ(from_trained(OLD, &s, nullptr), VEK_NULL_POINTER);
    EXPECT_EQ(out, OLD);
}

TEST(MakeContext, KeepsTheWholeSettingsRecord) {
    VEKFeatureGroupSettings given = float_settings(0, 0), kept;
    given.tag_size = 3;
    given.comparison = {5, 1.5f, -2.5f};
    given.reserved_a[1] = 0xabcdefu;
    given.reserved_b[7] = 0x12345678u;
    VEKContext group;
    ASSERT_EQ(VEK_make_feature_group_context(&given, &group), VEK_OK);
    EXPECT_EQ(VEK_get_feature_group_settings(group, &kept), VEK_OK);
    EXPECT_EQ(std::memcmp(&given, &kept, sizeof(given)), 0);
    VEK_release(group);
}

}  // namespace
