// Every exported operation on a group against a group that records: which pointers are checked, in
// which order arguments arrive, and what becomes of exceptions.
#include "api/call_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "tests/api/fake_group.h"

namespace {

// The arguments of a call as numbers, whatever their types: addresses, counts, ratios.
using Values = std::array<uintptr_t, 10>;

template <typename T>
T take(const uintptr_t*& next) {
    const uintptr_t value = *next++;
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(value);
    else
        return static_cast<T>(value);
}

struct Operation {
    const char* name;  // of the virtual operation
    std::function<VEKStatus(const Values&)> call;
    size_t argument_count;
    std::vector<size_t> required;  // places of the checked pointers; the context is place 0
    std::vector<size_t> order;     // the exported function's places, as the operation gets them
    const char* constants;         // what the operation gets beyond that
    size_t written;                // place of the result that the frame writes; 0 for none
};

template <typename... Arguments>
Operation operation(VEKStatus (*function)(Arguments...), const char* name,
                    std::vector<size_t> required, std::vector<size_t> order,
                    const char* constants = "", size_t written = 0) {
    const auto call = [function](const Values& values) {
        const uintptr_t* next = values.data();
        const std::tuple<Arguments...> arguments{take<Arguments>(next)...};
        return std::apply(function, arguments);
    };
    required.push_back(0);
    return {name, call, sizeof...(Arguments), required, order, constants, written};
}

const std::vector<Operation> OPERATIONS{
    operation(VEK_set_comparison_algorithm, "set_comparison_algorithm", {1}, {1}),
    operation(VEK_dump_feature_group_to_file, "dump", {1}, {1}, " 0"),
    operation(VEK_dump_feature_group_model_to_file, "dump", {1}, {1}, " 1"),
    operation(VEK_get_feature_group_size, "size", {1}, {}, "", 1),
    operation(VEK_get_feature_group_settings, "get_settings", {1}, {}, "", 1),
    operation(VEK_search_feature_group, "search", {1, 8}, {1, 2, 3, 4, 6, 5, 7, 8}),
    operation(VEK_search_feature_group_preassigned, "search_preassigned", {1, 9},
              {1, 2, 3, 5, 4, 6, 7, 8, 9}),
    operation(VEK_reserve_feature_group_size, "reserve", {}, {1}),
    operation(VEK_insert_features_to_feature_group, "insert", {1, 2}, {2, 1, 3, 4, 5}),
    operation(VEK_get_cluster_ids, "get_cluster_ids", {1}, {1, 2, 3, 4}),
    operation(VEK_insert_preassigned_features_to_feature_group, "insert_preassigned", {1, 2, 3},
              {2, 1, 3, 4, 5, 6}),
    operation(VEK_get_feature_info_size, "get_info_size", {}, {}, "", 1),
    operation(VEK_precompute_feature_info, "precompute_feature_info", {1}, {1, 3, 2, 4}),
    operation(VEK_insert_with_feature_info, "insert_feature_by_info", {2}, {1, 2, 3, 4, 5}),
    operation(VEK_train_feature_group, "train", {1}, {1, 2, 3}),
    operation(VEK_delete_features_from_feature_group, "erase", {1}, {1, 2}),
    operation(VEK_set_vector_increase_ratio, "set_vector_increase_ratio", {}, {1}),
    operation(VEK_shrink_feature_group, "shrink", {}, {}),
    operation(VEK_get_imbalance_factor, "get_imbalance_factor", {}, {1}),
    operation(VEK_get_average_feature, "get_average_feature", {1, 4}, {1, 2, 3, 4}),
    operation(VEK_reset_feature_group, "reset", {}, {}),
};

class CallFrame : public testing::Test {
protected:
    vek::FakeGroup group;
    union {
        size_t size;
        VEKFeatureGroupSettings settings;
    } written = {};

    // Distinct numbers, as addresses readable by nobody but where the frame itself writes.
    Values values(const Operation& operation) {
        Values all{};
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = 16 * (i + 1);
        all[0] = reinterpret_cast<uintptr_t>(vek::context_of(&group));
        if (operation.written)
            all[operation.written] = reinterpret_cast<uintptr_t>(&written);
        group.last_call.clear();
        return all;
    }
};

TEST_F(CallFrame, PassesArgumentsInTheOperationsOrder) {
    for (const Operation& operation : OPERATIONS) {
        const Values given = values(operation);
        std::string expected = operation.name;
        for (size_t place : operation.order)
            expected += ' ' + std::to_string(given[place]);
        expected += operation.constants;
        EXPECT_EQ(operation.call(given), VEK_OK) << operation.name;
        EXPECT_EQ(group.last_call, expected);
        if (expected == "get_settings") {
            EXPECT_EQ(written.settings.tag_size, vek::FakeGroup::TAG_SIZE);
        } else if (operation.written) {
            EXPECT_EQ(written.size,
                      expected == "size" ? vek::FakeGroup::SIZE : vek::FakeGroup::INFO_SIZE);
        }
    }
}

TEST_F(CallFrame, ChecksExactlyTheRequiredPointers) {
    for (const Operation& operation : OPERATIONS) {
        for (size_t place = 0; place < operation.argument_count; ++place) {
            const bool required =
                std::count(operation.required.begin(), operation.required.end(), place) != 0;
            if (place == operation.written && place != 0 && !required)
                continue;
            Values with_null = values(operation);
            with_null[place] = 0;
            SCOPED_TRACE(testing::Message() << operation.name << ", argument " << place);
            EXPECT_EQ(operation.call(with_null), required ? VEK_NULL_POINTER : VEK_OK);
            EXPECT_EQ(group.last_call.empty(), required);
        }
    }
}

TEST_F(CallFrame, TurnsExceptionsIntoStatuses) {
    const std::pair<std::function<void()>, VEKStatus> failures[] = {
        {[] { throw vek::Error(VEK_ID_NOT_FOUND, "id not found", "f"); }, VEK_ID_NOT_FOUND},
        {[] { throw std::bad_alloc(); }, VEK_UNKNOWN_ERROR},
        {[] { throw std::length_error("too long"); }, VEK_UNKNOWN_ERROR},
    };
    for (const Operation& operation : OPERATIONS) {
        const Values given = values(operation);
        written.size = 99;
        for (const auto& [failure, status] : failures) {
            group.failure = failure;
            EXPECT_EQ(operation.call(given), status) << operation.name;
        }
        group.failure = [] { throw 5; };
        EXPECT_THROW(operation.call(given), int) << operation.name;
        EXPECT_EQ(written.size, 99u) << operation.name;
        group.failure = nullptr;
    }
}

TEST(Release, DestroysTheObjectBehindTheHandle) {
    struct Object : vek::OpaqueTypeBase {
        explicit Object(int* count) : m_count(count) {}
        ~Object() override { ++*m_count; }
        int* m_count;
    };
    int destroyed = 0;
    VEK_release(vek::context_of(new Object(&destroyed)));
    VEK_release(nullptr);
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
