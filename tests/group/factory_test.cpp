// Texts of the factories' refusals.
#include <gtest/gtest.h>

#include <string>

#include "group/feature_group.h"
#include "store/error.h"

namespace {

using vek::FeatureGroup;

template <typename Make>
std::string refusal(const Make& make) {
    try {
        make();
    } catch (const vek::Error& error) {
        return error.what();
    }
    return "made a group";
}

TEST(FeatureGroupFactory, RefusalsNameTheReasonAndTheFactory) {
    const std::string prefix = "static std::unique_ptr<vek::FeatureGroup> vek::FeatureGroup::";
    const struct {
        int32_t index_type, device;
        const char* reason;
        bool researcher_too;
    } cases[] = {
        {2, 0, "ivfpq is not supported on this platform", true},
        {2, 1, "ivfpq is not supported on this platform", true},
        {1, 7, "not supported on 35xx", true},
        {0, 1, "not supported on 35xx", false},
        {3, 1, "not supported on 35xx", false},
        {9, 1, "unknown error", false},
        {-1, 0, "unknown error", false},
    };
    for (const auto& c : cases) {
        VEKFeatureGroupSettings s{};
        s.index_type = c.index_type;
        s.device = c.device;
        const auto expected = [&](const std::string& code, const std::string& reason,
                                  const std::string& function) {
            return "Error[" + code + "] " + reason + " at [" + prefix + function + "]";
        };
        EXPECT_EQ(refusal([&] { FeatureGroup::make_empty(&s); }),
                  expected("12", c.reason, "make_empty(const VEKFeatureGroupSettings*)"));
        EXPECT_EQ(refusal([&] { FeatureGroup::make_from_file("x", &s, false); }),
                  expected("12", c.reason,
                           "make_from_file(const char*, const VEKFeatureGroupSettings*, bool)"));
        EXPECT_EQ(refusal([&] { FeatureGroup::make_from_trained(&s, nullptr); }),
                  expected("12", c.reason,
                           "make_from_trained(const VEKFeatureGroupSettings*, "
                           "const FeatureGroup*)"));
        EXPECT_EQ(refusal([&] { FeatureGroup::make_from_researcher_file("x", &s); }),
                  expected(c.researcher_too ? "12" : "10",
                           c.researcher_too ? c.reason : "invalid index type",
                           "make_from_researcher_file(const char*, "
                           "const VEKFeatureGroupSettings*)"));
    }
}

}  // namespace
