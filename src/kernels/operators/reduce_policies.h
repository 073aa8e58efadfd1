// What the modes of Reduce do with elements, and the selection of a kernel by mode and dtype. A
// policy over the accumulator type T has
//   start()          the neutral value
//   leaf(x)          what an element counts for
//   combine(a, b)    two results, rounded or wrapped to T
// MEAN is the policy of SUM and differs in `finish` alone.
#pragma once

#include <limits>
#include <type_traits>

#include "kernels/check.h"
#include "kernels/operators/reduce.h"
#include "kernels/types/arithmetic.h"

namespace kern::reduction {

template <typename T>
struct Plain {
    static T leaf(T x) { return x; }
};

template <typename T>
struct Sum : Plain<T> {
    // A float's neutral value is -0.0: started from 0.0, a line of a lone -0.0 would lose its sign.
    static T start() { return narrow<T>(-Working<T>(0)); }
    static T combine(T a, T b) { return narrow<T>(widen(a) + widen(b)); }
};

template <typename T>
struct SumSqr : Sum<T> {
    static T leaf(T x) { return narrow<T>(widen(x) * widen(x)); }
};

template <typename T>
struct Product : Plain<T> {
    static T start() { return narrow<T>(Working<T>(1)); }
    static T combine(T a, T b) { return narrow<T>(widen(a) * widen(b)); }
};

template <typename T>
struct Min : Plain<T> {
    static T start() {
        if constexpr (std::is_integral<T>::value)
            return std::numeric_limits<T>::max();
        else
            return narrow<T>(std::numeric_limits<float>::infinity());
    }
    static T combine(T a, T b) { return widen(a) < widen(b) ? a : b; }
};

template <typename T>
struct Max : Plain<T> {
    static T start() {
        if constexpr (std::is_integral<T>::value)
            return std::numeric_limits<T>::min();
        else
            return narrow<T>(-std::numeric_limits<float>::infinity());
    }
    static T combine(T a, T b) { return widen(a) > widen(b) ? a : b; }
};

// Makes of `count` combinations of `length` elements each the mode's results. Out of line: one
// division per type, not one in each of the many kernels.
template <typename T>
[[gnu::noinline]] void finish(ReduceMode mode, size_t length, T* results, size_t count) {
    if (mode != ReduceMode::MEAN)
        return;
    for (size_t i = 0; i < count; ++i) {
        if constexpr (std::is_integral<T>::value)
            results[i] = static_cast<T>(int64_t{results[i]} / static_cast<int64_t>(length));
        else
            results[i] = narrow<T>(widen(results[i]) / static_cast<float>(length));
    }
}

// Kernel<Policy>::run for the mode over accumulators of type T, from Kernel's own choice of stored
// types.
template <typename T, template <typename> class Kernel>
auto select_mode(ReduceMode mode) -> decltype(&Kernel<Sum<T>>::run) {
    switch (mode) {
        case ReduceMode::SUM:
        case ReduceMode::MEAN:
            return &Kernel<Sum<T>>::run;
        case ReduceMode::SUM_SQR:
            return &Kernel<SumSqr<T>>::run;
        case ReduceMode::PRODUCT:
            return &Kernel<Product<T>>::run;
        case ReduceMode::MIN:
            return &Kernel<Min<T>>::run;
        case ReduceMode::MAX:
            return &Kernel<Max<T>>::run;
    }
    KERN_FAIL();
}

}  // namespace kern::reduction
