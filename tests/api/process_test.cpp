#include <gtest/gtest.h>

#include "vekfind/vekfind.h"

namespace {

TEST(Process, NamesEveryStatusAndNoOther) {
    const std::pair<int, const char*> names[] = {
        {0, "VEK_OK"},
        {1, "VEK_INTERNAL_ERROR"},
        {2, "VEK_UNKNOWN_ERROR"},
        {3, "VEK_NULL_POINTER"},
        {4, "VEK_UNEXPECTED_CONFIG"},
        {5, "VEK_UNEXPECTED_MODEL"},
        {6, "VEK_BROKEN_FILE"},
        {7, "VEK_OUT_OF_RANGE"},
        {8, "VEK_INVALID_SETTINGS"},
        {9, "VEK_FILE_NOT_FOUND"},
        {10, "VEK_INVALID_ARGUMENT"},
        {11, "VEK_INVALID_OBJECT_TYPE"},
        {12, "VEK_UNSUPPORTED"},
        {14, "VEK_MISSING_MAP_ELEMENT"},
        {15, "VEK_UNKNOWN_GLOBAL_OPTION"},
        {17, "VEK_DUPLICATED_ID"},
        {18, "VEK_INVALID_ID"},
        {19, "VEK_ID_NOT_FOUND"},
    };
    for (const auto& [code, name] : names)
        EXPECT_STREQ(VEK_errorcode_to_string(code), name);
    for (int code : {-1, 13, 16, 20, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(VEK_errorcode_to_string(code), "UNKNOWN ERRORCODE") << code;
}

TEST(Process, KeepsAnyLogLevel) {
    int level = 0;
    VEK_get_log_level(&level);
    EXPECT_EQ(level, 2);
    VEK_set_log_level(-5);
    VEK_get_log_level(&level);
    EXPECT_EQ(level, -5);
}

TEST(Process, VersionIsOneStaticText) {
    const char *first, *second;
    VEK_get_version(&first);
    VEK_get_version(&second);
    EXPECT_STREQ(first, "v2.2.0");
    EXPECT_EQ(first, second);
}

}  // namespace
