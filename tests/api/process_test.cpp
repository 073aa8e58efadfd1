#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "vekfind/vekfind.h"

namespace {

TEST(Process, NamesEveryStatusAndNoOther) {
    // In the order of their numbers, of which two are no status.
    std::istringstream names(
        "VEK_OK VEK_INTERNAL_ERROR VEK_UNKNOWN_ERROR VEK_NULL_POINTER VEK_UNEXPECTED_CONFIG "
        "VEK_UNEXPECTED_MODEL VEK_BROKEN_FILE VEK_OUT_OF_RANGE VEK_INVALID_SETTINGS "
        "VEK_FILE_NOT_FOUND VEK_INVALID_ARGUMENT VEK_INVALID_OBJECT_TYPE VEK_UNSUPPORTED none "
        "VEK_MISSING_MAP_ELEMENT VEK_UNKNOWN_GLOBAL_OPTION none VEK_DUPLICATED_ID VEK_INVALID_ID "
        "VEK_ID_NOT_FOUND");
    std::string name;
    for (int code = 0; names >> name; ++code)
        EXPECT_EQ(VEK_errorcode_to_string(code), name == "none" ? "UNKNOWN ERRORCODE" : name);
    for (int code : {-1, 20, INT32_MIN, INT32_MAX})
        EXPECT_STREQ(VEK_errorcode_to_string(code), "UNKNOWN ERRORCODE") << code;
}

TEST(Process, KeepsAnyLogLevelAndOneVersionText) {
    int level = 0;
    VEK_get_log_level(&level);
    EXPECT_EQ(level, 2);
    VEK_set_log_level(-5);
    VEK_get_log_level(&level);
    EXPECT_EQ(level, -5);
    const char *first, *second;
    VEK_get_version(&first);
    VEK_get_version(&second);
    EXPECT_STREQ(first, "v2.2.0");
    EXPECT_EQ(first, second);
}

}  // namespace
