#include "store/error.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(Error, CopiesKeepCodeAndText) {
    const struct {
        int32_t code;
        const char* message;
        const char* text;
    } cases[] = {
        {VEK_DUPLICATED_ID, "duplicated id", "Error[17] duplicated id at [void f(int)]"},
        {VEK_OK, "100 %s", "Error[0] 100 %s at [void f(int)]"},
        {std::numeric_limits<int32_t>::min(), "", "Error[-2147483648]  at [void f(int)]"},
    };
    for (const auto& c : cases) {
        // A copy that outlives the original.
        const auto copy = std::make_exception_ptr(vek::Error(c.code, c.message, "void f(int)"));
        try {
            std::rethrow_exception(copy);
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(), c.text);
            EXPECT_EQ(dynamic_cast<const vek::Error&>(error).code(), c.code);
        }
    }
}

}  // namespace
