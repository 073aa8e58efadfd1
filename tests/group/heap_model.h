// The heap of the best candidates in its plainest form: positions count from 1, every test is made
// anew. What the library's heap is compared with.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

struct HeapModel {
    using Entry = std::pair<float, uint32_t>;  // raw score, slot

    size_t k;
    float raw_threshold;
    std::vector<Entry> at{Entry{}};  // at[0] is no position

    size_t n() const { return at.size() - 1; }

    void offer(uint32_t slot, float r) {
        if (k == 0 || r < raw_threshold || (n() == k && r < at[1].first))
            return;
        if (n() == k) {
            sift({r, slot}, k);
            return;
        }
        at.push_back({r, slot});
        size_t p = n();
        while (p > 1 && !(at[p / 2].first < r)) {
            at[p] = at[p / 2];
            p /= 2;
        }
        at[p] = {r, slot};
    }

    void sift(Entry entry, size_t size) {
        size_t p = 1;
        for (;;) {
            const size_t left = 2 * p;
            const size_t right = 2 * p + 1;
            if (left > size)
                break;
            const bool take_right = right <= size && !(at[left].first < at[right].first);
            const size_t chosen = take_right ? right : left;
            if (entry.first < at[chosen].first)
                break;
            at[p] = at[chosen];
            p = chosen;
        }
        at[p] = entry;
    }

    void sort() {
        for (size_t m = n(); m > 0; --m) {
            const Entry entry = at[m];
            at[m] = at[1];
            sift(entry, m - 1);
        }
    }
};
