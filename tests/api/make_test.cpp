// The make functions through the C interface: which factory each calls, and what is left in `*out`.
#include <gtest/gtest.h>

#include <cstring>

#include "vekfind/vekfind.h"

namespace {

using Settings = VEKFeatureGroupSettings;

// What `*out` held before.
const VEKContext OLD = reinterpret_cast<VEKContext>(32);

Settings float_settings() {
    Settings settings{};
    settings.feature_size = 16;
    return settings;
}

TEST(MakeContext, CallsTheFactoryOfItsName) {
    const Settings s = float_settings();
    VEKContext group = OLD;
    ASSERT_EQ(VEK_make_feature_group_context(&s, &group), VEK_OK);
    EXPECT_EQ(VEK_make_feature_group_context(nullptr, &group), VEK_NULL_POINTER);
    EXPECT_EQ(VEK_make_feature_group_context(&s, nullptr), VEK_NULL_POINTER);
    const auto expect = [&s](auto* make, auto source, VEKStatus status) {
        VEKContext out = OLD;
        EXPECT_EQ(make(nullptr, &s, &out), VEK_NULL_POINTER);
        EXPECT_EQ(make(source, nullptr, &out), VEK_NULL_POINTER);
        EXPECT_EQ(out, OLD);
        EXPECT_EQ(make(source, &s, nullptr), VEK_NULL_POINTER);
        EXPECT_EQ(make(source, &s, &out), status);
        EXPECT_EQ(out, nullptr);
    };
    const char* path = "/nonexistent/vekfind";
    expect(VEK_make_feature_group_context_from_file, path, VEK_FILE_NOT_FOUND);
    expect(VEK_make_feature_group_context_from_model_file, path, VEK_UNSUPPORTED);
    expect(VEK_make_feature_group_context_from_researcher_model_file, path, VEK_INVALID_ARGUMENT);
    expect(VEK_make_feature_group_context_from_trained_context, group, VEK_UNSUPPORTED);
    VEK_release(group);
}

TEST(MakeContext, KeepsTheWholeSettingsRecord) {
    Settings given = float_settings(), kept;
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
