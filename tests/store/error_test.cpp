#include "store/error.h"

#include <gtest/gtest.h>

namespace {

TEST(Error, CopiesKeepCodeAndText) {
    for (int code : {INT32_MIN, 0, 17}) {
        // A copy that outlives the original.
        const auto copy = std::make_exception_ptr(vek::Error(code, "100 %s", "void f(int)"));
        try {
            std::rethrow_exception(copy);
        } catch (const std::exception& error) {
            EXPECT_EQ(error.what(), "Error[" + std::to_string(code) + "] 100 %s at [void f(int)]");
            EXPECT_EQ(dynamic_cast<const vek::Error&>(error).code(), code);
        }
    }
}

}  // namespace
