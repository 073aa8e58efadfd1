// A group in its plainest form: a vector of rows, scored one pair at a time in whole numbers. With
// features of small integers every raw score is exact, so the library must agree bit for bit. On
// Arm its products of bytes have a wrap of their own, which the model has there too.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <unordered_set>

#include "tests/group/group_test_util.h"
#include "tests/group/heap_model.h"

class PlainModel {
public:
    struct Row {
        uint64_t id;
        std::vector<int> feature;
        std::vector<uint8_t> tag;
    };

    VEKComparisonAlgorithm comparison;
    bool is_int8 = false;
    std::vector<Row> rows;

    std::unordered_set<uint64_t> ids() const {
        std::unordered_set<uint64_t> held;
        for (const Row& row : rows)
            held.insert(row.id);
        return held;
    }

    // Rows of the same ids go first.
    void insert(const std::vector<Row>& added) {
        const auto held = ids();
        for (const Row& row : added) {
            if (held.count(row.id) != 0)
                erase(row.id);
        }
        rows.insert(rows.end(), added.begin(), added.end());
    }

    void erase(uint64_t id) {
        *std::find_if(rows.begin(), rows.end(), [id](const Row& row) { return row.id == id; }) =
            rows.back();
        rows.pop_back();
    }

    Found search(const Query& query, const std::vector<std::vector<int>>& queries) const {
        Found found;
        for (size_t q = 0; q < query.nr_query; ++q) {
            HeapModel heap{query.k, raw_threshold(query.threshold)};
            for (size_t slot = 0; slot < rows.size(); ++slot) {
                if (query.predicate &&
                    query.predicate(query.contexts[q], rows[slot].tag.data()) <= 0)
                    continue;
                heap.offer(static_cast<uint32_t>(slot), raw(queries[q], rows[slot].feature));
            }
            if (query.options.sorted > 0)
                heap.sort();
            for (size_t i = 1; i <= query.k; ++i) {
                const bool used = i <= heap.n();
                const float score = used ? similarity(heap.at[i].first) : -1.0f;
                found.ids.push_back(used ? rows[heap.at[i].second].id : VEK_INVALID_ID_VALUE);
                found.scores.push_back(bits(score));
            }
        }
        return found;
    }

private:
    static int dot(const std::vector<int>& a, const std::vector<int>& b) {
        return std::inner_product(a.begin(), a.end(), b.begin(), 0);
    }

    // The armv7 level adds the products of positions k and k + 8 of each 16 in 16 bits.
    static int product_of_bytes(const std::vector<int>& a, const std::vector<int>& b) {
        int sum = dot(a, b);
#if defined(__ARM_NEON)
        const auto extreme = [&](size_t k) { return a[k] == -128 && b[k] == -128; };
        for (size_t k = 0; k + 8 < a.size(); ++k) {
            if (k % 16 < 8 && extreme(k) && extreme(k + 8))
                sum -= 65536;
        }
#endif
        return sum;
    }

    float raw(const std::vector<int>& a, const std::vector<int>& b) const {
        if (is_int8) {
            // Where products have wrapped, the differences may as well.
            const auto half = [](int sum) { return static_cast<unsigned>(sum / 2); };
            const unsigned score =
                static_cast<unsigned>(product_of_bytes(a, b)) - half(dot(a, a)) - half(dot(b, b));
            return static_cast<float>(static_cast<int>(score));
        }
        const int d2 = dot(a, a) - 2 * dot(a, b) + dot(b, b);
        // Of equal features, half squares subtracted from a product leave a positive zero.
        return d2 == 0 ? 0.0f : -0.5f * static_cast<float>(d2);
    }

    float raw_threshold(float t) const {
        if (t <= 0)
            return -std::numeric_limits<float>::infinity();
        if (t >= 1)
            return std::numeric_limits<float>::infinity();
        const double x = std::log(static_cast<double>(1.0f / t - 1.0f));
        return static_cast<float>((x - comparison.bias) / comparison.scale) * -0.5f;
    }

    float similarity(float raw_score) const {
        const float e = comparison.bias + raw_score * (-2.0f * comparison.scale);
        return static_cast<float>(1.0 / (std::exp(static_cast<double>(e)) + 1.0));
    }
};
