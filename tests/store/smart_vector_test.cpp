#include "store/smart_vector.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/error_text.h"

namespace {

using vek::SmartVector;

template <typename T>
void expect_refusals(const std::string& instance) {
    const auto expected = [&](const std::string& message, const std::string& function) {
        return "Error[1] " + message + " at [void vek::SmartVector<T>::" + function +
               " [with T = " + instance + "; size_t = unsigned int]]";
    };
    SmartVector<T> store;
    const T records[4] = {1, 2, 3, 4};
    EXPECT_EQ(error_of([&] { store.ensure_size(1); }),
              expected("not initialized", "ensure_size(size_t)"));
    EXPECT_EQ(error_of([&] { store.add(records, 0); }),
              expected("not initialized", "add(const T*, size_t)"));
    store.init(2);
    store.add(records, 2);
    EXPECT_EQ(error_of([&] { store.init(1); }), expected("already initialized", "init(size_t)"));
    EXPECT_EQ(error_of([&] { store.erase(2); }), expected("erase invalid", "erase(size_t)"));
    EXPECT_EQ(store.size(), 2u);
    EXPECT_EQ(std::vector<T>(store.data(), store.data() + 4), (std::vector<T>{1, 2, 3, 4}));
    EXPECT_THROW(store.ensure_size(SIZE_MAX / 2), std::length_error);
    EXPECT_THROW(store.ensure_size(SIZE_MAX / 2 + 2), std::length_error);  // wraps to one record
}

TEST(SmartVector, RefusalsNameTheInstanceAndChangeNothing) {
    expect_refusals<uint8_t>("unsigned char");
    expect_refusals<uint64_t>("long long unsigned int");
}

TEST(SmartVector, GrowsExactlyOnRequestAndByDoublingOnAdd) {
    SmartVector<uint64_t> store;
    store.init(1);
    store.ensure_size(100);
    const uint64_t* place = store.data();
    for (uint64_t i = 0; i < 100; ++i)
        store.add(&i, 1);
    EXPECT_EQ(store.data(), place);
    EXPECT_EQ(store.prepare(100), std::nullopt);
    EXPECT_EQ(store.prepare(101)->capacity(), 101u);
    EXPECT_EQ(store.prepare_doubling(101)->capacity(), 200u);
    EXPECT_EQ(store.prepare_doubling(300)->capacity(), 300u);

    store.commit(store.prepare(500));
    EXPECT_NE(store.data(), place);
    EXPECT_EQ(store.data()[99], 99u);
    EXPECT_EQ(store.prepare(500), std::nullopt);
    store.shrink();
    EXPECT_EQ(store.data()[99], 99u);
    EXPECT_TRUE(store.prepare(101));
    store.clear();
    EXPECT_EQ(store.size(), 0u);
    EXPECT_EQ(store.prepare(100), std::nullopt);
}

}  // namespace
